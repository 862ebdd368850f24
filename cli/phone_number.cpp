#include "cli/phone_number.h"

#include <fmt/format.h>

#include "base/safe_text.h"

namespace {

constexpr size_t max_digits = 20;
constexpr size_t shown = 40;

}  // namespace

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
