/// The radio's warnings: one line each on the standard error stream. Thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace radio {

/// Text from the modem or the air as it can be shown: everything but printable ASCII as \xNN.
std::string shown(std::string_view text);

/// Writes "zpd radio: " and the text as it can be shown.
void warn(std::string_view text);

}  // namespace radio
