/// The SIM's PIN: read from its file, and remembered while it is not known to be right. A wrong PIN costs one of three
/// tries, and none of them is given away twice for the same value:
///
/// - A value is marked before it is entered, durably, with the SIM and the tries that are left, and no marked value is
///   entered into that SIM. So nothing that happens between the entry and its answer makes it be entered again.
/// - The SIM is ready: what was entered into it, by this process or one before, was right or does not matter any more,
///   and its mark goes.
/// - As many tries are left as before the entry: the SIM never looked at the value (it was busy, the modem died), and
///   the mark goes.
/// - The SIM says that the value is wrong, or fewer tries are left: the mark stays for good. Whoever gives the SIM that
///   PIN later removes the file.
/// - Anything else, tries that nobody tells for one, leaves the mark as it is: it counts, and may still be settled.
///
/// A SIM is known by its ICCID. Where the modem does not tell it, the mark counts for every SIM, and every mark counts.
///
/// No text from here holds the PIN. The marks are salted hashes in a file in the phone's home; whoever may read that
/// may read the PIN's file as well. Not thread-safe.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace radio {

struct pin_file_t {
    std::string pin;    // 4 to 8 digits
    std::string error;  // or why there is none
};
/// The first line of a file that nobody but its owner can read.
pin_file_t read_pin(const std::filesystem::path& file);

/// Where the marks lie, a line each: the hash, the ICCID or "any", and "rejected", or the tries before the entry or
/// "?". A line of the hash alone is an entry into any SIM.
std::filesystem::path pin_marks();

/// In all that follows, `card` is the ICCID, or empty where the modem does not tell it.
///
/// This value is marked, or the marks cannot be read.
[[nodiscard]] bool pin_is_marked(const std::string& pin, const std::string& card);
/// Some value is marked, or the marks cannot be read.
[[nodiscard]] bool any_pin_is_marked(const std::string& card);
/// Some value was entered, into whatever SIM, and is not settled.
[[nodiscard]] bool any_pin_is_open();

/// Marks a value that is about to be entered, with so many tries left, as far as told. Returns an empty text, or why it
/// could not.
[[nodiscard]] std::string mark_entered_pin(const std::string& pin, const std::string& card, std::optional<int> tries);
/// What was entered into this SIM, by the tries that are left now.
void settle_entered_pins(const std::string& card, std::optional<int> tries);
/// The SIM says that this value, which was entered, is wrong.
void reject_pin(const std::string& pin, const std::string& card);
/// The SIM is ready. Returns whether something had been entered.
bool forget_entered_pins(const std::string& card);

}  // namespace radio
