/// Every wait of the radio, in milliseconds of platform::tick64. A limit runs from the moment the command is written;
/// nothing that the modem says meanwhile lengthens it.
#pragma once

#include <cstdint>

namespace radio {

struct time_limit_t {
    const char* name;
    uint64_t milliseconds;
    const char* reason;
};

namespace limit {
inline constexpr time_limit_t probe = {"first answer", 5'000, "a modem that is there answers AT within a second"};
inline constexpr time_limit_t probe_again = {"repeat of AT", 1'000, "a modem that was just switched on loses octets"};
inline constexpr time_limit_t settling = {"settling", 1'000, "late answers to earlier commands have come by then"};
inline constexpr time_limit_t setting = {"setting", 10'000, "settings may touch the SIM, which is busy after a start"};
inline constexpr time_limit_t query = {"query", 10'000, "registration is known to the modem; it asks nobody"};
inline constexpr time_limit_t storage = {"message storage", 20'000, "reading or deleting one message on a slow SIM"};
inline constexpr time_limit_t listing = {"listing", 60'000, "a full SIM, read message by message"};
inline constexpr time_limit_t prompt = {"prompt", 20'000, "the modem only has to switch to text entry"};
inline constexpr time_limit_t submission = {"submission", 120'000, "the network's own repetitions end before that"};
inline constexpr time_limit_t ending = {"end", 2'000, "what was handed over is deleted before the tty is freed"};
/// No wait of a command: how often the storage is listed although nothing was announced.
inline constexpr time_limit_t listing_again = {"listing again", 300'000, "announcements get lost; a delete may fail"};
/// How long after a hang-up the tty is opened again; twice as long after each failure, up to the second.
inline constexpr time_limit_t reopening = {"reopening", 1'000, "a USB modem that restarts is away for some seconds"};
inline constexpr time_limit_t reopening_most = {"reopening, at most", 30'000, "a person who plugs it in waits for it"};
}  // namespace limit

}  // namespace radio
