#include "cli/service_connection.h"

#include <fmt/format.h>

#include "relay/fleet.h"

using client::answer_t;
using client::client_t;
using client::failure_t;
using client::obstacle_t;

bool is_fleet(std::string_view device) {
    return fleet::is_url(device);
}

std::string shown_device(std::string_view device) {
    return is_fleet(device) ? nats::shown_url(device) : std::string(device);
}

answer_t<std::unique_ptr<client::service_t>> connect_service(const std::string& device) {
    if (is_fleet(device)) {
        const auto address = fleet::read_url(device);
        if (!address) {
            return address.failure();
        }
        auto opened = fleet::fleet_t::open(*address);
        if (!opened) {
            return opened.failure();
        }
        return std::unique_ptr<client::service_t>(std::move(*opened));
    }
    auto client = client_t::connect(device);
    if (!client) {
        return client.failure();
    }
    return std::unique_ptr<client::service_t>(std::make_unique<client_t>(std::move(*client)));
}

answer_t<client_t> connect_device(const std::string& device) {
    if (is_fleet(device)) {
        return failure_t{0,
                         fmt::format("{} is a fleet, which has no driver of its own; name a device with --device",
                                     shown_device(device)),
                         obstacle_t::no_service};
    }
    return client_t::connect(device);
}
