/// The SIM's PIN: read from its file, and remembered while it is not known to be right. A wrong PIN costs one of three
/// tries, so that a value that was tried and not accepted is never tried again, also not after a restart.
///
/// No text from here holds the PIN. The marks are salted hashes, one a line, in a file in the phone's home; whoever may
/// read that may read the PIN's file as well. Not thread-safe.
#pragma once

#include <filesystem>
#include <string>

namespace radio {

struct pin_file_t {
    std::string pin;    // 4 to 8 digits
    std::string error;  // or why there is none
};
/// The first line of a file that nobody but its owner can read.
pin_file_t read_pin(const std::filesystem::path& file);

/// Where the marks lie.
std::filesystem::path pin_marks();
/// This value is marked, or the marks cannot be read.
[[nodiscard]] bool pin_is_marked(const std::string& pin);
/// Some value is marked, or the marks cannot be read.
[[nodiscard]] bool any_pin_is_marked();
/// Marks the value, durably, beside those that are marked. Returns an empty text, or why it could not.
[[nodiscard]] std::string mark_pin(const std::string& pin);
/// The last value was right: no mark counts any more.
void unmark_pins();

}  // namespace radio
