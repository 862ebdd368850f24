// Whatever happens to the outbox, in whatever order: no card is lost or in two states, none that is over goes again,
// and no number waits for another. Against a plain model.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "base/clock.h"
#include "tests/service/outbox_fixture.h"

namespace {

using base::unix_time;
using enum outbox_state_t;

#ifdef ZPD_SANITIZED
constexpr int steps = 400;
#else
constexpr int steps = 2000;
#endif

struct card_t {
    outbox_state_t state = waiting;
    std::string number;
    int64_t expires = 0;
    int64_t refusals = 0;
    uint64_t leased_until = 0;  // 0 for no lease
    bool asked_for = false;     // tried again in spite of its number's pause
    int times_told_over = 0;
};

struct number_t {
    bool proven = false;
    int64_t alone = 0;  // the card that is tried for all
};

class world_t {
  public:
    explicit world_t(unsigned seed) : random_(seed) {}

    void step() {
        const unsigned choice = upto(99);
        if (choice < 25) {
            add();
        } else if (choice < 50) {
            take();
        } else if (choice < 75) {
            end_one();
        } else if (choice < 80) {
            call_back();
        } else if (choice < 83) {
            ask_for();
        } else if (choice < 85) {
            renew();
        } else if (choice < 90) {
            confirm();
        } else if (choice < 95) {
            base::advance_clock(uint64_t{upto(200)} * 1000);
            expire();
            end_leases();
        } else if (choice < 98) {
            restart();
        } else if (upto(9) == 0) {
            fail();
        }
    }

