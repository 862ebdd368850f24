/// Senders of cards with few references, a network that loses, doubles, delays and reorders their datagrams, and a
/// service that is killed between any two steps: what must hold of the journal, whatever happens. All choices come from
/// outside, a random number or a fuzzer's octet.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <numeric>
#include <queue>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/hex.h"
#include "radio/journal.h"

/// How the senders and the network are.
struct manners_t {
    unsigned senders;
    unsigned references;   // that each of them uses in turn
    int64_t reused_after;  // seconds from the last datagram under a reference to the first of the next message
    unsigned longest_gap;  // seconds between two datagrams of a message, now and then
    unsigned lost_of_100;  // for good
    bool in_a_burst;       // all datagrams of a message within a second
};

class card_world_t {
  public:
    using choice_t = std::function<unsigned(unsigned most)>;  // 0 … most

    struct result_t {
        size_t cards = 0;
        size_t whole = 0;  // all of whose datagrams came
        size_t stored = 0;
        size_t missed = 0;  // whole, and stored less often than that
        size_t surplus = 0;
        size_t mixed = 0;  // stored, and nobody's card
        size_t kills = 0;
    };

    card_world_t(std::filesystem::path folder, const manners_t& manners, choice_t choice)
        : file_(radio::journal_file::path(folder)),
          manners_(manners),
          choose_(std::move(choice)),
          began_at_(base::tick64()),
          senders_(manners.senders) {
        open();
        for (sender_t& sender : senders_) {
            sender.next = choose_(1000);
            sender.free_at.resize(manners.references);
        }
    }

    /// Sends so many cards, and lets all that comes of it arrive.
    void send(size_t cards) {
        for (; cards > 0; --cards) {
            const auto first = std::ranges::min_element(senders_, {}, &sender_t::next);
            deliver_until(first->next);
            send_one(*first, static_cast<size_t>(first - senders_.begin()));
        }
        deliver_until(std::numeric_limits<int64_t>::max());
        pass_to(now_ + 1000);
        for (sender_t& sender : senders_) {
            sender.next = std::max(sender.next, now_);
        }
    }

    result_t result() const {
        result_t sum{.kills = kills_};
        for (const auto& [content, card] : cards_) {
            sum.cards += card.sent;
            sum.whole += card.whole;
            sum.stored += card.stored;
            sum.missed += card.stored < card.whole ? card.whole - card.stored : 0;
            sum.surplus += card.sent != 0 && card.stored > card.sent ? card.stored - card.sent : 0;
            sum.mixed += card.sent == 0 ? card.stored : 0;
        }
        return sum;
    }

  private:
    using bodies_t = std::vector<std::string>;
    struct sender_t {
        int64_t next = 0;
        unsigned reference = 0;
        std::vector<int64_t> free_at;  // of each reference
        bodies_t last;
    };
    struct card_t {
        size_t sent = 0, whole = 0, stored = 0;
    };
    struct sent_t {
        std::string content;
        std::vector<bool> came;
    };
    struct datagram_t {
        int64_t arrives;
        size_t sender;
        unsigned reference;
        size_t part;
        int64_t stamp;
        std::string body;
        std::shared_ptr<sent_t> message;
        bool operator>(const datagram_t& other) const { return arrives > other.arrives; }
    };

    bool one_in(unsigned times) { return choose_(times - 1) == 0; }

