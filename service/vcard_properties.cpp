#include "service/vcard_properties.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace vcard {

namespace {

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

/// A line while it is put together of those that it was cut into.
struct line_t {
    std::string text;
    size_t colon = std::string::npos;  // the one that ends the parameters
    bool is_quoted_printable = false;

    void append(std::string_view more) {
        text += more;
        // Each octet once: a line may have been cut into thousands.
        for (; colon == std::string::npos && looked_at < text.size(); ++looked_at) {
            quoted = quoted != (text[looked_at] == '"');
            if (text[looked_at] == ':' && !quoted) {  // one inside a quoted parameter value ends nothing
                colon = looked_at;
                is_quoted_printable = upper(head()).find("QUOTED-PRINTABLE") != std::string::npos;
            }
        }
    }
    std::string_view head() const { return std::string_view(text).substr(0, colon); }

  private:
    size_t looked_at = 0;
    bool quoted = false;
};

/// A line and those that go on with it: after a "=" at the end of a quoted-printable one (RFC 2045 6.7 (5)) the next as
/// it is; else those that begin with white space (RFC 6350 3.2), which is not part of the text.
line_t take_whole_line(std::string_view& text) {
    line_t line;
    line.append(take_line(text));
    while (!text.empty()) {
        if (line.is_quoted_printable && line.text.ends_with('=')) {
            line.text.pop_back();
            line.append(take_line(text));
        } else if (text.starts_with(' ') || text.starts_with('\t')) {
            line.append(take_line(text).substr(1));
        } else {
            break;
        }
    }
    return line;
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

/// "item1.TEL;TYPE=cell" is TEL, and its parameters.
void read_head(std::string_view head, property_t& property) {
    std::vector<std::string> parts(1);
    bool quoted = false;
    for (const char letter : head) {
        quoted = quoted != (letter == '"');
        if (letter == ';' && !quoted) {
            parts.emplace_back();
        } else {
            parts.back() += letter;
        }
    }
    property.name = upper(parts.front());
    property.name.erase(0, property.name.rfind('.') + 1);
    property.parameters.assign(std::make_move_iterator(parts.begin() + 1), std::make_move_iterator(parts.end()));
}

property_t take_property(std::string_view& text) {
    line_t line = take_whole_line(text);
    property_t property;
    if (line.colon == std::string::npos) {
        property.value = std::move(line.text);
        return property;
    }
    read_head(line.head(), property);
    line.text.erase(0, line.colon + 1);
    property.value = line.is_quoted_printable ? decode_quoted_printable(line.text) : std::move(line.text);
    return property;
}

bool is_vcard(const property_t& property, std::string_view name) {
    return property.name == name && upper(property.value).starts_with("VCARD");
}

bool is_name(const property_t& property) {
    return property.name == "FN" || property.name == "N";
}

/// Adds a line to those before it. Some phones do not indent the lines of base64.
void add(card_t& card, property_t property) {
    if (!property.name.empty()) {
        card.push_back(std::move(property));
    } else if (!card.empty() && is_base64(card.back())) {
        card.back().value += property.value;
    } else if (!property.value.empty()) {
        card.push_back(std::move(property));
    }
}

}  // namespace

std::vector<card_t> cards_of(std::string_view octets) {
    std::vector<card_t> cards;
    card_t outside;
    bool is_inside = false;
    bool is_agent = false;
    while (!octets.empty()) {
        property_t property = take_property(octets);
        const bool begins = is_vcard(property, "BEGIN");
        if (begins && is_inside && !cards.back().empty() && cards.back().back().name == "AGENT") {
            is_agent = true;
        } else if (begins) {
            cards.emplace_back();
            is_inside = true;
        } else if (is_vcard(property, "END")) {
            is_inside = std::exchange(is_agent, false);
        } else if (!is_agent) {
            add(is_inside ? cards.back() : outside, std::move(property));
        }
    }
    if (std::ranges::any_of(outside, is_name)) {
        cards.push_back(std::move(outside));
    }
    return cards;
}

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

std::string text_of(std::string_view value) {
    std::string text;
    for (const std::string& part : components(value)) {
        text += part;
        text += ';';
    }
    text.pop_back();
    return text;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string result;
    for (const std::string& part : parts) {
        if (!result.empty() && !part.empty()) {
            result += separator;
        }
        result += part;
    }
    return result;
}

std::string upper(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char letter) { return std::toupper(letter); });
    return result;
}

bool is_base64(const property_t& property) {
    const auto tells_so = [](const std::string& parameter) {
        const std::string text = upper(parameter);
        return text == "BASE64" || text == "ENCODING=BASE64" || text == "ENCODING=B";
    };
    return std::ranges::any_of(property.parameters, tells_so);
}

}  // namespace vcard
