// Cards in the outbox of a running service: what becomes of them when numbers refuse, when they are given up, when the
// modem, its network or the service goes. Each case has a phone of its own; all start at once.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <thread>

#include "tests/system/outbox_client.h"
#include "tests/system/phones.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

/// No phone has it.
const std::string nobody = "+447700900999";

bool arrives(const phone_t& phone, const std::string& card) {
    return eventually([&] { return stored_cards(phone).contains(card); });
}

/// "cancelled message 3 to …" of the last event of this message.
std::string last_event_of(const outbox_client_t& box, uint64_t id) {
    std::string text;
    for (const auto& event : box.events()) {
        if (event.contains("message") && event["message"]["id"] == id) {
            text = event["text"];
        }
    }
    return text;
}

class sending_phones : public testing::Test {
  protected:
    static void start(const std::vector<std::string>& names) {
        world = new world_t(names);
        world->receiver.start({"--activate", "--set", "better-datagrams=2"});
        for (auto& [name, phone] : world->phones) {
            phone->start({"--set", "held-back=1", "--set", "held-back-most=2"});
        }
        EXPECT_TRUE(world->receiver.ready());
        for (auto& [name, phone] : world->phones) {
            EXPECT_TRUE(phone->ready()) << phone->serve().errors();
        }
    }
    static void TearDownTestSuite() {
        delete world;
        world = nullptr;
    }

    static void fault(const std::string& name, const std::string& order) {
        EXPECT_EQ(zpd({"fault", "--dir", world->folder / "modems", world->numbers[name], order}).status, 0) << order;
    }
    static phone_t& phone(const std::string& name) { return *world->phones.at(name); }
    static outbox_client_t outbox_of(const std::string& name) { return outbox_client_t(phone(name).device()); }
    static phone_t& receiver() { return world->receiver; }

  private:
    struct world_t {
        explicit world_t(const std::vector<std::string>& names) {
            std::string all = bob + "," + carol;
            for (const std::string& name : names) {
                numbers[name] = fmt::format("+49170000000{}", numbers.size());
                all += "," + numbers[name] + (name == "cdma" ? ":cdma" : "");
            }
            network = std::make_unique<network_t>(folder, all);
            for (const auto& [name, number] : numbers) {
                phones[name] = std::make_unique<phone_t>(folder, name, network->modem(number));
            }
        }
        folder_t folder;
        std::unique_ptr<network_t> network;
        phone_t receiver{folder, "bob", folder / ("modems/" + bob)};
        std::map<std::string, std::string> numbers;
        std::map<std::string, std::unique_ptr<phone_t>> phones;
    };
    static inline world_t* world = nullptr;
};

class outbox : public sending_phones {
  protected:
    static void SetUpTestSuite() { start({"gsm", "cdma", "large", "cancels"}); }
};

class outbox_modem : public sending_phones {
  protected:
    static void SetUpTestSuite() { start({"unregistered", "unplugged"}); }
};

TEST_F(outbox, a_number_that_refuses_for_ever_is_set_aside_beside_those_that_take) {
    const auto play = [&](const std::string& name) {
        SCOPED_TRACE(name);
        const outbox_client_t box = outbox_of(name);
        fault(name, "refuse-to=" + carol + ":1");
        const uint64_t refused = box.add(std::string(900, 'r'), carol);
        const uint64_t behind = box.add("behind", carol);
        const uint64_t good = box.add("good from " + name, bob);
        EXPECT_TRUE(box.becomes(refused, "set aside") && box.becomes(behind, "set aside"));
        EXPECT_TRUE(box.becomes(good, "sent") && arrives(receiver(), "good from " + name));
        const auto message = box.message(refused);
        EXPECT_EQ(message["reason"]["text"], "Unassigned (unallocated) number (+CMS ERROR: 1)");
        EXPECT_EQ(message["reason"]["advice"], "check the number");
        EXPECT_EQ(message["refusals"], 1);
        const std::string line = fmt::format("set aside message {} to {}: ", refused, carol);
        EXPECT_THAT(last_event_of(box, refused), HasSubstr(line));
        EXPECT_THAT(phone(name).serve().output(), HasSubstr(line));
        fault(name, "clear");
        box.retry(refused);
        box.cancel(behind);
        EXPECT_TRUE(box.becomes(refused, "sent", 20s)) << box.message(refused);
        EXPECT_EQ(box.message(behind)["state"], "cancelled");
    };
    std::thread other(play, "cdma");
    play("gsm");
    other.join();
}

