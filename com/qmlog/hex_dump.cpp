#include "com/qmlog/hex_dump.h"

namespace qmlog {

namespace {

void append_octet(std::string& text, uint8_t octet, const char* digits) {
    text += digits[octet >> 4];
    text += digits[octet & 0xF];
}

}  // namespace

std::string hex_column(std::span<const uint8_t> row) {
    std::string column;
    for (size_t i = 0; i < row.size(); ++i) {
        if (i == 4 || i == 12) {
            column += " .";
        } else if (i == 8) {
            column += " |";
        }
        append_octet(column += i == 0 ? "" : " ", row[i], "0123456789ABCDEF");  // "%s%02X"
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
                    append_octet(column += "\\x{", octet, "0123456789abcdef");
                    column += '}';
                }
        }
    }
    return column;
}

void hex_dump(int32_t level, const place_t& place, std::string_view octets) {
    constexpr size_t row_size = 16;
    for (size_t offset = 0; offset < octets.size(); offset += row_size) {
        const std::string_view piece = octets.substr(offset, row_size);
        const std::span row(reinterpret_cast<const uint8_t*>(piece.data()), piece.size());
        log(process_log(), level, place, "%02X: %-53s || %s", static_cast<unsigned>(offset / row_size),
            hex_column(row).c_str(), text_column(row).c_str());
    }
}

}  // namespace qmlog
