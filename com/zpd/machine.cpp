#include "com/zpd/machine.h"

#include <cstdio>

#include "com/miscio/text.h"
#include "com/zpd/daemon/message.h"

machine_t::machine_t(daemon_t* owner)
    : daemon(owner),
      state_queued(std::make_unique<state_queued_t>(this)),
      state_dispatcher(std::make_unique<state_dispatcher_t>(this)),
      state_rilled(std::make_unique<state_rilled_t>(this)),
      state_sent(std::make_unique<state_sent_t>(this)),
      state_failed(std::make_unique<state_failed_t>(this)),
      state_done(std::make_unique<state_done_t>(this)),
      state_waiting(std::make_unique<state_waiting_t>(this)),
      state_ripped(std::make_unique<state_ripped_t>(this)),
      state_retry(std::make_unique<state_retry_t>(this)),
      state_deferred(std::make_unique<state_deferred_t>(this)),
      states{state_queued.get(), state_dispatcher.get(), state_rilled.get(), state_sent.get(),  state_failed.get(),
             state_done.get(),   state_waiting.get(),    state_ripped.get(), state_retry.get(), state_deferred.get()} {}

machine_t::~machine_t() = default;

void machine_t::enqueue_datagram(datagram_t* datagram) {
    QM_DEBUG("state_queued=0x%X, name=%s", identity(state_queued.get()), state_queued->name.c_str());
    datagram->state = nullptr;
    transition(datagram, state_queued.get());
}

void machine_t::transition(datagram_t* datagram, abstract_state_t* to) {
    const uint32_t d = identity(datagram);  // all that is left of it when RIPPED has destroyed it
    QM_DEBUG("Transition 0x%X: %d[%d]:%s->%s", d, datagram->message->id, datagram->ordinal,
             datagram->state != nullptr ? datagram->state->name.c_str() : "<null>",
             to != nullptr ? to->name.c_str() : "<null>");
    if (datagram->state != nullptr) {
        QM_DEBUG("calling d->state->leave(d), d=0x%X", d);
        datagram->state->leave(datagram);
        ZPD_DUMP_STATES(*this);
    }
    QM_DEBUG("Transition 0x%X", d);
    datagram->state = to;
    QM_DEBUG("Transition 0x%X", d);
    if (to != nullptr) {
        QM_DEBUG("calling d->state->enter(d), d=0x%X, d->state=0x%X", d, identity(to));
        to->enter(datagram);
        ZPD_DUMP_STATES(*this);
    }
    machine_owner::wake_sender(*daemon);
}

namespace {

/// The first of a state's datagrams, "0x1,0x2,…"; the rest is left out on purpose.
std::string listed(const abstract_io_state_t& state) {
    constexpr int most = 20;
    std::string list;
    int count = 0;
    for (const auto& [datagram, present] : state.elements) {
        if (++count > most) {
            break;
        }
        char entry[16];
        (void)snprintf(entry, sizeof entry, "%s0x%X", count == 1 ? "" : ",", identity(datagram));
        list += entry;
    }
    return list;
}

}  // namespace

void machine_t::dump_states(const qmlog::place_t& place) const {
    const struct {
        const char* label;
        const abstract_io_state_t& state;
    } rows[] = {{"queued", *state_queued}, {"rilled", *state_rilled}, {"waiting", *state_waiting}};
    for (const auto& row : rows) {
        qmlog::log(qmlog::process_log(), qmlog::level_debug, place, "STATE_%s={%s}", row.label,
                   listed(row.state).c_str());
    }
}
