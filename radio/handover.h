/// From the journal to the driver: card datagrams in the order of arrival, so many at a time, however many wait. Used
/// on the modem's thread, save what happens when the driver returns.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/clock.h"
#include "radio/callbacks.h"
#include "radio/job_queue.h"
#include "radio/journal.h"

namespace radio {

class handover_t {
  public:
    /// All outlive the object; `callbacks` hands over no message any more before it goes.
    handover_t(journal_t& journal, callbacks_t& callbacks, job_queue_t& jobs, const base::wall_clock_t& clock)
        : journal_(journal), callbacks_(callbacks), jobs_(jobs), clock_(clock) {}

    /// A driver has begun, which gets all there is, and what comes from now on; null for none.
    void begin(session_pointer_t session);
    /// Hands over what there is room for.
    void go_on();

  private:
    void make_room(const session_pointer_t& session);

    journal_t& journal_;
    callbacks_t& callbacks_;
    job_queue_t& jobs_;
    const base::wall_clock_t& clock_;
    session_pointer_t receiver_;  // who wants messages; null for nobody
    int64_t last_ = 0;            // of the journal, that this session has been given
    size_t with_driver_ = 0;      // of those, how many have not come back yet
};

}  // namespace radio
