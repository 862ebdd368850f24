/// Incoming messages: the memories of the modem that hold some (3GPP TS 27.005 3.2.2), their listing, and what is
/// delivered directly. Card datagrams go into the journal, are deleted from the modem, and are handed over from there;
/// all others stay on the modem. Used on the modem's thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "radio/announcements.h"
#include "radio/at_values.h"
#include "radio/attach_modem.h"
#include "radio/handover.h"
#include "radio/journal.h"
#include "radio/limits.h"
#include "radio/modem_state.h"
#include "radio/registration_watch.h"
#include "radio/setup_inquiry.h"

namespace radio {

/// The message memories, as the modem tells of them.
struct memories_t {
    std::string offered;               // the reply line
    std::vector<memory_use_t> in_use;  // for reading, for writing, for what is received
    std::string receiving;             // where new messages go; empty when there is none
    std::vector<std::string> to_read;  // those that may hold messages; empty when there is no choice
};
/// None when the inquiry is over.
std::optional<memories_t> ask_memories(inquiry_t& inquiry);

enum class fullness_t : uint8_t { some_room, nearly_full, full };
/// Nearly full from four fifths on.
fullness_t fullness_of(const memory_level_t& level);

class mailbox_t {
  public:
    /// All outlive the object.
    mailbox_t(modem_link_t& link, callbacks_t& callbacks, job_queue_t& jobs, announcements_t& announcements,
              const registration_watch_t& registration, modem_board_t& board);

    /// Opens the journal; once, and before all else. Returns an empty text, or what failed and why.
    [[nodiscard]] std::string open();
    /// What was known of a modem that is set up anew; not what is still to be deleted from it.
    void forget();
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry);

    /// Who gets the cards from now on; null for nobody.
    void set_receiver(session_pointer_t session) { handover_.begin(std::move(session)); }
    /// See handover_t.
    void observe(observer_t* observer) { handover_.observe(observer); }
    /// From any thread.
    [[nodiscard]] card_counts_t card_counts();

    /// Goes on with what has come and waits: for other datagrams, or to be stored. Needs no modem.
    void go_on();
    /// When, on tick64, that is due.
    [[nodiscard]] uint64_t next_step();

    /// All memories, whatever has been announced of them.
    void list_all();
    /// The same, when there is nothing else to do.
    void list_soon() { look_again_in(limit_t::journal_again); }
    /// The same at once, unless that has just been done: of a modem whose announcements name no place.
    void list_now();
    /// When, on tick64, they are to be listed again.
    [[nodiscard]] uint64_t next_listing() const { return next_listing_; }
    /// +CMTI: it is read when its turn among the jobs comes.
    void announce(const std::string& line);
    /// Those that have not been read yet.
    [[nodiscard]] size_t announced() const { return announced_.size(); }
    /// +CMT with its PDU.
    void take_delivery(const modem_line_t& line);
    /// Of something that was delivered directly: it is safe; or the network is to keep it.
    void acknowledge(bool safe);

  private:
    struct datagrams_t {
        std::vector<location_t> locations;
        std::vector<arrival_t> arrivals;  // at the same positions
    };
    void list(const std::string& memory);
    void read_announced();
    void read_new(const std::string& line, datagrams_t& datagrams);
    void read(const location_t& location, datagrams_t& datagrams);
    bool select(const std::string& memory);
    void consider(const location_t& location, const stored_message_t& message, const std::string& pdu,
                  datagrams_t& datagrams);
    [[nodiscard]] std::optional<arrival_t> arrival_of(const std::string& pdu, size_t length);
    void tell_unreadable(const std::string& pdu);
    void take(const datagrams_t& datagrams);
    bool keep(std::span<const arrival_t> arrivals);
    void remove(const location_t& location);
    void note(const memories_t& memories) const;
    void count_in(const std::string& memory, int more) const;
    void look_again_in(limit_t limit);
    void deliver_first();
    void tell_level(const std::string& memory, const memory_level_t& level);
    void give_texts_back();
    bool put_on_modem(size_t length, const std::string& pdu);
    void warn_unless_lost(const std::string& text) const;

    modem_link_t& link_;
    job_queue_t& jobs_;
    announcements_t& announcements_;
    const registration_watch_t& registration_;
    modem_board_t& board_;
    journal_t journal_;
    handover_t handover_;
    std::deque<std::string> announced_;  // to be read, by a job that has been posted
    std::vector<std::string> memories_;  // that may hold messages; empty when there is no choice
    std::string selected_;
    std::set<location_t> undeleted_;  // which the modem refused to delete
    std::set<std::string> told_;      // PDUs that could not be read
    bool texts_refused_ = false;      // since the last listing
    bool refused_text_told_ = false;
    std::map<std::string, fullness_t> told_levels_;
    uint64_t listed_at_ = 0;  // these on tick64
    uint64_t next_listing_ = 0;
};

}  // namespace radio
