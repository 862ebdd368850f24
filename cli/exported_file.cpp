#include "cli/exported_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/descriptor.h"
#include "base/own_file.h"
#include "base/safe_text.h"
#include "base/text.h"
#include "cli/card_choice.h"

namespace {

using nlohmann::ordered_json;

constexpr size_t longest_name = 100;  // octets, with all that stands behind it
constexpr std::string_view extension = ".vcf";

/// A part of a path on any file system.
std::string safe_name(std::string_view text) {
    std::string name;
    while (!text.empty()) {
        const base::code_point_t first = base::first_code_point(text);
        const std::string_view letter = text.substr(0, first.length);
        text.remove_prefix(first.length);
        const bool is_odd = std::string_view("/\\:*?\"<>|").find(letter) != std::string_view::npos;
        name += is_odd || base::escaped(letter) != letter ? "_" : letter;
    }
    // A name with a dot is hidden, one with a hyphen taken for an option.
    const size_t begin = name.find_first_not_of(" .-");
    name.erase(0, begin);
    name.erase(name.find_last_not_of(" .") + 1);
    return name;
}

std::string first_octets_of(std::string name, size_t count) {
    if (name.size() > count) {
        while ((static_cast<uint8_t>(name[count]) & 0xC0) == 0x80) {
            --count;  // not within a character
        }
        name.resize(count);
        name.erase(name.find_last_not_of(" .") + 1);
    }
    return name;
}

/// A text of the first contact; empty when it has none.
std::string text_in(const ordered_json& card, const char* member) {
    const ordered_json& contacts = card.at("contacts");
    const bool is_there = !contacts.empty() && contacts.front().at(member).is_string();
    return is_there ? safe_name(contacts.front().at(member).get<std::string>()) : std::string();
}

std::string best_name(const ordered_json& card) {
    for (const char* const member : {"name", "organisation", "telephone"}) {
        if (std::string name = text_in(card, member); !name.empty()) {
            return name;
        }
    }
    return "card " + short_name(card);
}

/// A file in the making, beside what it is to be. It is gone at the end of the scope.
class unfinished_file_t {
  public:
    explicit unfinished_file_t(const std::filesystem::path& file)
        : name_((file.parent_path() / ".zpd-XXXXXX").native()), descriptor_(mkostemp(name_.data(), O_CLOEXEC)) {}
    ~unfinished_file_t() {
        if (descriptor_) {
            unlink(name_.c_str());
        }
    }
    unfinished_file_t(const unfinished_file_t&) = delete;
    unfinished_file_t& operator=(const unfinished_file_t&) = delete;

    const char* name() const { return name_.c_str(); }

    /// False, with errno, when not all of it is on the disk.
    bool write(std::string_view octets) const {
        while (descriptor_ && !octets.empty()) {
            const ssize_t count = ::write(descriptor_.get(), octets.data(), octets.size());
            if (count < 0 && errno != EINTR) {
                return false;
            }
            octets.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
        }
        return descriptor_ && fsync(descriptor_.get()) == 0;
    }

  private:
    std::string name_;
    base::descriptor_t descriptor_;
};

/// Not every file system can rename and look at once; those that cannot have links.
bool put_in_place(const char* from, const char* to, bool overwrite) {
    if (overwrite) {
        return std::rename(from, to) == 0;
    }
    return renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0 || (errno == EINVAL && link(from, to) == 0);
}

}  // namespace

std::string readable_names_t::name_for(const ordered_json& card) {
    const std::string name = best_name(card);
    for (size_t count = 1;; ++count) {
        const std::string end = fmt::format("{}{}", count == 1 ? "" : fmt::format(" {}", count), extension);
        std::string file = first_octets_of(name, longest_name - end.size()) + end;
        if (taken_.insert(base::folded(file)).second) {
            return file;
        }
    }
}

std::string write_whole(const std::filesystem::path& file, std::string_view octets, bool overwrite) {
    struct stat status {};
    const bool is_there = lstat(file.c_str(), &status) == 0;
    if (is_there && !overwrite) {
        return fmt::format("{} is there already; --force overwrites it", file.native());
    }
    if (is_there && !S_ISREG(status.st_mode)) {
        return fmt::format("cannot overwrite {}: it is {}", file.native(), base::kind_of_file(status.st_mode));
    }
    const unfinished_file_t unfinished(file);
    if (!unfinished.write(octets) || !put_in_place(unfinished.name(), file.c_str(), overwrite)) {
        return errno == EEXIST ? fmt::format("{} is there already; --force overwrites it", file.native())
                               : fmt::format("cannot write {}: {}", file.native(), base::errno_text(errno));
    }
    return {};
}
