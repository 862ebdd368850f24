#include "com/qmlog/hex_dump.h"

#include <cstdio>

namespace qmlog {

std::string hex_column(std::span<const uint8_t> row) {
    std::string column;
    for (size_t i = 0; i < row.size(); ++i) {
        if (i == 4 || i == 12) {
            column += " .";
        } else if (i == 8) {
            column += " |";
        }
        char octet[8];
        (void)snprintf(octet, sizeof octet, "%s%02X", i == 0 ? "" : " ", row[i]);
        column += octet;
    }
    return column;
}

std::string text_column(std::span<const uint8_t> row) {
    std::string column;
    for (const uint8_t octet : row) {
        switch (octet) {
            case '\\':
                column += "\\\\";
                break;
            case '\0':
                column += "\\0";
                break;
            case '\t':
                column += "\\t";
                break;
            case '\n':
                column += "\\n";
                break;
            case '\r':
                column += "\\r";
                break;
            default:
                if (octet >= 0x20 && octet <= 0x7E) {
                    column += static_cast<char>(octet);
                } else {
                    char escaped[8];
                    (void)snprintf(escaped, sizeof escaped, "\\x{%02x}", octet);
                    column += escaped;
                }
        }
    }
    return column;
}

void hex_dump(int32_t level, const place_t& place, std::string_view octets) {
    constexpr size_t row_size = 16;
    for (size_t offset = 0; offset < octets.size(); offset += row_size) {
        const std::string_view piece = octets.substr(offset, row_size);
        const std::vector<uint8_t> row(piece.begin(), piece.end());
        log(process_log(), level, place, "%02X: %-53s || %s", static_cast<unsigned>(offset / row_size),
            hex_column(row).c_str(), text_column(row).c_str());
    }
}

}  // namespace qmlog
