#include "cli/phone_number.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "base/safe_text.h"
#include "base/text.h"

namespace {

constexpr size_t max_digits = 20;
constexpr size_t shown = 40;

/// Also what word processors and address books put there: a non-breaking space; other spaces, marks of the direction of
/// writing, hyphens and dashes of the block General Punctuation; the minus sign.
bool is_between_digits(char32_t point) {
    constexpr std::u32string_view ascii = U" \t-./()";
    return ascii.find(point) != std::u32string_view::npos || point == 0xA0 || (point >= 0x2000 && point <= 0x2015) ||
           (point >= 0x202A && point <= 0x202F) || (point >= 0x205F && point <= 0x2069) || point == 0x2212;
}

constexpr std::string_view scheme = "tel:";

bool has_scheme(std::string_view typed) {
    return std::ranges::equal(typed.substr(0, scheme.size()), scheme,
                              [](unsigned char a, unsigned char b) { return std::tolower(a) == b; });
}

}  // namespace

std::string bare_number(std::string_view typed) {
    std::string bare;
    for (std::string_view left = has_scheme(typed) ? typed.substr(scheme.size()) : typed; !left.empty();) {
        const auto next = base::first_code_point(left);
        if (!is_between_digits(next.value)) {
            bare += left.substr(0, next.length);
        }
        left.remove_prefix(next.length);
    }
    return bare;
}

std::string check_number(std::string_view number) {
    const std::string_view digits = number.starts_with('+') ? number.substr(1) : number;
    const std::string start = base::escaped(number.substr(0, shown)) + (number.size() > shown ? "..." : "");
    if (digits.empty()) {
        return "the phone number is empty; write digits, with + before an international number";
    }
    if (digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return fmt::format("'{}' is not a phone number; write digits alone, with + before an international number",
                           start);
    }
    if (digits.size() > max_digits) {
        return fmt::format("the phone number {} has {} digits; it may have {}", start, digits.size(), max_digits);
    }
    return {};
}

std::string read_number(std::string& number) {
    std::string bare = bare_number(number);
    // "+44 (0)20 …": the trunk prefix is dialled inside of the country, where the country code is not.
    if (bare.starts_with('+') && number.find("(0)") != std::string::npos) {
        return fmt::format("the phone number {} is two in one; leave out (0), or the country's code",
                           base::escaped(number.substr(0, shown)));
    }
    std::string error = check_number(bare);
    if (error.empty()) {
        number = std::move(bare);
    }
    return error;
}
