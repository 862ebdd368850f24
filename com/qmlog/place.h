/// Where a log call stands in the source. Made at compile time: a call site holds a finished place.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace qmlog {

using function_text_t = std::array<char, 96>;

/// "daemon_t::iocontrol" from the compiler's "static bool daemon_t::iocontrol(uint32_t, request_t&)": the return type,
/// the parameters and unnamed namespaces, which each compiler spells its own way, are left out. A name too long is cut.
constexpr function_text_t function_text(std::string_view signature) {
    constexpr std::string_view unnamed[] = {"(anonymous namespace)::", "{anonymous}::"};
    size_t begin = 0;
    size_t end = 0;
    int depth = 0;  // inside template arguments
    while (end < signature.size()) {
        const char c = signature[end];
        ++end;
        if (c == '<' || c == '>') {
            depth += c == '<' ? 1 : -1;
        }
        for (const std::string_view name : unnamed) {
            if (signature.substr(end - 1, name.size()) == name) {
                end += name.size() - 1;
                begin = end;
            }
        }
        if (depth == 0 && begin != end && c == '(') {
            --end;
            break;
        }
        if (depth == 0 && (c == ' ' || c == '*' || c == '&')) {
            begin = end;
        }
    }
    function_text_t text{};
    for (size_t i = 0; i < end - begin && i + 1 < text.size(); ++i) {
        text[i] = signature[begin + i];
    }
    return text;
}

static_assert(std::string_view(function_text("static bool daemon_t::iocontrol(uint32_t, request_t&)").data()) ==
              "daemon_t::iocontrol");
static_assert(std::string_view(function_text("std::map<int, int>& (anonymous namespace)::x_t::y(int)").data()) ==
              "x_t::y");
static_assert(std::string_view(function_text("bool {anonymous}::reduce(const RILMESSAGE&)").data()) == "reduce");

/// A line number below 1 and an empty function mean "not given".
struct place_t {
    int32_t line;
    const char* file;
    const char* function;
};

}  // namespace qmlog
