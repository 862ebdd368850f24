/// Octets in the log: rows of sixteen, "%02X: %-53s || %s" with the row number, the hex column and the text column.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "com/qmlog/api2.h"

namespace qmlog {

/// "00 01 02 03 . 04 05 06 07 | 08 09 0A 0B . 0C 0D 0E 0F"; `row` has at most 16 octets.
std::string hex_column(std::span<const uint8_t> row);
/// Printable ASCII as it is; "\\", "\0", "\t", "\n", "\r", else "\x{XX}".
std::string text_column(std::span<const uint8_t> row);

/// Logs every row at `level`, as coming from `place`.
void hex_dump(int32_t level, const place_t& place, std::string_view octets);

}  // namespace qmlog

#define QM_HEX_DUMP(level, octets) QM_TRACE(level, qmlog::hex_dump(level, QM_PLACE, octets))
