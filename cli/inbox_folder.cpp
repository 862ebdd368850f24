#include "cli/inbox_folder.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <tuple>

#include "cli/text.h"

namespace {

constexpr size_t name_length = 32;

bool is_hex(std::string_view text) {
    return text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace

std::optional<stored_card_t> parse_stored_card(std::string name, std::string_view content) {
    stored_card_t card;
    const char* const end = content.data() + content.size();
    const auto [after_time, error] = std::from_chars(content.data(), end, card.time);
    const size_t line_end = content.find('\n');
    if (error != std::errc() || after_time == end || *after_time != ':' || line_end == std::string_view::npos) {
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

inbox_folder_t::inbox_folder_t(const std::filesystem::path& home)
    : path_(home / "Application Data" / "PUBLIC" / "VARKON" / "ZPD" / "INCOMING") {}

std::vector<std::string> inbox_folder_t::names() const {
    std::vector<std::string> names;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry(path_, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        std::string name = entry->path().filename().native();
        if (name.size() == name_length && is_hex(name)) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

std::vector<stored_card_t> inbox_folder_t::cards() const {
    std::vector<stored_card_t> cards;
    for (const std::string& name : names()) {
        if (auto card = load(name)) {
            cards.push_back(std::move(*card));
        }
    }
    std::ranges::sort(cards, {}, [](const stored_card_t& card) { return std::tie(card.time, card.name); });
    return cards;
}

std::optional<stored_card_t> inbox_folder_t::load(const std::string& name) const {
    std::ifstream stream(file(name), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    return parse_stored_card(name, content);
}

std::optional<std::string> inbox_folder_t::find(std::string_view prefix, std::string* error) const {
    if (prefix.empty() || prefix.size() > name_length || !is_hex(prefix)) {
        *error =
            fmt::format("'{}' is no name of a stored card: these are 32 hexadecimal digits, or the first few of them",
                        escaped(prefix));
        return std::nullopt;
    }
    std::vector<std::string> matches = names();
    std::erase_if(matches, [prefix](const std::string& name) { return !name.starts_with(prefix); });
    if (matches.size() == 1) {
        return std::move(matches.front());
    }
    *error =
        matches.empty()
            ? fmt::format("no stored card's name begins with {} in {}; see: zpd inbox list", prefix, path_.native())
            : fmt::format("{} stored cards' names begin with {}; give more digits", matches.size(), prefix);
    return std::nullopt;
}
