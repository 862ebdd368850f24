/// The messages of a phone of which datagrams are missing, read from its journal by whoever wants to know; a modem may
/// be attached meanwhile.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace radio {

struct incomplete_message_t {
    std::string sender;  // as a person reads it; may hold any characters
    int64_t since = 0;   // seconds since 1970
    size_t received = 0;
    size_t datagrams = 0;
};

/// Oldest first; none when the home has no journal. `error` is set, to what failed and why, when it cannot be read.
std::vector<incomplete_message_t> incomplete_messages(const std::filesystem::path& home, std::string* error);

}  // namespace radio
