#include "radio/diagnosis_words.h"

#include <algorithm>
#include <iterator>

namespace radio {

namespace {

// 3GPP TS 27.007 8.3 and 9.2, 3GPP TS 27.005 3.2.5.
struct sim_state_t {
    std::string_view told;  // by +CPIN?
    int cme;                // +CME ERROR in its place
    int cms;                // +CMS ERROR, which some modems send there
    state_words_t words;
};
constexpr const char* unlock_modem = "a code from the modem's maker or its seller lifts such a lock";
constexpr const char* other_sim = "take the SIM out and in again; try it in a phone; ask the operator for another one";
constexpr sim_state_t sim_states[] = {
    {"READY", -1, -1, {"ready"}},
    {"SIM PIN2", 17, 317, {"ready"}},
    {"SIM PUK2", 18, 318, {"ready"}},
    {"SIM PIN",
     11,
     311,
     {"PIN wanted", "start 'zpd serve' with --pin-file, or switch the question for the PIN off in a phone"}},
    {"SIM PUK", 12, 316, {"blocked, PUK wanted", "unblock it in a phone; the operator knows the PUK"}},
    {"PH-SIM PIN", 5, 312, {"not the one that the modem is locked to", unlock_modem}},
    {"PH-NET PIN", 40, -1, {"not of the network that the modem is locked to", unlock_modem}},
    {"", 10, 310, {"absent", "switch the modem off and put a SIM in"}},
    {"", 13, 313, {"failing", other_sim}},
    {"", 14, 314, {"busy", "ask again in some seconds: a modem that has just started is busy with it"}},
    {"", 15, 315, {"of a wrong kind", other_sim}},
};

constexpr const char* look_around = "check the antenna and the place, and whether the SIM finds a network in a phone";
constexpr state_words_t registration_states[] = {
    {"not registered, and not searching", "let the modem choose a network by itself: AT+COPS=0"},
    {"at home"},
    {"searching", look_around},
    {"denied", "the network refuses this SIM, or this modem: ask the operator"},
    {"unknown", look_around},
    {"roaming"},
    {"at home, for short messages only"},
    {"roaming, for short messages only"},
    {"for emergency calls only", look_around},
    {"at home"},  // 9 and 10: without preference for circuit-switched fallback
    {"roaming"},
};

constexpr const char* technologies[] = {
    "GSM",
    "GSM",
    "UMTS",
    "GSM with EDGE",
    "UMTS with HSDPA",
    "UMTS with HSUPA",
    "UMTS with HSPA",
    "LTE",
    "EC-GSM-IoT",
    "NB-IoT",
    "LTE on a 5G core",
    "5G",
    "5G",
    "LTE with 5G",
};

bool matches(const sim_state_t& state, const reply_t& reply) {
    using enum final_result_t::kind_t;
    if (reply.outcome == reply_t::outcome_t::ok) {
        const std::vector<value_t> values = values_of(reply.first());
        return !values.empty() && values[0].text == state.told;
    }
    return reply.outcome == reply_t::outcome_t::error &&
           ((reply.result.kind == cme_error && reply.result.code == state.cme) ||
            (reply.result.kind == cms_error && reply.result.code == state.cms));
}

}  // namespace

std::optional<state_words_t> sim_words(const reply_t& reply) {
    const auto* const state =
        std::ranges::find_if(sim_states, [&](const sim_state_t& one) { return matches(one, reply); });
    return state == std::end(sim_states) ? std::nullopt : std::optional(state->words);
}

state_words_t registration_words(int status) {
    constexpr int unknown = 4;
    const bool known = status >= 0 && status < static_cast<int>(std::size(registration_states));
    return registration_states[known ? status : unknown];
}

const char* technology_words(int access) {
    const bool known = access >= 0 && access < static_cast<int>(std::size(technologies));
    return known ? technologies[access] : "unknown";
}

const char* system_type_words(DWORD type) {
    if (type == RIL_SYSTEMTYPE_NONE) {
        return "none";
    }
    if (type & (RIL_SYSTEMTYPE_UMTS | RIL_SYSTEMTYPE_HSDPA)) {
        return "UMTS";
    }
    return type & (RIL_SYSTEMTYPE_GSM | RIL_SYSTEMTYPE_GPRS | RIL_SYSTEMTYPE_EDGE) ? "GSM" : "CDMA";
}

}  // namespace radio
