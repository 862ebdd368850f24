/// The modem that the RIL functions of this process speak to. The device manager attaches it before it starts the
/// driver.
#pragma once

#include <string>

namespace radio {

/// Opens the tty, takes it for this process alone (TIOCEXCL and a lock file whose holder an error names), brings the
/// modem into PDU mode and starts the radio's threads. Returns an empty text, or what was tried, on what, and why it
/// failed: no such tty, held by another program, no modem answers there. One modem at a time.
[[nodiscard]] std::string attach_modem(const std::string& tty);

/// Ends the radio's threads and frees the tty; a session that is still open then answers every call with a failure.
/// Idempotent.
void detach_modem();

}  // namespace radio
