/// The numbers and words that stand behind +CMS ERROR and +CME ERROR, for those who say them and those who read them.
/// Pure functions.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace air {

struct result_code_t {
    unsigned number;
    std::string_view words;  // as the standards write them
};

/// Of the message service: up to 127 causes of the network (3GPP TS 24.011 E-2), up to 255 those of the service centre
/// and of a receiver (TP-FCS, 3GPP TS 23.040 9.2.3.22), from 300 on those of the equipment (3GPP TS 27.005 3.2.5).
std::span<const result_code_t> cms_errors();
/// Of the equipment, 3GPP TS 27.007 9.2.1.
std::span<const result_code_t> cme_errors();

/// Of several makers, in both tables: the modem has only just been started.
inline constexpr unsigned initialising = 515;

/// Empty when the table does not have the number.
std::string_view words_of(std::span<const result_code_t> table, unsigned number);
/// The lowest number with these words, however a modem writes them: only letters and digits count, capitals or not, and
/// a SIM is a "(U)SIM". None when the table does not have them.
std::optional<unsigned> number_of(std::span<const result_code_t> table, std::string_view words);

}  // namespace air
