/// Requests that the service answers itself, beside the driver's control codes, over the same socket and in the same
/// packets. Their codes are of a device type (the upper half) that no driver has.
#pragma once

#include <cstdint>

namespace device {

/// What the service does and has counted since it started. Input none; output a JSON object in UTF-8:
///   device, modem, home   what it was started with
///   active                whether received cards are stored; null when the driver does not say
///   cards                 { stored, dropped, kept }: dropped by the driver's settings; kept until they can be stored
///   datagrams             { incomplete, given_up }: waiting for others of their messages; dropped after a long wait
///   radio                 what the radio knows of the modem; null in what the modem does not tell:
///     tty, present, loss  why it is not present goes on after "the modem on TTY"
///     maker, model, serial_number
///     sim                 its state in words
///     domains             [{ name, registration, technology }], by AT+CREG and those like it
///     system_type         what the driver is told: none, CDMA, GSM or UMTS
///     signal_dbm          when messages were last listed
///     memories            [{ name, used, total, receives }]: new messages go to one of them
///     delivery            how new messages come
///     owed                what the modem has and tells no result for, in words
///     refusals            [{ text, seconds_ago, overcome }]: overcome once a datagram got through; the latest first
///     findings            [{ hinders, text, advice }]: what stands against cards, and what to do about it
inline constexpr uint32_t service_status = 0x5A500001;

}  // namespace device
