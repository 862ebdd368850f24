#include "service/radio_status.h"

#include <nlohmann/json.hpp>

#include "base/clock.h"
#include "radio/diagnosis_words.h"
#include "radio/findings.h"
#include "radio/modem_state.h"

namespace {

using nlohmann::ordered_json;

/// What the modem did not tell is null.
ordered_json told(const std::string& text) {
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

uint64_t seconds_since(uint64_t then) {
    constexpr uint64_t second = 1000;
    return (base::tick64() - then) / second;
}

ordered_json domains_of(const radio::modem_state_t& state) {
    ordered_json domains = ordered_json::array();
    for (const radio::domain_state_t& domain : state.domains) {
        domains.push_back({{"name", domain.name},
                           {"registration", radio::registration_words(domain.status).words},
                           {"technology", told(domain.technology)}});
    }
    return domains;
}

ordered_json memories_of(const radio::modem_state_t& state) {
    ordered_json memories = ordered_json::array();
    for (const auto& [name, level] : state.memories) {
        memories.push_back({{"name", name},
                            {"used", level.used},
                            {"total", level.total},
                            {"receives", name == state.receiving_memory}});
    }
    return memories;
}

ordered_json refusals_of(const radio::modem_state_t& state) {
    ordered_json refusals = ordered_json::array();
    for (const radio::refusal_t& refusal : state.refusals) {
        refusals.push_back(
            {{"text", refusal.text}, {"seconds_ago", seconds_since(refusal.at)}, {"overcome", refusal.overcome}});
    }
    return refusals;
}

ordered_json words_of(const radio::modem_state_t& state) {
    ordered_json findings = ordered_json::array();
    for (const radio::finding_t& finding : radio::findings_of(state)) {
        findings.push_back({{"hinders", finding.hinders}, {"text", finding.text}, {"advice", told(finding.advice)}});
    }
    return findings;
}

}  // namespace

ordered_json radio_status() {
    const std::optional<radio::modem_state_t> state = radio::modem_state();
    if (!state) {
        return nullptr;
    }
    return {{"tty", state->tty},
            {"present", state->present},
            {"loss", told(state->loss)},
            {"maker", told(state->maker)},
            {"model", told(state->model)},
            {"serial_number", told(state->serial_number)},
            {"sim", told(state->sim)},
            {"domains", domains_of(*state)},
            {"system_type", radio::system_type_words(state->system_type)},
            {"signal_dbm", state->signal ? ordered_json(*state->signal) : nullptr},
            {"memories", memories_of(*state)},
            {"delivery", told(state->delivery)},
            {"owed", state->owed ? ordered_json(state->owed->words()) : nullptr},
            {"refusals", refusals_of(*state)},
            {"findings", words_of(*state)}};
}
