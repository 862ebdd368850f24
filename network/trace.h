/// A capture of what passes between the phones and the service centre: a pcap file of exported PDUs (link type
/// WIRESHARK_UPPER_PDU), each with the name of what decodes it. The message itself names one of its two ends; the other
/// is the phone's modem, for which the format has no place. Not thread-safe.
#pragma once

#include <filesystem>
#include <string>

#include "base/descriptor.h"
#include "network/air_message.h"

namespace network {

/// As the network sees it: 0 is sent, 1 received.
enum class trace_direction_t { to_phone = 0, from_phone = 1 };

class trace_t {
  public:
    /// Begins the file anew; once. Returns an empty text, or what failed.
    [[nodiscard]] std::string open(const std::filesystem::path& file);
    /// Each record is written at once, so that the file can be read meanwhile. Without a file, or once a write has
    /// failed, it does nothing.
    void write(const air_message_t& message, trace_direction_t direction);

  private:
    void write(const air::octets_t& octets);

    base::descriptor_t file_;
};

}  // namespace network
