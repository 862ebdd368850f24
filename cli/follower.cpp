#include "cli/follower.h"

#include <algorithm>

namespace {

constexpr uint32_t look_again = 250;               // milliseconds: a signal is seen then, and an estimate grows shorter
constexpr std::chrono::seconds explain_after{1};   // of no progress
constexpr std::chrono::seconds between_lines{10};  // that tell of progress alone

/// Without its numbers: a countdown is no other reason.
std::string subject_of(std::string text) {
    std::erase_if(text, [](char letter) { return letter >= '0' && letter <= '9'; });
    return text;
}

}  // namespace

follower_t::end_t follower_t::follow(outbox_card_t& message, const std::string& label, bool puts_off) {
    moved_at_ = shown_at_ = clock_t::now();
    shown_.clear();
    while (!message.is_over()) {
        if (signals_.wait(0)) {
            return end_t::interrupted;
        }
        if (deadline_ && clock_t::now() >= *deadline_) {
            return end_t::late;
        }
        if (puts_off && message.is_held_back()) {
            return end_t::put_off;
        }
        show(message, label);
        auto next = connection_.ask(
            [&](client::service_t& service) { return service.outbox_watch(message.id, message.version, look_again); });
        if (!next) {
            error_ = next.failure().text;
            return signals_.wait(0) ? end_t::interrupted : end_t::lost;
        }
        if (next->state != message.state || next->sent != message.sent) {
            moved_at_ = clock_t::now();
        }
        message = std::move(*next);
    }
    return end_t::over;
}

void follower_t::look(outbox_card_t& message) {
    auto now = connection_.ask([&](client::service_t& service) { return service.outbox_watch(message.id, 0, 0); });
    if (now) {
        message = std::move(*now);
    }
}

void follower_t::show(const outbox_card_t& message, const std::string& label) {
    const auto now = clock_t::now();
    const bool stands = now >= moved_at_ + explain_after;
    const std::string circumstances = stands ? message.circumstances() : std::string();
    const std::string text = (message.state == "sending" ? message.progress() : message.state) +
                             (circumstances.empty() ? "" : "; ") + circumstances;
    const std::string subject = subject_of(text);
    if (progress_.rewrites() || (stands && subject != shown_) || now >= shown_at_ + between_lines) {
        progress_.show(fmt::format("{}: {}", label, text));
        shown_ = subject;
        shown_at_ = now;
    }
}
