#include "service/service_status.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/clock.h"
#include "radio/diagnosis_words.h"
#include "radio/findings.h"
#include "radio/limits.h"
#include "radio/modem_state.h"
#include "radio/warning.h"
#include "service/radio_status.h"

using nlohmann::ordered_json;

namespace {

constexpr uint64_t longest_work = 60'000;  // milliseconds, of a modem's thread away from its wait

/// What hinders cards, or what network there is.
std::string modem_line() {
    const std::optional<radio::modem_state_t> state = radio::modem_state();
    if (!state) {
        return "no modem";
    }
    if (!state->present) {
        return "modem lost: " + radio::shown(state->loss);
    }
    for (const radio::finding_t& finding : radio::findings_of(*state)) {
        if (finding.hinders) {
            return radio::shown(finding.text);
        }
    }
    return fmt::format("network {}", radio::system_type_words(state->system_type));
}

ordered_json own_number() {
    const std::optional<radio::modem_state_t> state = radio::modem_state();
    return state && !state->number.empty() ? ordered_json(state->number) : ordered_json(nullptr);
}

}  // namespace

ordered_json service_status(const serve_options_t& options, const loaded_driver_t& driver, outbox_t& outbox) {
    const radio::card_counts_t cards = radio::card_counts();
    const outbox_t::counts_t waiting = outbox.counts();
    const std::optional<bool> active = driver.is_active();
    return {{"device", options.device},
            {"modem", options.modem.tty},
            {"number", own_number()},
            {"home", options.home.native()},
            {"active", active ? ordered_json(*active) : ordered_json(nullptr)},
            {"outbox",
             {{"waiting", waiting.waiting},
              {"sending", waiting.sending},
              {"set_aside", waiting.set_aside},
              {"datagrams", waiting.datagrams},
              {"room", std::max<int64_t>(radio::signed_value_of(radio::limit_t::outbox_size) - waiting.unsent(), 0)}}},
            {"cards", {{"stored", cards.stored}, {"dropped", cards.dropped}, {"kept", cards.kept}}},
            {"datagrams", {{"incomplete", cards.incomplete}, {"given_up", cards.given_up}}},
            {"radio", radio_status()}};
}

std::optional<std::string> service_line(const loaded_driver_t& driver, outbox_t& outbox) {
    const uint64_t busy_since = radio::modem_busy_since();
    if (!driver.answers().empty() || (busy_since != 0 && base::tick64() - busy_since > longest_work)) {
        return std::nullopt;
    }
    const outbox_t::counts_t out = outbox.counts();
    const radio::card_counts_t in = radio::card_counts();
    return fmt::format("{}; outbox: {} waiting, {} set aside; since the start: {} stored, {} dropped", modem_line(),
                       out.waiting + out.sending, out.set_aside, in.stored, in.dropped);
}