    /// What the file says is what must be.
    void compare() {
        const auto views = box_->list(0, true, 100'000);
        ASSERT_EQ(views.size(), cards_.size());
        for (const auto& view : views) {
            const card_t& card = cards_[view.message.id];
            ASSERT_EQ(words_of(view.message.state), words_of(card.state)) << "message " << view.message.id;
            ASSERT_EQ(view.message.refusals, card.refusals);
        }
        const auto count = [&](outbox_state_t state) {
            return std::ranges::count(cards_, state, [](const auto& card) { return card.second.state; });
        };
        const outbox_t::counts_t counts = box_->counts();
        ASSERT_EQ(counts.waiting, count(waiting));
        ASSERT_EQ(counts.sending, count(sending) + count(cancelling));
        ASSERT_EQ(counts.set_aside, count(set_aside));
        ASSERT_EQ(box_->list(0, false, 100'000).size(), counts.unsent());
        std::map<std::string, int> told;
        for (const std::string& event : box_.events()) {
            told[event.substr(event.rfind(' ') + 1)] += event.starts_with("queued") ? 0 : 1;
        }
        for (const auto& [id, card] : cards_) {
            ASSERT_EQ(told[std::to_string(id)], card.times_told_over) << "of message " << id;
        }
    }

  private:
    unsigned upto(unsigned most) { return std::uniform_int_distribution<unsigned>(0, most)(random_); }
    static std::string octets_of(int64_t id) { return "card " + std::to_string(id); }

    /// One in this state; 0 for none.
    int64_t any(std::initializer_list<outbox_state_t> states) {
        std::vector<int64_t> ids;
        for (const auto& [id, card] : cards_) {
            if (std::ranges::count(states, card.state) != 0) {
                ids.push_back(id);
            }
        }
        return ids.empty() ? 0 : ids[upto(static_cast<unsigned>(ids.size()) - 1)];
    }

    void add() {
        const std::string number = "+4912" + std::to_string(upto(4));
        const int64_t expires = upto(5) == 0 ? unix_time() + upto(300) : 0;
        const uint32_t lease = upto(4) == 0 ? 100 + upto(900) : 0;
        const int64_t id = box_.add(number, octets_of(static_cast<int64_t>(cards_.size()) + 1), expires, {}, lease);
        ASSERT_EQ(id, static_cast<int64_t>(cards_.size()) + 1);
        cards_[id] = {.number = number, .expires = expires, .leased_until = end_of(lease)};
    }

    static uint64_t end_of(uint32_t lease) { return lease == 0 ? 0 : base::tick64() + lease * uint64_t{1000}; }

    void renew() {
        std::vector<int64_t> ids;
        std::vector<int64_t> gone;
        for (auto& [id, card] : cards_) {
            const bool goes = card.leased_until != 0 && (card.state == waiting || card.state == sending);
            ids.push_back(id);
            if (goes) {
                card.leased_until = end_of(300);
            } else {
                gone.push_back(id);
            }
        }
        ASSERT_EQ(box_->renew(300, ids), gone);
    }

    void end_leases() {
        std::vector<int64_t> with_driver;
        std::vector<int64_t> found = box_->end_leases();
        for (auto& [id, card] : cards_) {
            const bool ended = card.leased_until != 0 && card.leased_until <= base::tick64();
            if (ended && card.state == waiting) {
                end(id, cancelled, false);
            } else if (ended && card.state == sending) {
                card.state = cancelling;
                with_driver.push_back(id);
            }
        }
        std::ranges::sort(found);
        ASSERT_EQ(found, with_driver);
    }

    /// Until when each is held back.
    std::map<std::string, int64_t> pauses() {
        const auto statement = base::sqlite::prepare(box_.other(), "SELECT number, until FROM numbers");
        base::sqlite::execution_t query(statement);
        std::map<std::string, int64_t> found;
        while (query.step() == SQLITE_ROW) {
            found[query.text(0)] = query.number(1);
            EXPECT_TRUE(!numbers_[query.text(0)].proven) << "held back, though it takes cards";
        }
        return found;
    }

    bool is_free(const card_t& card, const std::map<std::string, int64_t>& pauses) {
        const auto pause = pauses.find(card.number);
        return card.state == waiting && numbers_[card.number].alone == 0 &&
               (card.asked_for || pause == pauses.end() || pause->second <= unix_time());
    }

    void take() {
        const auto held = pauses();
        const auto message = box_->take_next();
        int64_t first = 0;
        int64_t first_of_number = 0;
        for (const auto& [id, card] : cards_) {
            const bool free = is_free(card, held);
            first = free && first == 0 ? id : first;
            const bool is_same = message && card.number == message->number;
            first_of_number = free && is_same && first_of_number == 0 ? id : first_of_number;
        }
        ASSERT_EQ(message.has_value(), first != 0) << "message " << first << " must wait for nobody";
        if (!message) {
            return expect_look(held);
        }
        card_t& card = cards_[message->id];
        ASSERT_EQ(message->id, held.contains(card.number) ? first_of_number : first);
        ASSERT_EQ(message->octets, octets_of(message->id));
        card.state = sending;
        if (number_t& number = numbers_[card.number]; !number.proven) {
            number.alone = message->id;
            ask_for_none(card.number);
        }
    }

    /// Somebody looks again when the first pause is over.
    void expect_look(const std::map<std::string, int64_t>& held) {
        for (const auto& [number, until] : held) {
            if (until > unix_time()) {
                const auto due = box_->next_due();
                ASSERT_TRUE(due && *due <= until);
            }
        }
    }

    void ask_for_none(const std::string& number) {
        for (auto& [id, card] : cards_) {
            card.asked_for = card.asked_for && card.number != number;
        }
    }

    void end_one() {
        const int64_t id = any({sending, cancelling});
        if (id == 0) {
            return;
        }
        card_t& card = cards_[id];
        const bool called_back = card.state == cancelling;
        switch (upto(4)) {
            case 0:
                ASSERT_TRUE(box_->refuse(id, ++card.refusals, {"refused", ""}));
                card.refusals -= called_back ? 1 : 0;
                return end(id, called_back ? cancelled : waiting, true);
            case 1:
                ASSERT_TRUE(box_->set_aside(id, 0, ++card.refusals, {"refused", ""}, true));
                card.refusals -= called_back ? 1 : 0;
                return end(id, called_back ? cancelled : set_aside, true);
            case 2:
                ASSERT_TRUE(box_->give_back(id));
                return end(id, called_back ? cancelled : waiting, false);
            case 3:
                ASSERT_TRUE(box_->finish_cancelled(id, 0));
                return end(id, cancelled, false);
            default:
                box_->note_success(card.number);
                prove(card.number);
                ASSERT_TRUE(box_->finish_sent(id));
                return end(id, sent, false);
        }
    }

    void end(int64_t id, outbox_state_t state, bool held) {
        card_t& card = cards_[id];
        card.state = state;
        card.times_told_over += is_over(state) ? 1 : 0;
        number_t& number = numbers_[card.number];
        number.alone = number.alone == id ? 0 : number.alone;
        if (held) {
            number.proven = false;
            ask_for_none(card.number);
            const auto until = pauses()[card.number];
            ASSERT_TRUE(until >= unix_time() + 58 && until <= unix_time() + 3600);
        }
    }

    void prove(const std::string& number) { numbers_[number] = {.proven = true}; }

    void confirm() {
        if (const int64_t id = any({sending}); id != 0) {
            box_->note_progress(id, 1, 7);
            box_->note_success(cards_[id].number);
            prove(cards_[id].number);
        }
    }

    void call_back() {
        const int64_t id = any({waiting, sending, cancelling, sent, cancelled, set_aside});
        if (id == 0) {
            return;
        }
        ASSERT_TRUE(box_->cancel(id, &box_.problem));
        card_t& card = cards_[id];
        if (card.state == waiting || card.state == set_aside) {
            end(id, cancelled, false);
        } else if (card.state == sending) {
            card.state = cancelling;
        }
    }

    void ask_for() {
        const int64_t id = any({waiting, sending, sent, cancelled, set_aside});
        if (id == 0) {
            return;
        }
        card_t& card = cards_[id];
        const bool may = card.state == waiting || card.state == set_aside;
        ASSERT_EQ(box_->retry(id, 0, &box_.problem).has_value(), may);
        if (may) {
            card.leased_until = card.state == waiting ? card.leased_until : 0;
            card.state = waiting;
            card.expires = 0;
            card.refusals = 0;
            card.asked_for = numbers_[card.number].alone == 0;
        }
    }

    void expire() {
        box_->expire();
        for (auto& [id, card] : cards_) {
            if (card.state == waiting && card.expires != 0 && card.expires <= unix_time()) {
                card.refusals = 0;
                end(id, set_aside, false);
            }
        }
    }

    void restart() {
        box_.reopen();
        numbers_.clear();
        for (auto& [id, card] : cards_) {
            card.asked_for = false;
            const bool is_lost = card.leased_until != 0 && !is_over(card.state);
            if (card.state == cancelling || is_lost) {
                end(id, cancelled, false);
            }
            card.state = card.state == sending ? waiting : card.state;
        }
    }

    /// Nothing can be written: nothing happens.
    void fail() {
        box_.lock();
        testing::internal::CaptureStderr();
        ASSERT_FALSE(box_->take_next());
        if (const int64_t id = any({sending, cancelling}); id != 0) {
            ASSERT_FALSE(box_->finish_sent(id));
        }
        testing::internal::GetCapturedStderr();
        box_.unlock();
    }

    std::mt19937 random_;
    outbox_home_t box_;
    std::map<int64_t, card_t> cards_;
    std::map<std::string, number_t> numbers_;
};

class outbox_model : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(seed, outbox_model, testing::Range(0U, 6U));

TEST_P(outbox_model, no_card_is_lost_and_no_number_waits_for_another) {
    world_t world(GetParam());
    for (int step = 0; step < steps && !HasFatalFailure(); ++step) {
        SCOPED_TRACE(step);
        world.step();
        if (step % 100 == 99) {
            world.compare();
        }
    }
}

}  // namespace
