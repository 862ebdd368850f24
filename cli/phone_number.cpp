#include "cli/phone_number.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>

#include "base/safe_text.h"

namespace {

constexpr size_t max_digits = 20;
constexpr size_t shown = 40;

/// Also what word processors and address books put there: non-breaking and thin spaces, other hyphens and dashes, marks
/// of the direction of writing.
constexpr auto between_digits = std::to_array<std::string_view>(
    {" ",      "\t",     "-",      ".",      "/",      "(",      ")",      "\u00A0", "\u2007", "\u2009",
     "\u202F", "\u2010", "\u2011", "\u2012", "\u2013", "\u2212", "\u200B", "\u200E", "\u200F", "\u202A",
     "\u202B", "\u202C", "\u202D", "\u202E", "\u2066", "\u2067", "\u2068", "\u2069"});

constexpr std::string_view scheme = "tel:";

bool has_scheme(std::string_view typed) {
    return std::ranges::equal(typed.substr(0, scheme.size()), scheme,
                              [](unsigned char a, unsigned char b) { return std::tolower(a) == b; });
}

}  // namespace

std::string bare_number(std::string_view typed) {
    std::string bare;
    for (std::string_view left = has_scheme(typed) ? typed.substr(scheme.size()) : typed; !left.empty();) {
        const auto* const sign = std::ranges::find_if(between_digits, [&](auto one) { return left.starts_with(one); });
        if (sign == between_digits.end()) {
            bare += left.front();
        }
        left.remove_prefix(sign == between_digits.end() ? 1 : sign->size());
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
    const std::string error = check_number(bare);
    if (error.empty()) {
        number = std::move(bare);
    }
    return error;
}
