/// The cards that were handed in to be sent, on the disk until they are, and what has happened: outbox.sqlite in the
/// phone's home. It knows the order in which they go, which numbers are held back, and what is too old; the feeder
/// gives them to the driver and tells what becomes of them.
///
/// A number of which nothing is known since the start gets one card at a time; so does one that was refused, after a
/// pause that grows. Its other cards are held until a datagram to it is confirmed, and nobody else's are.
///
/// Thread-safe. What fails on the disk is told once, on the standard error stream, and leaves all as it was.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "service/event_log.h"
#include "service/leases.h"
#include "service/outbox_file.h"

/// Why a request is refused: one of the errors of device/service_requests.h; 0 when it is not.
struct problem_t {
    uint32_t error = 0;
    std::string text{};
};

class outbox_t {
  public:
    struct counts_t {
        int64_t waiting = 0;
        int64_t sending = 0;  // those that are being cancelled among them
        int64_t set_aside = 0;
        int64_t leased = 0;     // of those that wait or are being sent: they do not outlive the service
        int64_t datagrams = 0;  // that are not sent, of those that wait or are being sent

        /// They take room.
        [[nodiscard]] int64_t unsent() const { return waiting + sending + set_aside; }
    };
    struct ahead_t {
        int64_t messages = 0;
        int64_t datagrams = 0;
    };
    /// Its number was refused.
    struct hold_t {
        int64_t until = 0;
        std::string reason;
    };
    /// A message as a client sees it now.
    struct view_t {
        outbox_message_t message;
        uint64_t version = 0;
        std::optional<uint32_t> driver_message;
        std::optional<hold_t> hold;    // of one that waits for its number
        std::optional<ahead_t> ahead;  // of any other that waits
    };

    /// `told` gets each event's line that is meant for who runs the service.
    using told_t = std::function<void(base::priority_t, const std::string&)>;
    explicit outbox_t(told_t told);

    /// Once, before all else. What was with the driver when the last service ended waits again. Returns an empty text,
    /// or what failed and why.
    [[nodiscard]] std::string open(const std::filesystem::path& home);

    // For clients. None, with the problem set, when it cannot be done.
    /// `lease` is how many seconds it holds, 0 for none. What is known by its token is not added again: it is the
    /// answer, and its lease, if it has one, is renewed. Under a lease one that was cancelled does not count.
    std::optional<view_t> add(outbox_message_t message, uint32_t lease, problem_t* problem);
    /// The leases of these hold so many seconds from now on: those that have none any more.
    std::vector<int64_t> renew(uint32_t seconds, const std::vector<int64_t>& ids);
    std::optional<view_t> cancel(int64_t id, problem_t* problem);
    std::optional<view_t> retry(int64_t id, int64_t expires, problem_t* problem);
    /// Waits until its version is another, so many milliseconds, or for the end.
    std::optional<view_t> watch(int64_t id, uint64_t version, uint32_t milliseconds, problem_t* problem);
    /// With greater ids than `after`, at most `most`; those that are over and set aside among them, all others when
    /// `all`.
    std::vector<view_t> list(int64_t after, bool all, size_t most);
    /// See event_log_t. Waits while there is none.
    nlohmann::ordered_json events(int64_t after, int64_t since, uint32_t milliseconds, size_t room);
    counts_t counts();
    /// Nobody waits any more.
    void end_waits();

    /// Something else that happened: it is kept, and told.
    void note(const event_t& event);
    /// The same, of the card that was received under this number. With no event only the number is kept.
    void note_card(uint64_t number, const std::optional<event_t>& event);
    /// The number of the last one that was told of; none before the first.
    std::optional<uint64_t> last_card();

    // For the feeder, on its thread.
    /// The next one that may go, with its octets, which is being sent from now on.
    std::optional<outbox_message_t> take_next();
    /// How far it is.
    void note_progress(int64_t id, int64_t sent, std::optional<uint32_t> driver_message);
    /// A datagram to this number was confirmed.
    void note_success(const std::string& number);
    // What has become of one that was being sent. False when that is not on the disk: to be told again.
    [[nodiscard]] bool finish_sent(int64_t id);
    [[nodiscard]] bool finish_cancelled(int64_t id, int64_t sent);
    /// It goes no more, for this reason; `refused`: its number is held back.
    [[nodiscard]] bool set_aside(int64_t id, int64_t sent, int64_t refusals, const reason_t& reason, bool refused);
    /// It waits again, and its number is held back.
    [[nodiscard]] bool refuse(int64_t id, int64_t refusals, const reason_t& reason);
    /// It waits again as though it had never been taken.
    [[nodiscard]] bool give_back(int64_t id);
    /// Sets aside what waits and is too old.
    void expire();
    /// Calls back what nobody renewed the lease of; not all at once, if it is much. Those that are with the driver, of
    /// which nothing more is to go.
    std::vector<int64_t> end_leases();
    /// When the next lease ends, on base::tick64. None, too, while those that have ended cannot be called back:
    /// `next_due` tells when to try again.
    std::optional<uint64_t> next_lease_end();
    /// Forgets what has long been over.
    void forget();
    /// When, later than now, `take_next` or `expire` may find something that they do not find now.
    std::optional<int64_t> next_due();

  private:
    struct progress_t {
        int64_t sent = 0;
        std::optional<uint32_t> driver_message;
    };
    using change_t = std::function<void(outbox_message_t&)>;

    [[nodiscard]] bool load();
    /// `ahead` of it, when that is known already.
    view_t view_of(outbox_message_t message, const std::optional<ahead_t>& ahead = std::nullopt);
    ahead_t ahead_of(const outbox_message_t& message);
    ahead_t ahead_of_last(const outbox_message_t& message);
    [[nodiscard]] counts_t totals();
    [[nodiscard]] int64_t sent_of_all() const;
    std::optional<view_t> find(int64_t id, problem_t* problem);
    bool finish(int64_t id, outbox_state_t state, const change_t& change, bool hold);
    bool cancel_what_was_given_up(int64_t now);
    std::optional<int64_t> id_of(const std::string& token);
    /// From now on, for so many seconds.
    void hold_lease(int64_t id, uint32_t seconds);
    bool call_back(outbox_message_t& message);
    void note_called_back(int64_t id);
    void note(const std::optional<event_t>& event, const std::function<bool()>& also);
    bool tell(const outbox_message_t& message, const char* kind, int64_t now);
    bool tell_end(const outbox_message_t& message, int64_t now);
    bool hold_back(const std::string& number, const std::string& reason, int64_t now);
    bool release(const std::string& number);
    std::optional<int64_t> next_id(int64_t now);
    bool is_held_back(const std::string& number);
    void changed(int64_t id);
    void publish();
    /// Of the file. `at_once`: it is on the disk when this returns.
    bool transaction(const std::function<bool()>& steps, bool at_once);

    const told_t told_;
    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    base::sqlite::file_t file_;
    event_log_t log_{file_};
    std::map<int64_t, uint64_t> versions_;    // of those that changed since the start and are not over
    std::map<int64_t, progress_t> progress_;  // of those that are being sent
    leases_t leases_;                         // of those that are neither over nor called back
    std::map<std::string, int64_t> alone_;    // numbers with a card that is tried for the others, and its id
    std::set<std::string> proven_;            // numbers that took a datagram since
    std::vector<std::pair<base::priority_t, std::string>> lines_;  // to be told when the lock is free
    int64_t again_ = 0;                                            // when to look again: something could not be written
    uint64_t last_version_ = 1;
    bool ending_ = false;
};
