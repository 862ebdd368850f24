/// How a client finds a device and gets a connection to it.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/descriptor.h"
#include "client/errors.h"

namespace client {

/// Requests take milliseconds; one that waits for the driver's lock behind others a little longer.
inline constexpr std::chrono::seconds answer_limit{30};

struct connection_t {
    base::descriptor_t socket;  // that waits `answer_limit` at most, to send and to receive, or never
    std::string path;
};

/// Connects to a device: to the socket at its path, or to what serves its name, the user's own service (in
/// device::user_folder()) or, where none does, that of the system (in `system_folder`, which is device::system_folder
/// but for tests). Behind a name must be somebody who can be trusted with cards: in the user's folder, which in /tmp
/// anybody could have made, the same user or root; in the system's, root or the user whom it belongs to. Where neither
/// this nor the connection is to wait, a service that takes no connections is busy.
answer_t<connection_t> connect(std::string_view device, const std::filesystem::path& system_folder, bool waits = true);

}  // namespace client
