/// A capture of what passes between the phones and the service centre: a pcapng file (the IETF's draft "PCAP Next
/// Generation Capture File Format") of exported PDUs (link type WIRESHARK_UPPER_PDU), each with the name of what
/// decodes it. A phone is an interface of the capture, from its first message on: its name is the phone's number, its
/// description what the phone is on; a phone that changes to another network is another interface. Not thread-safe.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "base/descriptor.h"
#include "base/octets.h"
#include "network/air_message.h"

namespace network {

enum class trace_direction_t { to_phone, from_phone };

class trace_t {
  public:
    using failed_t = std::function<void(const std::string& what)>;

    /// Begins the file anew. Returns an empty text, or what failed. `failed`, if any, is called once when a later write
    /// fails, which ends the trace: the file is then whole up to the message before.
    [[nodiscard]] std::string open(const std::filesystem::path& file, failed_t failed);
    /// Each message is written at once, so that the file can be read meanwhile. Without a file it does nothing.
    void write(std::string_view phone, std::string_view network, const air_message_t& message,
               trace_direction_t direction);

  private:
    using interfaces_t = std::map<std::pair<std::string, std::string>, uint32_t>;

    uint32_t interface_of(std::string_view phone, std::string_view network);
    void append(const base::octets_t& block);

    std::filesystem::path path_;
    base::descriptor_t file_;
    failed_t failed_;
    uint64_t size_ = 0;
    interfaces_t interfaces_;
};

}  // namespace network
