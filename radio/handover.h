/// From the journal to the driver: whole messages, in the order of their completion, all datagrams of one after the
/// other, so many at a time, however many wait. One that the driver could not write to a file stays in the journal, and
/// is handed over again after a while and to the next driver. Used on the modem's thread, save what happens when the
/// driver returns.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>

#include "radio/callbacks.h"
#include "radio/job_queue.h"
#include "radio/journal.h"
#include "radio/observer.h"

namespace radio {

class handover_t {
  public:
    /// All outlive the object; `callbacks` hands over no message any more before it goes.
    handover_t(journal_t& journal, callbacks_t& callbacks, job_queue_t& jobs)
        : journal_(journal), callbacks_(callbacks), jobs_(jobs) {}

    /// Who is told, on the callbacks' thread, what became of a card; null for nobody. Before the first session.
    void observe(observer_t* observer) { observer_ = observer; }

    /// A driver has begun, which gets all there is, and what comes from now on; null for none.
    void begin(session_pointer_t session);
    /// Hands over what there is room for.
    void go_on();
    /// When, on tick64, what could not be stored is to be handed over again: with `try_again`.
    [[nodiscard]] uint64_t next_try() const { return next_try_; }
    void try_again();

    /// Cards, since the start; from any thread.
    [[nodiscard]] size_t stored() const { return stored_; }
    [[nodiscard]] size_t dropped() const { return dropped_; }

  private:
    /// What became of a message.
    struct outcome_t {
        std::string sender;
        size_t datagrams = 0;
        size_t stored = 0;
        std::string failure;         // to store it; empty for none
        std::filesystem::path file;  // the last that appeared
    };
    void hand_over(const journal_t::message_t& message);
    void tell(const outcome_t& outcome, bool refused);
    void take_back(const session_pointer_t& session, const outcome_t& outcome);
    void note_failure(const outcome_t& outcome);

    journal_t& journal_;
    callbacks_t& callbacks_;
    job_queue_t& jobs_;
    observer_t* observer_ = nullptr;
    std::atomic<size_t> stored_ = 0;
    std::atomic<size_t> dropped_ = 0;
    session_pointer_t receiver_;  // who wants messages; null for nobody
    int64_t last_ = 0;            // of the journal, that this session has been given
    size_t with_driver_ = 0;      // datagrams that have not come back yet
    size_t failures_ = 0;         // in this round
    std::string told_cause_;      // of failures, until one is stored
    uint64_t next_try_ = std::numeric_limits<uint64_t>::max();
};

}  // namespace radio
