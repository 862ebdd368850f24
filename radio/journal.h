/// The card datagrams that have come in, on disk from before the modem is told to forget them until the message that
/// each belongs to has been handed to the driver whole. One SQLite file in the phone's home, for people to open too.
///
/// A datagram is known by its identity as long as it is here, and for as long again after its message has left, so that
/// what a modem delivers twice is handed over once. A process that is killed between any two steps loses none.
///
/// What a full or unwritable disk keeps from being stored stays where it was; what the bounds drop is warned of. Times
/// are seconds since 1970. Thread-safe: the modem's thread fills it, that of the callbacks takes out what has been
/// handed over, so that no step of the modem's comes between the driver's return and that.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/sqlite.h"
#include "radio/ril_message.h"

namespace radio {

/// A datagram as the modem gave it, and what can be told of it.
struct arrival_t {
    technology_t technology;
    air::octets_t octets;
    card_datagram_t card;
};

/// Where the journal of a phone lies.
std::filesystem::path journal_file(const std::filesystem::path& home);

class journal_t {
  public:
    struct bounds_t {
        int64_t age = 0;  // seconds from the first datagram of a message that stays incomplete
        size_t datagrams = 0;
    };
    struct entry_t {
        int64_t id;  // rises in the order of arrival
        /// For the driver, with a reference of ours where need be: it tells messages apart by sender, reference and
        /// parts alone, and would mix two that the header tells apart, or one with the rest of another that was
        /// dropped.
        RILMESSAGE message;
    };
    /// A message of another kind that a modem delivered directly and did not take back.
    struct text_t {
        int64_t id;
        size_t length;  // octets of the TPDU
        std::string pdu;
    };

    /// Opens the file, or makes it; once, and before all else. Returns an empty text, or what failed and why.
    [[nodiscard]] std::string open(const std::filesystem::path& file, const bounds_t& bounds);

    /// True when every one of them is here, or has been, and will be after a loss of power. False: none was taken.
    [[nodiscard]] bool take(std::span<const arrival_t> arrivals, int64_t now);

    /// A driver has begun that knows of no datagram yet.
    void begin_session();
    /// The next to be handed over after `id` (0: the first), at most so many.
    std::vector<entry_t> next(int64_t after, size_t most);
    /// The driver has it, and all that `next` gave before it. When its message is whole with it, the message leaves.
    void handed_over(int64_t id, int64_t now);
    /// Drops the messages that have been incomplete for too long.
    void expire(int64_t now);

    [[nodiscard]] bool keep_text(size_t length, std::string_view pdu, int64_t now);
    std::vector<text_t> texts();
    void forget_text(int64_t id);

  private:
    struct place_t;
    [[nodiscard]] bool prepare();
    bool take_one(const arrival_t& arrival, int64_t now);
    void keep_decoded(int64_t id, const card_datagram_t& card);
    std::optional<card_datagram_t> decoded(int64_t id, technology_t technology, air::octets_view_t octets);
    std::optional<place_t> place_of(const arrival_t& arrival);
    bool find_generation(const arrival_t& arrival, place_t& place);
    bool find_alias(place_t& place);
    bool driver_knows(const place_t& place);
    void tell_copy(const arrival_t& arrival, const std::string& sender);
    bool leave_after(int64_t id, int64_t now);
    bool drop_oldest();
    bool drop(const std::string& message, int64_t generation, std::string_view reason);
    /// One statement that gives no rows; false, and told, when it fails.
    template <typename... values_t>
    bool run(std::string_view text, const values_t&... values);
    template <typename steps_t>
    bool transaction(const steps_t& steps);
    bool fail();
    const base::sqlite::statement_t& statement(std::string_view text);

    std::mutex mutex_;  // guards all below
    base::sqlite::connection_t connection_;
    std::map<std::string, base::sqlite::statement_t, std::less<>> statements_;  // by their texts
    std::filesystem::path file_;
    bounds_t bounds_;
    int64_t next_id_ = 1;
    size_t datagrams_ = 0;                        // in the file
    std::set<std::string> dropped_;               // since the session began: what the driver still has parts of
    std::vector<int64_t> not_left_;               // handed over, which could not be written
    std::map<int64_t, card_datagram_t> decoded_;  // what came just now, until it is handed over: by id
    std::set<air::octets_t> told_copies_;         // by identity
    bool failure_told_ = false;
};

}  // namespace radio
