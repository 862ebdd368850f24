#include "service/inbox_folder.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <system_error>

#include "base/file.h"
#include "base/own_file.h"
#include "base/text.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

bool is_stored_name(std::string_view name) {
    return name.size() == ZPD_STORED_NAME_LENGTH &&
           name.find_first_not_of(ZPD_STORED_NAME_DIGITS) == std::string_view::npos;
}

}  // namespace

std::optional<stored_card_t> parse_stored_card(std::string name, std::string_view content) {
    stored_card_t card;
    const char* const end = content.data() + content.size();
    const auto [after_time, error] = std::from_chars(content.data(), end, card.time);
    const size_t line_end = content.find(ZPD_STORED_AFTER_SENDER);
    if (error != std::errc() || after_time == end || *after_time != ZPD_STORED_AFTER_TIME ||
        line_end == std::string_view::npos) {
        return std::nullopt;
    }
    const size_t sender = static_cast<size_t>(after_time - content.data()) + 1;
    // The octets of a number that has no ":" before the end of the line are not a header.
    if (sender > line_end) {
        return std::nullopt;
    }
    card.name = std::move(name);
    card.sender = content.substr(sender, line_end - sender);
    card.octets = content.substr(line_end + 1);
    return card;
}

inbox_folder_t::inbox_folder_t(const std::filesystem::path& home) : path_(home) {
    for (const char* const name : {ZPD_INCOMING_DIRECTORY}) {
        path_ /= name;
    }
}

bool inbox_folder_t::has(const std::string& name) const {
    std::error_code failed;
    return is_stored_name(name) && std::filesystem::exists(file(name), failed);
}

std::vector<std::string> inbox_folder_t::names(std::string* error) const {
    std::vector<std::string> names;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry(path_, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        std::string name = entry->path().filename().native();
        if (is_stored_name(name)) {
            names.push_back(std::move(name));
        }
    }
    if (failed && failed != std::errc::no_such_file_or_directory) {
        *error = fmt::format("cannot read the folder {}: {}", path_.native(), failed.message());
    }
    return names;
}

inbox_folder_t::file_t inbox_folder_t::read(const std::string& name, stored_card_t* card, std::string* error) const {
    struct stat status {};
    if (lstat(file(name).c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {  // nobody might ever write to a FIFO
        *error = fmt::format("{} is {}, not a stored card", file(name).native(), base::kind_of_file(status.st_mode));
        return file_t::unreadable;
    }
    std::string content;
    const int failed = base::read_file(file(name), SIZE_MAX, &content);
    if (failed == ENOENT) {
        return file_t::gone;
    }
    if (failed != 0) {
        *error = fmt::format("cannot read the stored card {}: {}", file(name).native(), base::errno_text(failed));
        return file_t::unreadable;
    }
    auto parsed = parse_stored_card(name, content);
    if (!parsed) {
        return file_t::other;
    }
    *card = std::move(*parsed);
    return file_t::card;
}

std::optional<stored_card_t> inbox_folder_t::load(const std::string& name, std::string* error) const {
    stored_card_t card;
    switch (read(name, &card, error)) {
        case file_t::card:
            return card;
        case file_t::other:
            *error = fmt::format("{} is no stored card", file(name).native());
            break;
        case file_t::gone:
            *error = fmt::format("the stored card {} is gone", file(name).native());
            break;
        case file_t::unreadable:
            break;
    }
    return std::nullopt;
}
