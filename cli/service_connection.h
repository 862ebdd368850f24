/// Opens what --device names.
#pragma once

#include <memory>
#include <string>

#include "client/client.h"

/// A fleet of modems, by the URL of its server, and no device.
bool is_fleet(std::string_view device);
/// For people: without a password.
std::string shown_device(std::string_view device);

/// The device, or the fleet.
client::answer_t<std::unique_ptr<client::service_t>> connect_service(const std::string& device);
/// The device with its driver; of a fleet a failure: no service runs there.
client::answer_t<client::client_t> connect_device(const std::string& device);
