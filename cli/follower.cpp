#include "cli/follower.h"

#include <algorithm>

namespace {

constexpr uint32_t look_again = 250;              // milliseconds: a signal is seen then, and an estimate grows shorter
constexpr std::chrono::seconds between_lines{5};  // that tell nothing but datagrams

/// Without its numbers: a countdown is no other reason.
std::string subject_of(const message_t& message) {
    std::string subject = message.state + message.circumstances();
    std::erase_if(subject, [](char letter) { return letter >= '0' && letter <= '9'; });
    return subject;
}

}  // namespace

follower_t::end_t follower_t::follow(message_t& message, const std::string& label) {
    shown_.clear();
    while (!message.is_over()) {
        if (signals_.wait(0)) {
            return end_t::interrupted;
        }
        if (deadline_ && clock_t::now() >= *deadline_) {
            return end_t::late;
        }
        show(message, label);
        auto next = connection_.ask(
            [&](client::client_t& client) { return client.outbox_watch(message.id, message.version, look_again); });
        if (!next) {
            error_ = next.failure().text;
            return signals_.wait(0) ? end_t::interrupted : end_t::lost;
        }
        message = std::move(*next);
    }
    return end_t::over;
}

void follower_t::show(const message_t& message, const std::string& label) {
    const std::string subject = subject_of(message);
    const auto now = clock_t::now();
    if (!progress_.rewrites() && subject == shown_ && now < shown_at_ + between_lines) {
        return;
    }
    shown_ = subject;
    shown_at_ = now;
    const std::string circumstances = message.circumstances();
    progress_.show(fmt::format("{}: {}{}{}", label, message.state == "sending" ? message.progress() : message.state,
                               circumstances.empty() ? "" : "; ", circumstances));
}
