#include "network/result_codes.h"

#include <fmt/format.h>

#include "air/result_codes.h"

namespace network {

namespace {

/// In digits, too, when the standards have no words for it.
std::string coded(std::string_view prefix, unsigned code, std::string_view words) {
    return words.empty() ? fmt::format("{}: {}", prefix, code) : fmt::format("{}: {}", prefix, words);
}

}  // namespace

std::string result_text(at_result_t result, error_form_t form, bool numeric) {
    const auto words = [&](std::span<const air::result_code_t> table) {
        return form == error_form_t::verbose ? air::words_of(table, result.code) : std::string_view();
    };
    switch (result.kind) {
        case at_result_t::kind_t::ok:
            return numeric ? "0" : "OK";
        case at_result_t::kind_t::cms_error:
            return coded("+CMS ERROR", result.code, words(air::cms_errors()));
        case at_result_t::kind_t::cme_error:
            if (form != error_form_t::plain) {
                return coded("+CME ERROR", result.code, words(air::cme_errors()));
            }
            [[fallthrough]];
        case at_result_t::kind_t::error:
            return numeric ? "4" : "ERROR";
        case at_result_t::kind_t::enter_text:
        case at_result_t::kind_t::enter_lines:
        case at_result_t::kind_t::nothing:
            break;
    }
    return {};
}

}  // namespace network
