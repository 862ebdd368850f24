/// The states of an outgoing datagram. What a state does happens on entering and leaving it; many pass the datagram on
/// at once from their enter, so that one event can run a chain of transitions.
///
///   QUEUED → DISPATCHER → RILLED → SENT → DONE → WAITING → RIPPED
///   RILLED → QUEUED on a radio error; DISPATCHER → FAILED → DONE when the submission is refused;
///   DISPATCHER → deferred → DONE when another datagram of the message failed; DONE → RIPPED when the message is
///   closed.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>

struct datagram_t;
class machine_t;

class abstract_state_t {
  public:
    virtual ~abstract_state_t() = default;
    virtual void enter(datagram_t* datagram);
    virtual void leave(datagram_t* datagram);
    /// Moves the datagram into this state. It may be gone afterwards.
    void go_to(datagram_t* datagram);
    abstract_state_t(const abstract_state_t&) = delete;
    abstract_state_t& operator=(const abstract_state_t&) = delete;

    machine_t* const machine;
    const std::string name;

  protected:
    abstract_state_t(machine_t* owner, std::string state_name) : machine(owner), name(std::move(state_name)) {}
};

/// A state that knows which datagrams are in it.
class abstract_io_state_t : public abstract_state_t {
  public:
    void enter(datagram_t* datagram) override;
    void leave(datagram_t* datagram) override;

    std::map<datagram_t*, int> elements;  // to 1 each

  protected:
    using abstract_state_t::abstract_state_t;
};

/// Waits for the radio, first come first served. A datagram leaves from the front only.
class state_queued_t final : public abstract_io_state_t {
  public:
    explicit state_queued_t(machine_t* owner) : abstract_io_state_t(owner, "QUEUED") {}
    void enter(datagram_t* datagram) override;
    void leave(datagram_t* datagram) override;

    std::deque<datagram_t*> fifo;
};

/// Hands the datagram to the radio, or gives it up.
class state_dispatcher_t final : public abstract_state_t {
  public:
    explicit state_dispatcher_t(machine_t* owner) : abstract_state_t(owner, "DISPATCHER") {}
    void enter(datagram_t* datagram) override;
};

/// With the radio, until its result comes.
class state_rilled_t final : public abstract_io_state_t {
  public:
    explicit state_rilled_t(machine_t* owner) : abstract_io_state_t(owner, "RILLED") {}
    void enter(datagram_t* datagram) override;
    void leave(datagram_t* datagram) override;
    /// The radio's result for a datagram: 0 leads to SENT, any error back to QUEUED, without limit on the tries.
    void process_ril_result(datagram_t* datagram, uint32_t error);

    uint32_t capacity = 7;  // most datagrams here at once
    // Since every datagram's ril_request_id is 0, this holds at most the datagram that came last, and any that leaves
    // takes it away: kept deliberately. The count of datagrams is that of `elements`.
    std::map<uint32_t, datagram_t*> by_request;
};

class state_sent_t final : public abstract_state_t {
  public:
    explicit state_sent_t(machine_t* owner) : abstract_state_t(owner, "SENT") {}
    void enter(datagram_t* datagram) override;
};

/// The submission was refused: the rest of the message is not submitted any more.
class state_failed_t final : public abstract_state_t {
  public:
    explicit state_failed_t(machine_t* owner) : abstract_state_t(owner, "FAILED") {}
    void enter(datagram_t* datagram) override;
};

class state_done_t final : public abstract_state_t {
  public:
    explicit state_done_t(machine_t* owner) : abstract_state_t(owner, "DONE") {}
    void enter(datagram_t* datagram) override;
};

/// Done with, kept for the client until it closes the message.
class state_waiting_t final : public abstract_io_state_t {
  public:
    explicit state_waiting_t(machine_t* owner) : abstract_io_state_t(owner, "WAITING") {}
};

/// Destroys the datagram, and with a message's last one its record.
class state_ripped_t final : public abstract_state_t {
  public:
    explicit state_ripped_t(machine_t* owner) : abstract_state_t(owner, "RIPPED") {}
    void enter(datagram_t* datagram) override;
};

/// No transition leads here, deliberately.
class state_retry_t final : public abstract_state_t {
  public:
    explicit state_retry_t(machine_t* owner) : abstract_state_t(owner, "retry") {}
    void enter(datagram_t* datagram) override;
};

/// Given up without being submitted, because another datagram of the message failed.
class state_deferred_t final : public abstract_state_t {
  public:
    explicit state_deferred_t(machine_t* owner) : abstract_state_t(owner, "deferred") {}
    void enter(datagram_t* datagram) override;
};
