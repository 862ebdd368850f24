#include "service/service_status.h"

#include <nlohmann/json.hpp>

#include "service/radio_status.h"

using nlohmann::ordered_json;

ordered_json service_status(const serve_options_t& options, const loaded_driver_t& driver, outbox_t& outbox) {
    const radio::card_counts_t cards = radio::card_counts();
    const outbox_t::counts_t waiting = outbox.counts();
    const std::optional<bool> active = driver.is_active();
    return {{"device", options.device},
            {"modem", options.modem.tty},
            {"home", options.home.native()},
            {"active", active ? ordered_json(*active) : ordered_json(nullptr)},
            {"outbox",
             {{"waiting", waiting.waiting},
              {"sending", waiting.sending},
              {"set_aside", waiting.set_aside},
              {"datagrams", waiting.datagrams}}},
            {"cards", {{"stored", cards.stored}, {"dropped", cards.dropped}, {"kept", cards.kept}}},
            {"datagrams", {{"incomplete", cards.incomplete}, {"given_up", cards.given_up}}},
            {"radio", radio_status()}};
}
