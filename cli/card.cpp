#include "cli/card.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

#include "base/file.h"
#include "base/safe_text.h"
#include "base/text.h"
#include "cli/datagram_count.h"
#include "cli/text_encoding.h"
#include "cli/vcard_split.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t file_limit = 32U << 20;  // address books with photos are megabytes long

std::string shown(const std::string& path) {
    return path == "-" ? "the standard input" : base::escaped(path);
}

/// A path as a shell takes it.
std::string quoted(const std::string& path) {
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./+,:@%";
    if (path.find_first_not_of(plain) == std::string::npos) {
        return path;
    }
    std::string text = "'";
    for (const char letter : path) {
        text += letter == '\'' ? "'\\''" : std::string(1, letter);
    }
    return text + "'";
}

/// Reads the cards of one command line.
class card_reader_t {
  public:
    card_reader_t(const card_options_t& options, std::string_view command) : options_(options), command_(command) {}

    void read(const std::string& path) {
        std::error_code failed;
        fs::is_directory(path, failed) && path != "-" ? read_folder(path) : read_file(path);
    }

    std::vector<card_t> take() { return std::move(cards_); }

  private:
    void read_folder(const std::string& folder) {
        std::vector<std::string> files;
        std::error_code failed;
        for (fs::directory_iterator entry(folder, failed), end; !failed && entry != end; entry.increment(failed)) {
            std::string extension = entry->path().extension();
            std::ranges::transform(extension, extension.begin(), [](unsigned char c) { return std::tolower(c); });
            std::error_code ignored;
            if (extension == ".vcf" && !entry->is_directory(ignored)) {
                files.push_back(entry->path());
            }
        }
        if (failed || files.empty()) {
            add(folder).problem = failed ? fmt::format("cannot read the folder {}: {}", shown(folder), failed.message())
                                         : fmt::format("the folder {} has no *.vcf in it", shown(folder));
        }
        std::ranges::sort(files);
        std::ranges::for_each(files, [this](const std::string& file) { read_file(file); });
    }

    void read_file(const std::string& path) {
        card_t& file = add(path);
        const int error = path == "-" ? base::read_standard_input(file_limit, &file.octets)
                                      : base::read_file(path, file_limit, &file.octets);
        if (error != 0) {
            file.problem = fmt::format("cannot read {}: {}", shown(path), base::errno_text(error));
        } else if (file.octets.empty()) {
            file.problem = fmt::format("{} is empty", shown(path));
        } else if (file.octets.size() > file_limit) {
            file.problem = fmt::format("{} is larger than {} MB", shown(path), file_limit >> 20);
        } else if (!options_.binary) {
            file.problem = make_utf8(file);
        }
        if (file.problem.empty()) {
            look_at_vcards();
        }
    }

    /// Returns why it cannot.
    std::string make_utf8(card_t& file) const {
        const encoding_t encoding = encoding_of(file.octets);
        if (encoding == encoding_t::unknown) {
            return fmt::format("{} is not valid UTF-8; send it as it is: {}", shown(file.path),
                               call("--binary", file.path));
        }
        if (options_.convert) {
            auto text = to_utf8(file.octets);
            file.octets = text ? std::move(*text) : std::string();
            return text ? std::string()
                        : fmt::format("{} cannot be converted to UTF-8; send it as it is: {}", shown(file.path),
                                      call("--binary", file.path));
        }
        if (encoding != encoding_t::utf8) {
            return fmt::format(
                "{} is {}; send it converted: {}", shown(file.path),
                encoding == encoding_t::eight_bit ? "not UTF-8, but Latin-1 or Windows-1252 by its look" : "UTF-16",
                call("--convert", file.path));
        }
        if (file.octets.starts_with(byte_order_mark)) {
            file.remark =
                fmt::format("{} begins with a byte order mark, which not all phones know; send it without: {}",
                            shown(file.path), call("--convert", file.path));
        }
        return {};
    }

    /// The last card is a whole file.
    void look_at_vcards() {
        const card_t file = std::move(cards_.back());
        cards_.pop_back();
        const vcards_t found = options_.binary ? vcards_t() : split_vcards(file.octets);
        card_t card = file;
        if (!options_.binary && !options_.force && (found.cards.empty() || found.more)) {
            card.doubt = found.cards.empty()
                             ? fmt::format("{} is no vCard (no BEGIN:VCARD ... END:VCARD)", shown(file.path))
                             : fmt::format("{} has more in it than whole vCards", shown(file.path));
            card.advice = fmt::format("{} it all the same: {}", command_, call("--force", file.path));
        }
        if (!options_.split || found.cards.size() < 2) {
            add(std::move(card), found.cards.size());
            return;
        }
        card.remark.clear();  // the mark is in none of them
        card.parts = found.cards.size();
        for (const std::string_view one : found.cards) {
            ++card.part;
            card.octets = one;
            add(card, 1);
            card.doubt.clear();  // once for the file
        }
    }

    card_t& add(const std::string& path) {
        cards_.emplace_back().path = path;
        return cards_.back();
    }

    void add(card_t card, size_t vcards) {
        const size_t datagrams = datagram_count(card.octets, !options_.binary, options_.long_reference);
        if (datagrams > most_datagrams) {
            card.problem = too_long(card, datagrams);
            if (vcards > 1) {
                card.problem += fmt::format("; it has {} vCards in it, send them one by one: {}", vcards,
                                            call("--split", card.path));
            }
        } else {
            card.datagrams = datagrams;
        }
        cards_.push_back(std::move(card));
    }

    std::string too_long(const card_t& card, size_t datagrams) const {
        return fmt::format(
            "{} is too long: its {} octets take {} datagrams, and the {} of the largest card hold at most {}{}",
            card.label(), card.octets.size(), datagrams, most_datagrams,
            options_.long_reference ? ZPD_CARD_MAX_LONG_REFERENCE : ZPD_CARD_MAX_SHORT_REFERENCE,
            options_.binary ? "" : ", a little less when characters have to be kept whole");
    }

    /// "zpd send --convert ann.vcf --to ..."
    std::string call(std::string_view option, const std::string& path) const {
        return fmt::format("zpd {} {} {}{}", command_, option, base::escaped(quoted(path)),
                           command_ == "send" ? " --to ..." : "");
    }

    const card_options_t& options_;
    const std::string_view command_;
    std::vector<card_t> cards_;
};

}  // namespace

std::string card_t::name() const {
    const std::string file = path == "-" ? "standard input" : fs::path(path).filename().native();
    return parts == 0 ? file : fmt::format("{} ({} of {})", file, part, parts);
}

std::string card_t::label() const {
    return base::escaped(name());
}

std::vector<card_t> read_cards(const std::vector<std::string>& paths, const card_options_t& options,
                               std::string_view command) {
    card_reader_t reader(options, command);
    for (const std::string& path : paths) {
        reader.read(path);
    }
    return reader.take();
}
