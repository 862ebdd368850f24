/// Requests that the service answers itself, beside the driver's control codes, over the same socket and in the same
/// packets. Their codes are of a device type (the upper half) that no driver has.
///
/// Numbers are little-endian; a string is its count of octets (u32) and then these. A JSON output is one object in
/// UTF-8, whose members docs/json.md shows. A request that fails sets one of the errors below, and its output is the
/// reason in words (UTF-8). Times are in seconds since 1970.
#pragma once

#include <cstdint>

namespace device {

inline constexpr uint32_t service_request_type = 0x5A500000;
inline constexpr uint32_t service_request_mask = 0xFFFF0000;

/// What the service does and has counted since it started. Input none; output JSON.
inline constexpr uint32_t service_status = 0x5A500001;

/// Hands in a card: answered when it is on the disk. Input string octets, flag is_utf8, flag long_reference, string
/// phone number, string name of its file, u64 when it expires (0 for never), string token (1 to 64 octets; empty for
/// none), and, for a lease, u32 seconds that it holds (1 to `longest_lease`); output JSON, the message. With the token
/// of one that was handed in before nothing is added, and the output is that one, whose lease, if it has one, holds as
/// long from now on. Under a lease, however, one that was cancelled is added anew.
inline constexpr uint32_t outbox_add = 0x5A500002;
/// Input u64 after, flag all: the messages with greater ids, the lowest first, as many as fit: those that are not sent,
/// or all that are known; output JSON { messages, more }.
inline constexpr uint32_t outbox_list = 0x5A500003;
/// Input u64 id, u64 version, u32 milliseconds; output JSON, the message, as soon as its version is another, or the
/// time is over (at most `longest_wait`).
inline constexpr uint32_t outbox_watch = 0x5A500004;
/// Gives a message up. Input u64 id; output JSON, the message. One that is over already is left as it is.
inline constexpr uint32_t outbox_cancel = 0x5A500005;
/// Has a message that was set aside sent after all, and one that waits for its number tried at once. Input u64 id, u64
/// when it expires (0 for never); output JSON, the message.
inline constexpr uint32_t outbox_retry = 0x5A500006;

/// What has happened, the oldest first. Input u64 after (the id of the last one that is known), u64 since (a time), u32
/// milliseconds to wait while there is none (at most `longest_wait`); output JSON { events, more }.
inline constexpr uint32_t event_list = 0x5A500007;

/// The received cards. Input u64 after: those with greater numbers; output JSON { cards, more }.
inline constexpr uint32_t inbox_list = 0x5A500008;
/// Input u64 number, u32 offset; output u32 the card's size, then its octets from the offset on, as many as fit.
inline constexpr uint32_t inbox_octets = 0x5A500009;
/// Input u64 number; no output.
inline constexpr uint32_t inbox_remove = 0x5A50000A;

/// From now on the leases of these messages hold so many seconds. Input u32 seconds (1 to `longest_lease`), then
/// u64 ids, `most_renewed` at most; output JSON { gone }: the ids of those that have no lease any more: they are
/// unknown, over, being called back, or never had one.
inline constexpr uint32_t outbox_renew = 0x5A50000B;

inline constexpr uint32_t longest_wait = 10'000;  // milliseconds
inline constexpr uint32_t longest_lease = 3'600;  // seconds
inline constexpr uint32_t most_renewed = 3'000;   // all of them fit an answer

/// The errors of these requests, by their Win32 numbers: ERROR_INVALID_DATA (the input is short, or no such request's),
/// ERROR_INVALID_PARAMETER (a value is none), ERROR_NOT_FOUND, ERROR_NOT_READY (nothing like that can be done with the
/// message now), ERROR_NOT_ENOUGH_QUOTA (the outbox holds as many as it may), ERROR_WRITE_FAULT (not on the disk).
inline constexpr uint32_t error_input = 13;
inline constexpr uint32_t error_value = 87;
inline constexpr uint32_t error_not_found = 1168;
inline constexpr uint32_t error_not_now = 21;
inline constexpr uint32_t error_full = 1816;
inline constexpr uint32_t error_not_written = 29;

}  // namespace device
