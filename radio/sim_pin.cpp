#include "radio/sim_pin.h"

#include <crypt.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <platform/linux/home.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/own_file.h"
#include "base/text.h"

namespace radio {

namespace {

base::descriptor_t open_file(const std::filesystem::path& path, int flags) {
    return base::descriptor_t(open(path.c_str(), flags | O_CLOEXEC));
}

// As much as a line of use has.
std::string first_line(const base::descriptor_t& file) {
    std::array<char, 512> text{};
    const ssize_t count = read(file.get(), text.data(), text.size());
    const std::string_view all(text.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
    const std::string_view line = all.substr(0, all.find('\n'));
    return std::string(line.substr(0, line.find('\r')));
}

std::string hash(const std::string& pin, const std::string& setting) {
    const auto data = std::make_unique<crypt_data>();
    const char* const text = crypt_r(pin.c_str(), setting.c_str(), data.get());
    return text == nullptr || text[0] == '*' ? std::string() : std::string(text);
}

std::string new_hash(const std::string& pin) {
    std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> salt{};
    const bool salted = crypt_gensalt_rn(nullptr, 0, nullptr, 0, salt.data(), salt.size()) != nullptr;
    return salted ? hash(pin, salt.data()) : std::string();
}

bool write_durably(const std::filesystem::path& path, const std::string& text) {
    const std::filesystem::path temporary = path.native() + ".new";
    std::string problem;
    const base::descriptor_t file = base::open_own_file(temporary, O_WRONLY | O_CREAT | O_TRUNC, problem);
    const bool written = write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (!written || fsync(file.get()) != 0 || rename(temporary.c_str(), path.c_str()) != 0) {
        return false;
    }
    const base::descriptor_t folder = open_file(path.parent_path(), O_RDONLY | O_DIRECTORY);
    return fsync(folder.get()) == 0;
}

// None when they cannot be read; no file has none.
std::optional<std::vector<std::string>> read_marks() {
    std::string problem;
    const base::descriptor_t file = base::open_own_file(pin_marks(), O_RDONLY, problem);
    if (!file) {
        return errno == ENOENT ? std::optional(std::vector<std::string>()) : std::nullopt;
    }
    std::string text;
    std::array<char, 512> buffer{};
    ssize_t count = 0;
    while ((count = read(file.get(), buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<size_t>(count));
    }
    std::vector<std::string> marks;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        marks.push_back(line);
    }
    return count == 0 ? std::optional(std::move(marks)) : std::nullopt;
}

}  // namespace

pin_file_t read_pin(const std::filesystem::path& path) {
    const base::descriptor_t file = open_file(path, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        return {{}, fmt::format("cannot read the PIN's file {}: {}", path.native(), base::errno_text(errno))};
    }
    if (!S_ISREG(status.st_mode)) {
        return {{}, fmt::format("the PIN's file {} is no file", path.native())};
    }
    constexpr mode_t others = 077;
    if ((status.st_mode & others) != 0) {
        return {{}, fmt::format("others may read the PIN's file {0}: chmod 600 {0}", path.native())};
    }
    std::string pin = first_line(file);
    const bool digits = std::ranges::all_of(pin, [](char c) { return c >= '0' && c <= '9'; });
    if (!digits || pin.size() < 4 || pin.size() > 8) {
        return {{}, fmt::format("the first line of {} is no PIN, which has 4 to 8 digits", path.native())};
    }
    return {std::move(pin), {}};
}

std::filesystem::path pin_marks() {
    return platform::home() / "rejected-pin";
}

bool pin_is_marked(const std::string& pin) {
    const std::optional<std::vector<std::string>> marks = read_marks();
    return !marks || std::ranges::any_of(*marks, [&](const std::string& mark) {
        const std::string hashed = hash(pin, mark);
        return hashed.empty() || hashed == mark;
    });
}

bool any_pin_is_marked() {
    const std::optional<std::vector<std::string>> marks = read_marks();
    return !marks || !marks->empty();
}

std::string mark_pin(const std::string& pin) {
    const std::string hashed = new_hash(pin);
    std::optional<std::vector<std::string>> marks = read_marks();
    if (marks) {
        marks->push_back(hashed);
    }
    if (!marks || hashed.empty() || !write_durably(pin_marks(), fmt::format("{}\n", fmt::join(*marks, "\n")))) {
        return fmt::format("cannot write {}: {}", pin_marks().native(), base::errno_text(errno));
    }
    return {};
}

void unmark_pins() {
    unlink(pin_marks().c_str());
}

}  // namespace radio
