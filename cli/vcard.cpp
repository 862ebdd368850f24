#include "cli/vcard.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <vector>

namespace {

struct property_t {
    std::string name;  // upper case, without its group
    bool quoted_printable;
    std::string value;
};

std::string upper(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char letter) { return std::toupper(letter); });
    return result;
}

/// Takes a line and its end, CR LF or LF, from the front of `text`.
std::string_view take_line(std::string_view& text) {
    const size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

/// The colon that ends the parameters; one inside a quoted parameter value does not.
size_t find_value(std::string_view line) {
    bool quoted = false;
    for (size_t index = 0; index < line.size(); ++index) {
        if (line[index] == '"') {
            quoted = !quoted;
        } else if (line[index] == ':' && !quoted) {
            return index;
        }
    }
    return std::string_view::npos;
}

bool is_quoted_printable(std::string_view line) {
    return upper(line.substr(0, find_value(line))).find("QUOTED-PRINTABLE") != std::string::npos;
}

/// A line and those that go on with it: after a "=" at the end of a quoted-printable one (RFC 2045 6.7 (5)) the next as
/// it is; else those that begin with white space (RFC 6350 3.2), which is not part of the text.
std::string take_whole_line(std::string_view& text) {
    std::string line(take_line(text));
    while (!text.empty()) {
        if (line.ends_with('=') && is_quoted_printable(line)) {
            line.pop_back();
            line += take_line(text);
        } else if (text.starts_with(' ') || text.starts_with('\t')) {
            line += take_line(text).substr(1);
        } else {
            break;
        }
    }
    return line;
}

std::optional<property_t> take_property(std::string_view& text) {
    const std::string line = take_whole_line(text);
    const size_t colon = find_value(line);
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const std::string head = upper(std::string_view(line).substr(0, colon));
    const size_t name_end = std::min(head.find(';'), head.size());
    const size_t group_end = head.rfind('.', name_end);
    const size_t name_begin = group_end == std::string::npos ? 0 : group_end + 1;
    return property_t{head.substr(name_begin, name_end - name_begin), is_quoted_printable(line),
                      line.substr(colon + 1)};
}

int hex_digit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const int letter = std::toupper(static_cast<unsigned char>(digit));
    return letter >= 'A' && letter <= 'F' ? letter - 'A' + 10 : -1;
}

std::string decode_quoted_printable(std::string_view value) {
    std::string result;
    for (size_t index = 0; index < value.size(); ++index) {
        const bool is_escape = value[index] == '=' && index + 2 < value.size() && hex_digit(value[index + 1]) >= 0 &&
                               hex_digit(value[index + 2]) >= 0;
        if (is_escape) {
            result += static_cast<char>(hex_digit(value[index + 1]) * 16 + hex_digit(value[index + 2]));
            index += 2;
        } else {
            result += value[index];
        }
    }
    return result;
}

/// The components of a value, parted by ";" (RFC 6350 3.4), their escapes (4) undone; a line break becomes a blank.
std::vector<std::string> components(std::string_view value) {
    std::vector<std::string> parts(1);
    for (size_t index = 0; index < value.size(); ++index) {
        if (value[index] == '\\' && index + 1 < value.size()) {
            const char escaped = value[++index];
            parts.back() += escaped == 'n' || escaped == 'N' ? ' ' : escaped;
        } else if (value[index] == ';') {
            parts.emplace_back();
        } else {
            parts.back() += value[index];
        }
    }
    return parts;
}

std::string joined(const std::vector<std::string>& parts, char separator) {
    std::string result;
    for (const std::string& part : parts) {
        if (!result.empty()) {
            result += separator;
        }
        result += part;
    }
    return result;
}

/// N is family name; given name; further ones (RFC 6350 6.2.2).
std::string name_of_n(std::vector<std::string> parts) {
    parts.resize(2);
    std::swap(parts[0], parts[1]);
    std::erase(parts, "");
    return joined(parts, ' ');
}

}  // namespace

std::string card_name(std::string_view card) {
    std::string name;
    while (!card.empty()) {
        auto property = take_property(card);
        if (!property || (property->name != "FN" && property->name != "N")) {
            continue;
        }
        if (property->quoted_printable) {
            property->value = decode_quoted_printable(property->value);
        }
        auto parts = components(property->value);
        if (property->name == "FN" && !property->value.empty()) {
            return joined(parts, ';');
        }
        if (property->name == "N" && name.empty()) {
            name = name_of_n(std::move(parts));
        }
    }
    return name;
}
