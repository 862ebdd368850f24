/// The radio's warnings: one line each on the standard error stream. Thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace radio {

/// Text from the modem or the air as it can be shown: everything but printable ASCII as \xNN.
std::string shown(std::string_view text);

/// Writes "zpd radio: " and the text as it can be shown, to a terminal with the time of day before it. In ten minutes a
/// text is written once, and so many of one kind, the same words up to the first digit or mark; the rest is counted.
void warn(std::string_view text);
/// Tells of those that were counted, once their ten minutes are over. For whoever looks after things now and then.
void warn_of_the_rest();

}  // namespace radio
