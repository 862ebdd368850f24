/// The card datagrams that have come in, on disk from before the modem is told to forget them until the message that
/// each belongs to has been handed over; and the messages that they make. One SQLite file in the phone's home.
///
/// Which datagrams make a message, the assembly says. One that has gone with its message is known for as long again,
/// so that what a modem delivers twice is handed over once. A process that is killed between any two steps loses none
/// and stores none twice; a loss of power may have one stored twice.
///
/// What a full or unwritable disk keeps from being stored stays where it was; what the bounds drop is warned of. Ages
/// are counted in the time that the service ran: no step of the wall clock drops anything. Thread-safe: the modem's
/// thread fills it, that of the callbacks notes what has been handed over.
#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/sqlite_file.h"
#include "radio/journal_file.h"
#include "radio/warning.h"

namespace radio {

class journal_t {
  public:
    struct bounds_t {
        int64_t age = 0;  // seconds from the first datagram of a message that stays incomplete
        size_t datagrams = 0;
        assembly::rules_t rules{};
    };
    /// A message that is whole, for the driver.
    struct message_t {
        struct datagram_t {
            int64_t id;
            technology_t technology;
            air::octets_t octets;
        };
        int64_t number;      // rises in the order of completion
        std::string sender;  // as a person reads it
        bool refused;        // one datagram, which the driver refuses
        std::vector<datagram_t> datagrams;
    };
    /// A message of another kind that a modem delivered directly and did not take back.
    struct text_t {
        int64_t id;
        size_t length;  // octets of the TPDU
        std::string pdu;
    };
    struct counts_t {
        size_t incomplete = 0;  // datagrams
        size_t whole = 0;       // messages that have not been handed over
        size_t given_up = 0;    // datagrams of incomplete messages, since it was opened
    };

    journal_t() = default;
    ~journal_t();
    journal_t(const journal_t&) = delete;
    journal_t& operator=(const journal_t&) = delete;

    /// Opens the file, or makes it; once, and before all else. Returns an empty text, or what failed, why and what to
    /// do.
    [[nodiscard]] std::string open(const std::filesystem::path& file, const bounds_t& bounds);

    /// True when every one of them is here, or has been, and will be after a loss of power. False: none was taken.
    [[nodiscard]] bool take(std::span<const arrival_t> arrivals);

    /// The next message after that number (0: the first); none when there is none, or it cannot be read.
    std::optional<message_t> next(int64_t after);
    /// The driver has written its file, which is about to appear under this path. Whether it did, the path tells a
    /// process that comes after a kill.
    void about_to_be_stored(int64_t number, const std::filesystem::path& path);
    /// It has been handed over, and leaves.
    void finish(int64_t number);

    /// Does what its time has come for: messages that waited for better datagrams become whole, what could not be
    /// noted is noted, what expires goes on.
    void look_again();
    /// When, on tick64.
    uint64_t next_look();
    /// Drops the messages that have been incomplete for too long, and forgets what has gone for as long: a hundred of
    /// them, and as many more with each look that follows, so that nobody waits long for the others.
    void expire();

    [[nodiscard]] bool keep_text(size_t length, std::string_view pdu);
    std::optional<text_t> first_text();
    [[nodiscard]] bool forget_text(int64_t id);

    counts_t counts();

  private:
    struct whole_t {
        std::vector<int64_t> ids;
        std::string sender;
        bool refused;
    };
    [[nodiscard]] bool load();
    bool take_one(const arrival_t& arrival, std::vector<journal_file::row_t>& taken);
    std::optional<bool> is_known(const arrival_t& arrival);
    void tell_copy(const arrival_t& arrival, const std::string& sender);
    void file_away(const journal_file::row_t& row, std::string body);
    void assemble(const std::string& message, journal_file::group_t& group);
    void become_whole(whole_t whole);
    int read(const whole_t& whole, message_t& message);
    bool note(const whole_t& whole);
    [[nodiscard]] bool note_what_was_stored();
    using dropped_t = std::vector<std::pair<std::string, assembly::incomplete_t>>;  // with the keys of their groups
    using forgotten_t = std::map<std::string, std::set<int64_t>>;                   // ids, by the key of their group
    /// What has gone and is looked at next, from the first to go.
    struct forgetting_t {
        int64_t finished = -1;  // of the last one
        int64_t id = 0;
        size_t too_many = 0;  // that are to be forgotten, however young
    };

    void watch(const std::string& message, journal_file::group_t& group);
    void keep_bounds();
    bool drop_of_the_greediest(size_t most);
    bool drop(const dropped_t& all, std::string_view reason);
    void leave(journal_file::group_t& group, const assembly::incomplete_t& incomplete, std::string_view reason);
    void expire_some();
    bool drop_old(int64_t until, bool& more);
    bool forget_gone(int64_t until, bool& more);
    void add_left_over(forgotten_t& forgotten, int64_t latest);
    bool forget(const forgotten_t& forgotten);
    [[nodiscard]] int64_t ran() const;

    std::mutex mutex_;  // guards all below
    base::sqlite::file_t database_{{"the journal", "messages stay on the modem"}, [](const auto& text) { warn(text); }};
    bounds_t bounds_;
    int64_t next_id_ = 1;
    size_t incomplete_ = 0;  // datagrams in the file that wait for others
    size_t in_whole_ = 0;    // datagrams of whole messages that have not gone
    size_t gone_ = 0;        // datagrams that have, and are still known
    journal_file::groups_t groups_;
    std::multimap<int64_t, std::string> ages_;  // the watched groups: by when the first that waits came, or earlier
    std::optional<forgetting_t> expiry_;        // while more is to expire
    std::map<std::string, int64_t> doubtful_;   // messages that wait for better datagrams: until when
    std::map<int64_t, whole_t> whole_;          // by number
    int64_t next_number_ = 1;
    std::vector<whole_t> not_noted_;                               // handed over, which could not be written
    uint64_t next_noting_ = std::numeric_limits<uint64_t>::max();  // on tick64
    int64_t ran_before_ = 0;                                       // seconds, when it was opened
    uint64_t opened_at_ = 0;                                       // on tick64
    size_t given_up_ = 0;                                          // see counts_t
    std::set<air::octets_t> told_copies_;                          // by identity
};

}  // namespace radio
