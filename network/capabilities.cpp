#include "network/capabilities.h"

#include <algorithm>
#include <charconv>
#include <string>

namespace network {

namespace {

constexpr std::string_view both_memories = R"(("ME","SM"),("ME","SM"),("ME","SM"))";

constexpr capabilities_t tables[] = {
    full_capabilities,
    // Neither broadcasts nor status reports are to be had from the modest ones.
    // Nothing is handed over directly, nothing to be acknowledged.
    {"stored", "(0)", both_memories, "(0-2),(0,1),(0),(0),(0,1)", "(0-2)"},
    // Nothing is announced by its place: it is handed over, or stored silently.
    {"direct", "(0,1)", both_memories, "(0-2),(0,2),(0),(0),(0,1)", "(0-2)"},
    // One value each, as a modem has it whose host may only switch announcements on.
    {"one", "(1)", R"(("SM"),("SM"),("SM"))", "(1),(1),(0),(0),(1)", "(0)"},
    // AT+CNMI ends after three parameters; what is received goes to one memory only.
    {"short", "(0,1)", R"(("ME","SM"),("ME","SM"),("SM"))", "(1,2),(0,1),(0)", ""},
    // No choice at all: what comes is stored silently.
    {"none", "", "", "", ""},
};

/// Takes the next part off the front of `text`, up to the separator outside parentheses.
std::string_view take_part(std::string_view& text) {
    int depth = 0;
    size_t end = 0;
    for (; end < text.size() && (depth > 0 || text[end] != ','); ++end) {
        depth += text[end] == '(' ? 1 : text[end] == ')' ? -1 : 0;
    }
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

unsigned number_in(std::string_view text) {
    unsigned number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// A value itself, or one within a range of numbers.
bool covers(std::string_view part, std::string_view value) {
    const size_t dash = part.find('-');
    if (dash == std::string_view::npos) {
        return part == value;
    }
    const unsigned number = number_in(value);
    return number >= number_in(part) && number <= number_in(part.substr(dash + 1));
}

}  // namespace

std::span<const capabilities_t> capability_tables() {
    return tables;
}

bool offers(std::string_view offered, size_t index, std::string_view value) {
    std::string_view list;
    for (size_t i = 0; i <= index; ++i) {
        list = take_part(offered);
    }
    if (list.size() < 2) {
        return false;
    }
    list = list.substr(1, list.size() - 2);
    while (!list.empty()) {
        if (covers(take_part(list), value)) {
            return true;
        }
    }
    return false;
}

bool offers(std::string_view offered, size_t index, unsigned value) {
    return offers(offered, index, std::to_string(value));
}

}  // namespace network
