/// A message in more datagrams than one: cutting a card for sending, and collecting the datagrams of a received one. No
/// locking: the owner serialises.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "com/miscio/octets.h"
#include "com/sms/sms_udh.h"

/// The sizes of the datagrams that a card is cut into: one of up to 133 octets, or several of up to 128 (8-bit
/// reference) or 127 (16-bit). UTF-8 text is cut only between characters. Without that, each of several is recorded at
/// full size, the last one too: deliberately, whoever slices takes what remains. `header_size` is not used,
/// deliberately: the room that the header takes is fixed here. False when the card cannot be cut; `chunks` then holds
/// what was found so far, more than 255 entries only when the card is too long.
[[nodiscard]] bool sms_split_chunks(const octet_string_t& data, bool is_utf8, bool use_long_ie, uint32_t header_size,
                                    std::vector<uint32_t>& chunks);

inline constexpr size_t max_datagrams = 255;  // the amount in the concatenation element is one octet

/// One received datagram that is addressed to us.
struct incoming_datagram {
    octet_string_t data;
    std::string address;  // UTF-8
    sms_udh_t header;     // empty in its place in a message
};

/// The key under which a datagram's message is found: address, reference and amount. Empty without concatenation.
std::string message_key(const incoming_datagram& datagram);

/// Seeds the random numbers of the stored names. Their generator is one for all threads, whatever the C library's own
/// is.
void seed_stored_names(uint32_t seed);

/// The datagrams of one received message, each in its place.
class sms_message_t {
  public:
    /// Takes the record if it belongs here; the record is then gone from `record`, else it is left there. Why one is
    /// dropped is logged.
    [[nodiscard]] bool add_datagram(std::unique_ptr<incoming_datagram>& record);
    bool is_complete() const { return complete; }
    const std::string& get_address() const { return address; }
    /// The user data of all datagrams in order; empty while one is missing.
    octet_string_t get_concatenated_data() const;
    /// A name for the message's file, 32 lower-case hexadecimal digits: a random number makes it another one each time,
    /// also with equal content. None when the platform cannot make the digest.
    std::optional<std::string> stored_name() const;

  private:
    uint32_t amount = 0;  // 0 until the first datagram is accepted
    uint32_t received = 0;
    uint32_t id = 0xFFFFFFFF;
    std::string address;
    bool complete = false;
    std::vector<std::unique_ptr<incoming_datagram>> datagrams;  // by ordinal; null where one is missing
};
