/// Submissions of which nobody knows whether the service centre has them: the modem had the message, and told nothing.
/// The driver hands such a datagram in again. It is then answered from here when the result came late after all; else
/// it goes out under the same reference, with duplicates to be rejected (3GPP TS 23.040 9.2.3.6, 9.2.3.25).
///
/// Bounded: the oldest is forgotten first. Not thread-safe.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "radio/ril_message.h"

namespace radio {

struct open_submission_t {
    submission_t submission;  // as the driver handed it in
    uint16_t reference = 0;   // TP-MR, or the identifier of a CDMA message
    bool unknown = false;     // it went out once, and nobody knows what became of it
    bool sent = false;        // its result came late
};

class open_submissions_t {
  public:
    open_submissions_t();

    /// The one of an equal message, or a new one with the next reference: 1 to 255, one after the other, from a random
    /// one on, so that a reference of an earlier process is not met at once. A CDMA message has its own. Valid until it
    /// is closed or the next one begun.
    open_submission_t& begin(const submission_t& submission);
    void close(const open_submission_t& submission);

    /// The modem told this reference for one that went out: some count for themselves.
    void learn(const open_submission_t& submission, uint16_t told);
    /// A reference that the modem tells while the datagram is on its way is that of another one, which went out before.
    [[nodiscard]] bool is_of_another(const open_submission_t& submission, uint16_t told) const;
    /// A late result with this reference. False when it is not certain whose it is: better a copy than a loss.
    bool mark_sent(uint16_t told);

  private:
    uint16_t next_reference(const submission_t& submission);

    std::deque<open_submission_t> all_;
    uint8_t last_reference_;
    bool modem_counts_ = false;
};

}  // namespace radio
