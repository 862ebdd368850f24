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
    tpdu::octets_t octets;   // as the driver handed them in
    uint16_t reference = 0;  // TP-MR, or the identifier of a CDMA message
    bool sent = false;       // its result came late
};

class open_submissions_t {
  public:
    open_submissions_t();

    /// 1 to 255, one after the other, from a random one on: a reference of an earlier process is not met at once. A
    /// CDMA message has its own.
    uint16_t next_reference(const submission_t& submission);

    /// The one with these octets, which a second call does not find any more.
    std::optional<open_submission_t> take(const tpdu::octets_t& octets);
    void put(open_submission_t submission);
    /// A late result with this reference: of the submission that had it, else of the latest. Modems may count for
    /// themselves. False when none is open.
    bool mark_sent(uint16_t reference);

  private:
    std::deque<open_submission_t> all_;
    uint8_t last_reference_;
};

/// What goes on the air. None when the octets are none of a message.
std::optional<tpdu::octets_t> with_reference(const submission_t& submission, uint16_t reference,
                                             bool reject_duplicates);

}  // namespace radio
