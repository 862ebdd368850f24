#include "service/vcard_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>
#include <utility>

#include "service/vcard.h"

namespace vcard {

namespace {

enum class form_t { text, parts, telephone };

struct meaning_t {
    std::string_view name;
    std::string_view words;
    form_t form = form_t::text;
};

constexpr auto meanings = std::to_array<meaning_t>({
    {"FN", "name"},
    {"N", "name in parts", form_t::parts},
    {"NICKNAME", "nickname"},
    {"ORG", "organisation", form_t::parts},
    {"TITLE", "title"},
    {"ROLE", "role"},
    {"TEL", "telephone", form_t::telephone},
    {"EMAIL", "e-mail"},
    {"IMPP", "instant messages"},
    {"URL", "web page"},
    {"ADR", "address", form_t::parts},
    {"LABEL", "address label"},
    {"GEO", "position"},
    {"TZ", "time zone"},
    {"LANG", "language"},
    {"BDAY", "birthday"},
    {"ANNIVERSARY", "anniversary"},
    {"GENDER", "gender"},
    {"RELATED", "related"},
    {"CATEGORIES", "categories"},
    {"NOTE", "note"},
    {"PHOTO", "photo"},
    {"LOGO", "logo"},
    {"SOUND", "sound"},
    {"KEY", "key"},
    {"VERSION", "version of vCard"},
    {"REV", "changed"},
    {"UID", "identifier"},
    {"PRODID", "written by"},
});

std::string lower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char letter) { return std::tolower(letter); });
    return result;
}

bool tells_encoding(std::string_view parameter) {
    constexpr auto encodings = std::to_array<std::string_view>({"QUOTED-PRINTABLE", "BASE64", "8BIT", "7BIT"});
    return std::ranges::find(encodings, upper(parameter)) != encodings.end();
}

/// "TYPE=home,cell", or "HOME;CELL" as in vCard 2.1: "home, cell".
std::string types_of(const property_t& property) {
    std::vector<std::string> types;
    for (const std::string& parameter : property.parameters) {
        const size_t equals = parameter.find('=');
        const bool is_bare = equals == std::string::npos && !tells_encoding(parameter);
        if (!is_bare && upper(parameter.substr(0, equals)) != "TYPE") {
            continue;
        }
        std::string type = lower(std::string_view(parameter).substr(is_bare ? 0 : equals + 1));
        std::erase(type, '"');
        for (size_t begin = 0; begin < type.size();) {
            const size_t comma = std::min(type.find(',', begin), type.size());
            types.push_back(type.substr(begin, comma - begin));
            begin = comma + 1;
        }
    }
    return joined(types, ", ");
}

struct embedded_t {
    std::string type;        // "JPEG"; may be empty
    std::string_view value;  // base64
};

/// A value in base64, or such a "data:" URI (RFC 2397).
std::optional<embedded_t> embedded(const property_t& property) {
    const std::string_view value = property.value;
    const size_t comma = value.find(',');
    const std::string start = lower(value.substr(0, std::min<size_t>(comma, 100)));
    if (start.starts_with("data:") && start.ends_with(";base64")) {
        const std::string media = start.substr(5, start.find(';') - 5);  // "image/jpeg"
        return embedded_t{upper(media.substr(media.find('/') + 1)), value.substr(comma + 1)};
    }
    return is_base64(property) ? std::optional(embedded_t{upper(types_of(property)), value}) : std::nullopt;
}

std::string size_of(std::string_view base64) {
    const auto digits = static_cast<size_t>(std::ranges::count_if(
        base64, [](unsigned char letter) { return std::isalnum(letter) != 0 || letter == '+' || letter == '/'; }));
    const size_t octets = digits * 3 / 4;
    return octets < 1000 ? fmt::format("{} octets", octets) : fmt::format("{} KB", (octets + 500) / 1000);
}

std::string on_one_line(std::string text) {
    std::erase(text, '\r');
    std::ranges::replace(text, '\n', ' ');
    return text;
}

std::string value_in_words(const property_t& property, form_t form) {
    switch (form) {
        case form_t::parts:
            return joined(components(property.value), ", ");
        case form_t::telephone:
            return telephone_of(property.value);
        case form_t::text:
            break;
    }
    return text_of(property.value);
}

std::string as_it_is(const property_t& property) {
    const std::string_view separator = property.parameters.empty() ? "" : ";";
    return fmt::format("{}{}{}{}{}", property.name, separator, fmt::join(property.parameters, ";"),
                       property.name.empty() ? "" : ":", property.value);
}

std::string words_of(const property_t& property) {
    const auto* const meaning = std::ranges::find(meanings, property.name, &meaning_t::name);
    const bool is_known = meaning != meanings.end();
    const std::string name(is_known ? meaning->words : property.name);
    if (const auto content = embedded(property)) {
        return fmt::format("{}: {}{}{}", name, content->type, content->type.empty() ? "" : ", ",
                           size_of(content->value));
    }
    if (!is_known) {
        return as_it_is(property);
    }
    const std::string value = value_in_words(property, meaning->form);
    const std::string types = types_of(property);
    return types.empty() ? fmt::format("{}: {}", name, value) : fmt::format("{} ({}): {}", name, types, value);
}

}  // namespace

std::vector<std::string> words_of(const card_t& card) {
    std::vector<std::string> lines;
    for (const property_t& property : card) {
        lines.push_back(on_one_line(words_of(property)));
    }
    return lines;
}

}  // namespace vcard