TEST_F(outbox, a_large_card_that_is_refused_holds_up_a_small_one_for_seconds) {
    const outbox_client_t box = outbox_of("large");
    EXPECT_TRUE(box.becomes(box.add("first", bob), "sent"));
    fault("large", "late-results=20");
    fault("large", "refuse-to=" + nobody + ":22");
    const uint64_t large = box.add(std::string(167 * 128, 'l'), nobody);
    const uint64_t small = box.add("small", bob);
    EXPECT_EQ(box.message(large)["datagrams"]["total"], 167);
    EXPECT_TRUE(box.becomes(small, "sent", 15s));
    EXPECT_TRUE(eventually([&] { return box.message(large)["refusals"] > 1; }, 15s)) << "it is tried again";
    EXPECT_EQ(box.message(large)["reason"]["advice"], "the receiver's memory is full");
    box.cancel(large);
    EXPECT_TRUE(box.becomes(large, "cancelled", 15s));
}

TEST_F(outbox, a_card_that_is_given_up_in_the_middle_goes_no_further_and_can_go_anew) {
    const outbox_client_t box = outbox_of("cancels");
    fault("cancels", "late-results=100");
    const std::string card(100 * 128, 'c');
    const uint64_t id = box.add(card, bob);
    ASSERT_TRUE(eventually([&] { return box.message(id)["datagrams"]["sent"] > 3; }));
    const uint64_t next = box.add("next", bob);
    const std::string state = box.cancel(id)["state"];
    EXPECT_TRUE(state == "cancelling" || state == "cancelled") << state;
    EXPECT_TRUE(box.becomes(id, "cancelled", 8s));
    const int sent = box.message(id)["datagrams"]["sent"];
    EXPECT_GT(sent, 3);
    EXPECT_LT(sent, 60);
    EXPECT_THAT(last_event_of(box, id), HasSubstr(fmt::format("; {} of 100 datagrams had been sent", sent)));
    EXPECT_EQ(box.cancel(id)["state"], "cancelled");
    fault("cancels", "clear");
    const uint64_t again = box.add(card, bob);
    EXPECT_TRUE(box.becomes(next, "sent", 15s) && box.becomes(again, "sent", 30s)) << box.message(again);
    EXPECT_TRUE(arrives(receiver(), card) && arrives(receiver(), "next"));
}

TEST_F(outbox_modem, a_card_expires_without_a_network_and_is_sent_when_it_is_asked_for) {
    const outbox_client_t box = outbox_of("unregistered");
    fault("unregistered", "registration=denied");
    const uint64_t brief = box.add("brief", bob, static_cast<uint64_t>(std::time(nullptr)) + 2);
    const uint64_t patient = box.add("patient", bob);
    EXPECT_TRUE(box.becomes(brief, "set aside", 15s)) << box.message(brief);
    EXPECT_THAT(last_event_of(box, brief), HasSubstr("it expired before"));
    fault("unregistered", "registration=home");
    box.retry(brief);
    EXPECT_TRUE(box.becomes(patient, "sent") && box.becomes(brief, "sent"));
    EXPECT_TRUE(arrives(receiver(), "brief") && arrives(receiver(), "patient"));
}

TEST_F(outbox_modem, a_modem_that_is_unplugged_costs_no_refusal_and_no_card) {
    const outbox_client_t box = outbox_of("unplugged");
    fault("unplugged", "late-results=50");
    const std::string card(60 * 128, 'u');
    const uint64_t id = box.add(card, bob);
    ASSERT_TRUE(eventually([&] { return box.message(id)["datagrams"]["sent"] > 3; }));
    fault("unplugged", "hang-up=2000");
    const auto happened = [&](const std::string& text) {
        return eventually([&] {
            const auto events = box.events();
            return std::ranges::any_of(
                events, [&](const auto& event) { return event["text"].template get<std::string>().starts_with(text); });
        });
    };
    EXPECT_TRUE(happened("modem lost: the modem on ") && happened("modem back: it is on "));
    EXPECT_TRUE(box.becomes(id, "sent")) << box.message(id);
    EXPECT_TRUE(arrives(receiver(), card));
    EXPECT_EQ(stored_cards(receiver())[card], 1);
    EXPECT_LE(box.message(id)["refusals"], 1) << "at most the one that was under way";
}

}  // namespace
