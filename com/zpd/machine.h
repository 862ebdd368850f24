/// The datagram state machine: ten states, and the one place where a datagram changes from one to another. It has no
/// lock of its own: every caller holds the control lock. A transition may contain others, and may end with the datagram
/// gone.
#pragma once

#include <cstdint>
#include <memory>
#include <set>

#include "com/qmlog/api2.h"
#include "com/zpd/state.h"

class daemon_t;

/// What the states ask of the daemon that they belong to, and all that they know of it. daemon_t has no virtual
/// operations, deliberately: it implements these in daemon/machine_owner.cpp.
namespace machine_owner {

/// Hands a datagram to the radio: true when a request is pending, whose result comes back through
/// state_rilled_t::process_ril_result.
bool request_ril(daemon_t& daemon, datagram_t* datagram);
void wake_sender(daemon_t& daemon);
void set_last_send_failed(daemon_t& daemon, bool failed);
/// Frees the record with this id that has no live datagram left.
void delete_message(daemon_t& daemon, uint32_t id);

}  // namespace machine_owner

class machine_t {
  public:
    /// `owner` outlives every call but the destructor.
    explicit machine_t(daemon_t* owner);
    ~machine_t();
    machine_t(const machine_t&) = delete;
    machine_t& operator=(const machine_t&) = delete;

    /// Moves a new datagram into QUEUED.
    void enqueue_datagram(datagram_t* datagram);
    /// Leaves the current state, enters `to`, and wakes the sender.
    void transition(datagram_t* datagram, abstract_state_t* to);
    /// Logs what QUEUED, RILLED and WAITING hold, at most 20 datagrams each; use it through ZPD_DUMP_STATES.
    void dump_states(const qmlog::place_t& place) const;

    daemon_t* const daemon;
    const std::unique_ptr<state_queued_t> state_queued;
    const std::unique_ptr<state_dispatcher_t> state_dispatcher;
    const std::unique_ptr<state_rilled_t> state_rilled;
    const std::unique_ptr<state_sent_t> state_sent;
    const std::unique_ptr<state_failed_t> state_failed;
    const std::unique_ptr<state_done_t> state_done;
    const std::unique_ptr<state_waiting_t> state_waiting;
    const std::unique_ptr<state_ripped_t> state_ripped;
    const std::unique_ptr<state_retry_t> state_retry;
    const std::unique_ptr<state_deferred_t> state_deferred;
    const std::set<abstract_state_t*> states;  // all of them; nobody reads it, deliberately
};

/// The dump, as coming from where this stands.
#define ZPD_DUMP_STATES(machine) QM_TRACE(qmlog::level_debug, (machine).dump_states(QM_PLACE))
