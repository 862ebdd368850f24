#include "radio/handover.h"

#include <fmt/format.h>

#include <memory>
#include <utility>

#include "base/clock.h"
#include "platform/linux/file_writes.h"
#include "radio/limits.h"
#include "radio/warning.h"

namespace radio {

namespace {

constexpr uint64_t never = std::numeric_limits<uint64_t>::max();

void notify(const session_t& session, const journal_t::message_t& message) {
    RILMESSAGE ril_message;
    for (const auto& [id, technology, octets] : message.datagrams) {
        if (fill_card_message(technology, octets, ril_message)) {
            session.notify(RIL_NOTIFY_MESSAGE, &ril_message, sizeof ril_message, session.parameter);
        } else {
            warn(fmt::format("datagram {} of the journal is none; its message is not handed over", id));
        }
    }
}

}  // namespace

void handover_t::begin(session_pointer_t session) {
    receiver_ = session && (session->classes & RIL_NCLASS_MESSAGE) ? std::move(session) : nullptr;
    last_ = 0;
    with_driver_ = 0;
    failures_ = 0;
    next_try_ = never;
    go_on();
}

// What fails for want of room fails for all, what fails by itself keeps nobody from being stored.
void handover_t::go_on() {
    constexpr size_t most_with_driver = 32;
    constexpr size_t most_failures = 8;
    while (receiver_ && with_driver_ < most_with_driver && failures_ < most_failures) {
        const std::optional<journal_t::message_t> message = journal_.next(last_);
        if (!message) {
            return;
        }
        last_ = message->number;
        with_driver_ += message->datagrams.size();
        hand_over(*message);
    }
}

// What the driver makes of a message, only the files that it writes meanwhile tell: it returns nothing.
void handover_t::hand_over(const journal_t::message_t& message) {
    const auto outcome = std::make_shared<outcome_t>();
    outcome->sender = message.sender;
    outcome->datagrams = message.datagrams.size();
    const auto call = [this, message, outcome](const session_t& session) {
        platform::begin_file_writes([&](const auto& path) {
            journal_.about_to_be_stored(message.number, path);
            outcome->file = path;
        });
        notify(session, message);
        const platform::file_writes_t writes = platform::file_writes();
        platform::begin_file_writes();
        outcome->stored = writes.written;
        outcome->failure = writes.written == 0 ? writes.failure : std::string();
    };
    const auto done = [this, session = receiver_, number = message.number, refused = message.refused,
                       outcome](bool handed_over) {
        if (handed_over && outcome->failure.empty()) {
            tell(*outcome, refused);
            journal_.finish(number);
        }
        jobs_.post([this, session, outcome] { take_back(session, *outcome); });
    };
    callbacks_.message(receiver_, call, done);
}

void handover_t::tell(const outcome_t& outcome, bool refused) {
    stored_ += outcome.stored;
    const bool is_dropped = outcome.stored == 0 && !refused;
    dropped_ += is_dropped ? 1 : 0;
    if (observer_ != nullptr && outcome.stored != 0) {
        observer_->stored(outcome.sender, outcome.file);
    } else if (observer_ != nullptr && is_dropped) {
        observer_->dropped(outcome.sender);
    }
}

void handover_t::take_back(const session_pointer_t& session, const outcome_t& outcome) {
    if (session != receiver_) {
        return;
    }
    with_driver_ -= outcome.datagrams;
    if (!outcome.failure.empty()) {
        note_failure(outcome);
    } else if (outcome.stored != 0) {
        told_cause_.clear();
    }
    go_on();
}

// Once a cause: each of those that wait fails for it.
void handover_t::note_failure(const outcome_t& outcome) {
    failures_ += 1;
    next_try_ = base::tick64() + milliseconds(limit_t::storing_again);
    std::string cause = outcome.failure.substr(outcome.failure.rfind(": ") + 1);
    if (cause != told_cause_) {
        warn(fmt::format("cannot store a card from {}: {}; it is kept, and stored when that is possible again",
                         outcome.sender, outcome.failure));
        told_cause_ = std::move(cause);
    }
}

// From the first that is left; not before all have come back, or some would be handed over twice.
void handover_t::try_again() {
    if (with_driver_ != 0) {
        next_try_ = base::tick64() + milliseconds(limit_t::journal_again);
        return;
    }
    last_ = 0;
    failures_ = 0;
    next_try_ = never;
    go_on();
}

}  // namespace radio
