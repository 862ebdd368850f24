#include "radio/findings.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/clock.h"
#include "radio/diagnosis_words.h"
#include "radio/mailbox.h"

namespace radio {

namespace {

// The domain that tries tells more than one that does not.
int best_status(const std::vector<domain_state_t>& domains) {
    constexpr int unknown = 4;
    const auto trying = std::ranges::find_if(domains, [](const domain_state_t& one) { return one.status != 0; });
    return trying != domains.end() ? trying->status : domains.empty() ? unknown : 0;
}

finding_t about(const refusal_t& refusal) {
    constexpr uint64_t second = 1000;
    return {true, fmt::format("{} s ago: {}", (base::tick64() - refusal.at) / second, refusal.text), {}};
}

}  // namespace

std::optional<finding_t> about_signal(int signal) {
    constexpr int weak = -105;
    return signal > weak ? std::nullopt
                         : std::optional(finding_t{false, fmt::format("the signal is weak: {} dBm", signal),
                                                   "try another place or another antenna"});
}

finding_t about_registration(int status) {
    const state_words_t state = registration_words(status);
    return {true, fmt::format("the modem is not registered with a network: {}", state.words), state.advice};
}

std::optional<finding_t> about_memory(const memory_use_t& memory, bool receives) {
    const auto& [used, total] = memory.level;
    const std::string text = fmt::format("the message memory {} holds {} of {} messages", memory.name, used, total);
    const char* advice = "delete some in a phone or with AT+CMGD; an activated service takes the cards out by itself";
    if (used >= total && receives) {
        return finding_t{true, text + ": nothing more can be received", advice};
    }
    return fullness_of(memory.level) != fullness_t::some_room ? std::optional(finding_t{false, text, advice})
                                                              : std::nullopt;
}

std::vector<finding_t> findings_of(const modem_state_t& state) {
    if (!state.present) {
        return {{true, fmt::format("the modem on {} {}", state.tty, state.loss),
                 "it is looked for until it is back: plug it in, or switch it on"}};
    }
    std::vector<finding_t> findings;
    if (state.system_type == RIL_SYSTEMTYPE_NONE) {
        findings.push_back(about_registration(best_status(state.domains)));
    }
    if (state.signal) {
        if (std::optional<finding_t> found = about_signal(*state.signal)) {
            findings.push_back(*std::move(found));
        }
    }
    for (const memory_use_t& memory : state.memories) {
        if (std::optional<finding_t> found = about_memory(memory, memory.name == state.receiving_memory)) {
            findings.push_back(*std::move(found));
        }
    }
    for (const refusal_t& refusal : state.refusals) {
        if (!refusal.overcome) {
            findings.push_back(about(refusal));
        }
    }
    if (state.owed) {
        findings.push_back({false, state.owed->words(), {}});
    }
    return findings;
}

}  // namespace radio
