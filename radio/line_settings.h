/// How octets go over a modem's tty: 8 data bits, no parity, one stop bit, and what may be chosen. A USB modem takes
/// any of it, and ignores it.
#pragma once

#include <optional>
#include <vector>

namespace radio {

struct line_settings_t {
    static constexpr unsigned usual_baud = 115200;

    /// Bits a second, one of baud_rates(); none for the usual rate wherever the tty lets one choose.
    std::optional<unsigned> baud{};
    /// RTS and CTS hold the other side back. Never XON and XOFF.
    bool hardware_flow = false;
};

/// Ascending.
std::vector<unsigned> baud_rates();

}  // namespace radio