    void open() {
        journal_.emplace();
        const radio::journal_t::bounds_t bounds{
            .age = 200'000, .datagrams = 4'000, .rules = {.close = 30, .wait = 120, .apart = 86'400}};
        if (!journal_->open(file_, bounds).empty()) {
            std::abort();
        }
    }
    bool may_be_killed() {
        const bool killed = one_in(100);
        if (killed) {
            kills_ += 1;
            open();
            last_number_ = 0;
        }
        return killed;
    }

    /// New, the same again, or the last one corrected: its first datagram stays.
    bodies_t next_card(bodies_t& last) {
        const unsigned kind = last.empty() ? 0 : choose_(3);
        bodies_t card = last;
        if (kind < 2) {
            card.assign(1 + choose_(4), {});
        }
        for (size_t part = kind < 2 ? 0 : kind == 2 ? card.size() : 1; part < card.size(); ++part) {
            card[part] = std::to_string(++bodies_) + ',';
        }
        return last = card;
    }

    void send_one(sender_t& sender, size_t index) {
        const bodies_t card = next_card(sender.last);
        const auto message = std::make_shared<sent_t>();
        message->content = std::to_string(index) + ':' + std::accumulate(card.begin(), card.end(), std::string());
        message->came.resize(card.size());
        cards_[message->content].sent += 1;
        int64_t stamp = sender.next;
        int64_t latest = stamp;
        // One datagram at least is submitted once: a card of which each one is submitted again is a card sent again.
        const size_t once = choose_(static_cast<unsigned>(card.size() - 1));
        for (size_t part = 0; part < card.size(); ++part) {
            const datagram_t datagram{0, index, sender.reference, part, stamp, card[part], message};
            submit(datagram);
            if (part != once && one_in(8)) {
                const bool late = one_in(3);
                const int64_t again = stamp + 1 + choose_(late ? 300 : 20);
                submit({0, index, sender.reference, part, again, card[part], message});
                latest = std::max(latest, again);
                stamp = late ? stamp : again;
            }
            latest = std::max(latest, stamp);
            stamp += manners_.in_a_burst ? 0 : one_in(20) ? 1 + choose_(manners_.longest_gap) : 1 + choose_(9);
        }
        sender.free_at[sender.reference] = latest + manners_.reused_after;
        sender.reference = one_in(10) ? 0 : (sender.reference + 1) % manners_.references;
        sender.next = std::max(latest + 1 + choose_(20), sender.free_at[sender.reference]);
    }
    void submit(datagram_t datagram) {
        if (choose_(99) < manners_.lost_of_100) {
            return;
        }
        datagram.arrives = datagram.stamp + choose_(one_in(10) ? 100 : 4);
        network_.push(datagram);
        if (one_in(20)) {
            datagram.arrives += choose_(200);
            network_.push(datagram);
        }
    }

    void deliver_until(int64_t time) {
        while (!network_.empty() && network_.top().arrives <= time) {
            const datagram_t datagram = network_.top();
            network_.pop();
            pass_to(datagram.arrives);
            const radio::arrival_t arrival = arrival_of(datagram);
            if (!journal_->take({&arrival, 1})) {
                std::abort();
            }
            note_arrival(datagram);
            may_be_killed();
            hand_over();
            if (one_in(50)) {
                journal_->expire();
            }
        }
    }
    void note_arrival(const datagram_t& datagram) {
        std::vector<bool>& came = datagram.message->came;
        const bool news = !came[datagram.part];
        came[datagram.part] = true;
        if (news && std::ranges::find(came, false) == came.end()) {
            cards_[datagram.message->content].whole += 1;
        }
    }
    /// As the driver does: what it gets is in the inbox.
    void hand_over() {
        while (const auto message = journal_->next(last_number_)) {
            std::string content;
            for (const auto& [id, technology, octets] : message->datagrams) {
                const radio::card_datagram_t card = radio::card_datagram_of(technology, octets).value();
                content +=
                    content.empty() ? std::to_string(std::stoul(card.sender.substr(2)) - first_number) + ':' : "";
                content.append(card.body.begin(), card.body.end());
            }
            last_number_ = message->number;
            store(message->number, content);
        }
    }
    /// Killed before the file appears, behind that, or when all is noted.
    void store(int64_t number, const std::string& content) {
        const std::filesystem::path path = file_.parent_path() / std::to_string(++files_);
        journal_->about_to_be_stored(number, path);
        if (may_be_killed()) {
            return;
        }
        std::ofstream(path).close();
        cards_[content].stored += 1;
        if (!may_be_killed()) {
            journal_->finish(number);
            may_be_killed();
        }
        std::filesystem::remove(path);
    }

    void pass_to(int64_t time) {
        const auto tick_of = [this](int64_t seconds) { return began_at_ + static_cast<uint64_t>(seconds) * 1000; };
        while (journal_->next_look() <= tick_of(time)) {
            move_clock_to(journal_->next_look());
            journal_->look_again();
            hand_over();
        }
        now_ = time;
        move_clock_to(tick_of(time));
    }
    static void move_clock_to(uint64_t tick) {
        const uint64_t now = base::tick64();
        base::advance_clock(tick > now ? tick - now : 0);
    }

    static radio::arrival_t arrival_of(const datagram_t& datagram) {
        air::deliver_t deliver;
        deliver.originator = {air::number_type_t::international, 1, std::to_string(first_number + datagram.sender)};
        deliver.data_coding = air::data_coding_8bit;
        deliver.header_indicator = true;
        deliver.service_centre_time = stamp_of(datagram.stamp);
        const size_t parts = datagram.message->came.size();
        deliver.user_data = *base::from_hex(parts > 1 ? "0B050423F423F40003000000" : "06050423F423F4");
        if (parts > 1) {
            deliver.user_data[9] = static_cast<uint8_t>(datagram.reference);
            deliver.user_data[10] = static_cast<uint8_t>(parts);
            deliver.user_data[11] = static_cast<uint8_t>(datagram.part + 1);
        }
        deliver.user_data.insert(deliver.user_data.end(), datagram.body.begin(), datagram.body.end());
        deliver.user_data_length = static_cast<uint8_t>(deliver.user_data.size());
        air::octets_t octets = air::encode(deliver).value();
        radio::card_datagram_t card = radio::card_datagram_of(radio::technology_t::gsm, octets).value();
        return {radio::technology_t::gsm, std::move(octets), std::move(card)};
    }
    static air::timestamp_t stamp_of(int64_t seconds) {
        using namespace std::chrono;
        const sys_seconds time = sys_days(year(2000) / 1 / 1) + std::chrono::seconds(seconds);
        const sys_days day = floor<days>(time);
        const year_month_day date(day);
        const hh_mm_ss clock(time - day);
        return {.year = static_cast<uint8_t>(static_cast<int>(date.year()) - 2000),
                .month = static_cast<uint8_t>(static_cast<unsigned>(date.month())),
                .day = static_cast<uint8_t>(static_cast<unsigned>(date.day())),
                .hour = static_cast<uint8_t>(clock.hours().count()),
                .minute = static_cast<uint8_t>(clock.minutes().count()),
                .second = static_cast<uint8_t>(clock.seconds().count())};
    }

    static constexpr size_t first_number = 10'000'000;

    const std::filesystem::path file_;
    const manners_t manners_;
    const choice_t choose_;
    const uint64_t began_at_;  // tick64 at second 0
    int64_t now_ = 0;
    std::optional<radio::journal_t> journal_;
    int64_t last_number_ = 0;
    size_t kills_ = 0;
    size_t bodies_ = 0;
    size_t files_ = 0;
    std::vector<sender_t> senders_;
    std::map<std::string, card_t> cards_;  // by sender and content
    std::priority_queue<datagram_t, std::vector<datagram_t>, std::greater<>> network_;
};
