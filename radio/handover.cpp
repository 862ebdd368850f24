#include "radio/handover.h"

#include <utility>

namespace radio {

void handover_t::begin(session_pointer_t session) {
    receiver_ = session && (session->classes & RIL_NCLASS_MESSAGE) ? std::move(session) : nullptr;
    last_ = 0;
    with_driver_ = 0;
    journal_.begin_session();
    go_on();
}

void handover_t::go_on() {
    constexpr size_t most_with_driver = 32;
    if (!receiver_ || with_driver_ >= most_with_driver) {
        return;
    }
    for (const journal_t::entry_t& entry : journal_.next(last_, most_with_driver - with_driver_)) {
        last_ = entry.id;
        with_driver_ += 1;
        callbacks_.message(receiver_, entry.message, [this, session = receiver_, id = entry.id](bool handed_over) {
            if (handed_over) {
                journal_.handed_over(id, clock_.seconds());
            }
            jobs_.post([this, session] { make_room(session); });
        });
    }
}

void handover_t::make_room(const session_pointer_t& session) {
    if (session == receiver_) {
        with_driver_ -= 1;
        go_on();
    }
}

}  // namespace radio
