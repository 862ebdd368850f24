#include "radio/modem_state.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/clock.h"

namespace radio {

std::string owed_result_t::words() const {
    constexpr uint64_t second = 1000;
    const uint64_t now = base::tick64();
    return fmt::format("the modem owes a result for datagram {}, at most {} s more", part,
                       until > now ? (until - now + second - 1) / second : 0);
}

void modem_state_t::note_memory(const memory_use_t& use) {
    const auto known = std::ranges::find(memories, use.name, &memory_use_t::name);
    known == memories.end() ? memories.push_back(use) : void(*known = use);
}

// Between two listings, which tell it anew.
void modem_state_t::count_messages(const std::string& memory, int more) {
    const auto known = std::ranges::find(memories, memory, &memory_use_t::name);
    if (known != memories.end()) {
        known->level.used = std::clamp(known->level.used + more, 0, known->level.total);
    }
}

void modem_state_t::note_refusal(const std::string& text) {
    constexpr size_t most = 5;
    std::erase_if(refusals, [&](const refusal_t& one) { return one.text == text; });
    if (refusals.size() == most) {
        refusals.pop_back();
    }
    refusals.insert(refusals.begin(), {.text = text, .at = base::tick64()});
}

void modem_state_t::note_success() {
    for (refusal_t& refusal : refusals) {
        refusal.overcome = true;
    }
}

void modem_board_t::change(const std::function<void(modem_state_t&)>& how) {
    const std::lock_guard lock(mutex_);
    how(state_);
}

modem_state_t modem_board_t::state() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

}  // namespace radio
