/// The modem that the RIL functions of this process speak to. The device manager attaches it before it starts the
/// driver. Each function may be called from any thread.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include "radio/line_settings.h"

namespace radio {

class observer_t;

struct modem_options_t {
    std::string tty;
    line_settings_t line{};
    /// Holds the SIM's PIN in its first line; empty for none.
    std::filesystem::path pin_file{};
    /// The PIN is entered also where the modem does not tell how many tries it has left.
    bool pin_unchecked = false;
    /// The parameters of AT+CNMI that a user insists on; empty to choose from what the modem offers.
    std::string announcement{};
    /// Holds links with lasting names to ttys whose own names change.
    std::filesystem::path links = "/dev/serial/by-id";
    /// A record of the dialogue begins there (trace.h); empty for none.
    std::filesystem::path trace{};
    /// Is told what becomes of cards, until the modem is detached; null for nobody.
    observer_t* observer = nullptr;
};

/// Of the modem that is attached, since then: cards, and datagrams.
struct card_counts_t {
    size_t stored = 0;
    size_t dropped = 0;     // by the driver
    size_t kept = 0;        // whole, and not stored yet
    size_t incomplete = 0;  // datagrams that wait for others
    size_t given_up = 0;    // datagrams that waited too long, or were too many
};

/// Opens the tty, takes it for this process alone (TIOCEXCL and a lock file whose holder an error names), brings the
/// modem into PDU mode and starts the radio's threads. Returns an empty text, or what was tried, on what, and why it
/// failed: no such tty, held by another program, no modem answers there. One modem at a time.
///
/// A modem that hangs up later ends every request with an error and the system type with NONE; submissions then end
/// with RIL_E_RADIONOTPRESENT, and questions are refused with it. It is looked for until it is back, under the same
/// path, which may be a link, and under the lasting name that it had when it was attached; never is it reset. Then the
/// session goes on as before, with the messages that have come meanwhile and the system type notified.
///
/// A SIM that is busy is waited for. One that wants its PIN gets it, unless that may cost it its last try: a value that
/// it did not accept is remembered in the phone's home, and never entered into it again.
[[nodiscard]] std::string attach_modem(const modem_options_t& options);

/// Makes the attach_modem that runs, or else the next one, return promptly with "cancelled". One that has succeeded is
/// not touched; detach_modem makes it forgotten.
void cancel_attach();

/// Ends the radio's threads and frees the tty; a session that is still open then answers every call with a failure.
/// Idempotent.
void detach_modem();

/// All 0 while none is attached.
[[nodiscard]] card_counts_t card_counts();

}  // namespace radio
