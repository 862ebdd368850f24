/// What modems tell of a SIM, as values: how often its PIN may still be tried, which SIM it is, and its number. For the
/// first two there is a form of the standard, which not all modems know, and the makers' own. Pure functions.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace radio {

/// A way to ask for the tries of the SIM's PIN, while the SIM waits for it.
struct tries_question_t {
    std::string_view line;
    std::string_view reply;     // the begin of its reply lines
    std::string_view password;  // the value before the number; empty where the number is the first
};
/// The standard's first.
std::span<const tries_question_t> tries_questions();
/// None when the line tells no number of tries of the PIN, which are 15 at most (ISO/IEC 7816-4 7.5.1).
std::optional<int> tries_left(const tries_question_t& question, std::string_view line);

/// The command lines that ask for the ICCID, the standard's first, and how their reply lines begin: some modems write
/// the bare number.
std::span<const std::string_view> card_questions();
std::span<const std::string_view> card_replies();
/// The ICCID (ITU-T E.118) in such a line: 18 to 20 digits, or letters to F where the issuer uses them, in the order in
/// which they are printed on the card, without padding.
std::optional<std::string> card_identity(std::string_view line);

/// The subscriber's number in a line of +CNUM (3GPP TS 27.007 7.1), with "+" where it is international; none when the
/// SIM holds none.
std::optional<std::string> own_number(std::string_view line);

}  // namespace radio
