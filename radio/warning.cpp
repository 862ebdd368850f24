#include "radio/warning.h"

#include <fmt/format.h>

#include <cstdio>

namespace radio {

std::string shown(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c >= 0x20 && c < 0x7F) {
            out += c;
        } else {
            out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
        }
    }
    return out;
}

void warn(std::string_view text) {
    const std::string line = "zpd radio: " + shown(text) + '\n';
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

}  // namespace radio
