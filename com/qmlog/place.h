/// Where a log call stands in the source. Made at compile time: a call site holds a finished place.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qmlog {

using function_text_t = std::array<char, 96>;

/// "daemon_t::iocontrol" from the compiler's "static bool daemon_t::iocontrol(uint32_t, request_t&)": the return type
/// and the parameters are left out. A name that is too long is cut.
constexpr function_text_t function_text(std::string_view signature) {
    constexpr std::string_view anonymous = "(anonymous namespace)";
    size_t begin = 0;
    size_t end = 0;
    int depth = 0;  // inside template arguments
    for (; end < signature.size(); ++end) {
        const char c = signature[end];
        if (signature.substr(end, anonymous.size()) == anonymous) {
            end += anonymous.size() - 1;
        } else if (c == '<') {
            ++depth;
        } else if (c == '>') {
            --depth;
        } else if (depth == 0 && c == '(') {
            break;
        } else if (depth == 0 && (c == ' ' || c == '*' || c == '&')) {
            begin = end + 1;
        }
    }
    function_text_t text{};
    for (size_t i = 0; i < end - begin && i + 1 < text.size(); ++i) {
        text[i] = signature[begin + i];
    }
    return text;
}

/// A line number below 1 and an empty function mean "not given".
struct place_t {
    int32_t line;
    const char* file;
    const char* function;
};

}  // namespace qmlog
