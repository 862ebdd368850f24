/// What is asked of a fleet, on a server of its own: relays are played by the test.
#include "relay/fleet.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <thread>

#include "tests/relay/secured_server.h"
#include "tests/relay/server.h"

namespace {

using client::obstacle_t;
using fleet::result_t;
using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

client::handed_in_card_t card(std::string_view token = "", std::string_view octets = "BEGIN:VCARD\r\nEND:VCARD\r\n") {
    return {.card = {.octets = octets}, .number = "+12025550199", .file = "ann.vcf", .expires = 0, .token = token};
}

json read(const client::answer_t<std::string>& answer) {
    EXPECT_TRUE(answer) << answer.failure().text;
    return answer ? json::parse(*answer) : json::object();
}

std::vector<uint64_t> ids_of(const json& list) {
    std::vector<uint64_t> ids;
    for (const json& one : list) {
        ids.push_back(one.contains("id") ? one["id"] : one["number"]);
    }
    return ids;
}

/// Each test has a group of its own on a server that they share.
class fleet_of_modems : public testing::Test {
  public:
    static void SetUpTestSuite() { server = new server_t; }
    static void TearDownTestSuite() { delete server; }

    void SetUp() override {
        auto opened = fleet::fleet_t::open(server->address(names_.group()));
        ASSERT_TRUE(opened) << opened.failure().text;
        fleet_ = std::move(*opened);
    }

    void make(const fleet::layout_t& layout = {}) {
        const auto made = fleet::make(*relay_, names_, layout);
        ASSERT_TRUE(made) << made.failure().text;
    }
    uint64_t add(std::string_view token = "") { return read(fleet_->outbox_add(card(token)))["id"]; }
    uint64_t store(const std::string& subject, std::string_view octets, const std::string& description = "") {
        nats::message_t message(subject, octets);
        if (!description.empty()) {
            message.set_header(fleet::header_card, description);
        }
        const auto stored = relay_->store(message, "");
        EXPECT_TRUE(stored) << stored.failure().text;
        return stored ? stored->sequence : 0;
    }
    /// As a relay does, which then lets the card go.
    uint64_t tell(uint64_t id, result_t result, const json& message = json::object()) {
        const json event{{"kind", "?"}, {"text", "something"}, {"message", message}, {"modem", "north.ZPD1"}};
        const uint64_t told = store(names_.result(id, result), event.dump());
        if (result != result_t::queued) {
            EXPECT_TRUE(relay_->remove(names_.cards(), id));
        }
        return told;
    }
    /// Answers the first order of this kind.
    std::future<std::string> answer_order(const char* what, std::string with) {
        auto orders = std::make_shared<client::answer_t<nats::subscription_t>>(relay_->subscribe(names_.order(what)));
        EXPECT_TRUE(relay_->flush());
        return std::async(std::launch::async, [this, orders, with = std::move(with)] {
            const auto order = (*orders)->next(seconds(5));
            if (!order || !*order) {
                return std::string("no order came");
            }
            EXPECT_TRUE(relay_->publish((*order)->reply(), with));
            return std::string((*order)->data());
        });
    }
    std::string state(uint64_t id) { return read(fleet_->outbox_watch(id, 0, 0))["state"]; }

    static server_t* server;
    const fleet::names_t names_{testing::UnitTest::GetInstance()->current_test_info()->name()};
    const std::unique_ptr<nats::connection_t> relay_ = server->connect();
    std::unique_ptr<fleet::fleet_t> fleet_;
};

server_t* fleet_of_modems::server = nullptr;

TEST_F(fleet_of_modems, keeps_a_card_once) {
    EXPECT_THAT(fleet_->outbox_list(0, false).failure().text, HasSubstr("zpd fleet make"));
    const json message = read(fleet_->outbox_add(card("a")));
    EXPECT_EQ(message["id"], 1) << "the first one makes the group";
    EXPECT_EQ(message["state"], "waiting");
    EXPECT_EQ(message["version"], 0);
    EXPECT_EQ(message["number"], "+12025550199");
    EXPECT_EQ(message["file"], "ann.vcf");
    EXPECT_EQ(message["octets"], 24);
    EXPECT_EQ(add("a"), 1);
    EXPECT_EQ(add("b"), 2);
    tell(1, result_t::sent);
    EXPECT_EQ(read(fleet_->outbox_add(card("a")))["state"], "sent") << "also when it is not in the queue any more";

    auto from_one = card("c");
    from_one.from = "+12025550100";
    EXPECT_THAT(read(fleet_->outbox_add(from_one))["waits_for"], HasSubstr("12025550100"));
    const auto stored = relay_->next_in(names_.cards(), names_.send("+12025550100"), 1);
    ASSERT_TRUE(stored && *stored);
    EXPECT_EQ((*stored)->data(), from_one.card.octets);
    EXPECT_EQ((*stored)->header(fleet::header_to), "+12025550199");

    auto nameless = card("d");
    nameless.card.is_utf8 = false;
    nameless.file = "";
    EXPECT_EQ(read(fleet_->outbox_add(nameless))["file"], "");
    const auto last = relay_->last_in(names_.cards(), names_.send(""));
    ASSERT_TRUE(last && *last);
    EXPECT_EQ((*last)->header(fleet::header_utf8), "0") << "a header without a value takes nothing from the next one";
}

TEST_F(fleet_of_modems, refuses_what_a_service_refuses) {
    const std::string large(32'641, 'x');
    const std::string long_name(256, 'n');
    std::vector<client::handed_in_card_t> bad(5, card());
    bad[0].number = "12 34";
    bad[1].from = "ann";
    bad[2].card.octets = "";
    bad[3].card.octets = large;
    bad[4].file = long_name;
    for (const auto& one : bad) {
        const auto answer = fleet_->outbox_add(one);
        ASSERT_FALSE(answer);
        EXPECT_EQ(answer.failure().code, client::error_value) << answer.failure().text;
    }
    EXPECT_FALSE(*relay_->stream(names_.cards())) << "and makes nothing";
}

TEST_F(fleet_of_modems, refuses_a_card_when_the_queue_is_full) {
    make({.most_cards = 2});
    add();
    add();
    const auto answer = fleet_->outbox_add(card());
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.failure().code, client::error_full);
    EXPECT_EQ(answer.failure().obstacle, obstacle_t::request) << "not to be tried again at once";
    EXPECT_THAT(answer.failure().text, HasSubstr("full"));
    make({.most_cards = 3});
    EXPECT_EQ(add(), 3);
}

TEST_F(fleet_of_modems, follows_a_card_by_its_results) {
    const uint64_t id = add();
    auto watched = std::async(std::launch::async, [&] { return fleet_->outbox_watch(id, 0, 10'000); });
    std::this_thread::sleep_for(milliseconds(200));
    const auto before = steady_clock::now();
    const uint64_t version = tell(id, result_t::queued, {{"id", 77}, {"datagrams", {{"total", 7}, {"sent", 1}}}});
    json message = read(watched.get());
    EXPECT_LT(steady_clock::now() - before, seconds(2));
    EXPECT_EQ(message["id"], id) << "not the number that it has in a machine's outbox";
    EXPECT_EQ(message["state"], "waiting");
    EXPECT_EQ(message["version"], version);
    EXPECT_EQ(message["datagrams"]["total"], 7);
    EXPECT_THAT(message["waits_for"], HasSubstr("north.ZPD1"));

    const auto begun = steady_clock::now();
    EXPECT_EQ(read(fleet_->outbox_watch(id, version, 300))["version"], version);
    EXPECT_GE(steady_clock::now() - begun, milliseconds(300));
    tell(id, result_t::sent, {{"datagrams", {{"total", 7}, {"sent", 7}}}});
    message = read(fleet_->outbox_watch(id, version, 10'000));
    EXPECT_EQ(message["state"], "sent");
    EXPECT_EQ(message["datagrams"]["sent"], 7);
    EXPECT_EQ(fleet_->outbox_watch(id + 1, 0, 0).failure().code, client::error_not_found);
}

TEST_F(fleet_of_modems, lists_what_waits_and_what_was_set_aside_in_pages) {
    for (int i = 0; i < 250; ++i) {
        add();
    }
    tell(3, result_t::aside);
    tell(4, result_t::sent);
    tell(5, result_t::aside);
    tell(5, result_t::sent);  // after a retry
    tell(6, result_t::cancelled);
    for (const bool all : {false, true}) {
        std::vector<uint64_t> ids;
        size_t pages = 0;
        for (bool more = true; more; ++pages) {
            const json page = read(fleet_->outbox_list(ids.empty() ? 0 : ids.back(), all));
            ASSERT_TRUE(page.contains("messages"));
            for (const uint64_t id : ids_of(page["messages"])) {
                ids.push_back(id);
            }
            more = page["more"];
        }
        std::vector<uint64_t> expected;
        for (uint64_t id = 1; id <= 250; ++id) {
            if (all || id < 4 || id > 6) {
                expected.push_back(id);
            }
        }
        EXPECT_EQ(ids, expected) << all;
        EXPECT_EQ(pages, 3);
    }
    EXPECT_EQ(read(fleet_->outbox_list(2, false))["messages"][0]["state"], "set aside");
}

TEST_F(fleet_of_modems, calls_back_a_card_wherever_it_is) {
    const uint64_t waiting = add();
    EXPECT_EQ(read(fleet_->outbox_cancel(waiting))["state"], "cancelled") << "nobody has it";
    EXPECT_EQ(state(waiting), "cancelled");
    EXPECT_EQ((*relay_->stream(names_.cards()))->messages, 0) << "nobody will be given it";
    EXPECT_EQ(read(fleet_->outbox_cancel(waiting))["state"], "cancelled") << "what is over is left as it is";

    const uint64_t taken = add();
    tell(taken, result_t::queued);
    auto ordered = answer_order("cancel", R"({"id":9,"state":"cancelling"})");
    const json cancelling = read(fleet_->outbox_cancel(taken));
    EXPECT_EQ(ordered.get(), fmt::format(R"({{"id":{}}})", taken));
    EXPECT_EQ(cancelling["state"], "cancelling");
    EXPECT_EQ(read(fleet_->outbox_watch(taken, cancelling["version"], 100))["state"], "cancelling");
    store(names_.result(taken, result_t::cancelled), "{}");
    EXPECT_EQ(state(taken), "cancelled");
    EXPECT_EQ(fleet_->outbox_cancel(99).failure().code, client::error_not_found);
}

TEST_F(fleet_of_modems, tries_again_what_a_relay_set_aside) {
    const uint64_t id = add();
    EXPECT_EQ(read(fleet_->outbox_retry(id, 0))["state"], "waiting") << "it is in the queue";
    tell(id, result_t::aside, {{"reason", {{"text", "no such number"}, {"advice", "check it"}}}});
    EXPECT_EQ(read(fleet_->outbox_watch(id, 0, 0))["reason"]["advice"], "check it");
    const auto alone = fleet_->outbox_retry(id, 0);
    ASSERT_FALSE(alone);
    EXPECT_THAT(alone.failure().text, HasSubstr("no relay that is there has message 1"));
    auto ordered = answer_order("retry", R"({"id":9,"state":"waiting"})");
    EXPECT_EQ(read(fleet_->outbox_retry(id, 0))["state"], "waiting");
    ordered.get();
    ordered = answer_order("retry", R"({"error":"the disk is full"})");
    EXPECT_THAT(fleet_->outbox_retry(id, 0).failure().text, HasSubstr("the disk is full"));
    ordered.get();
    tell(id, result_t::sent);
    EXPECT_EQ(fleet_->outbox_retry(id, 0).failure().code, client::error_not_now);
}

TEST_F(fleet_of_modems, tells_events_in_their_order_and_goes_on) {
    make();
    for (uint64_t id = 1; id <= 120; ++id) {
        store(names_.result(id, result_t::queued), json{{"time", 1000 + id}, {"text", fmt::format("{}", id)}}.dump());
    }
    const json first = read(fleet_->events(0, 0, 0));
    EXPECT_EQ(first["events"].size(), 100);
    EXPECT_EQ(first["more"], true);
    const json second = read(fleet_->events(100, 0, 0));
    EXPECT_EQ(ids_of(second["events"]).back(), 120);
    EXPECT_EQ(second["more"], false);
    EXPECT_EQ(second["events"][0]["text"], "101");
    EXPECT_EQ(second["events"][0]["time"], 1101);
    EXPECT_EQ(second["events"][0]["message"]["id"], 101);
    EXPECT_EQ(read(fleet_->events(120, 0, 50))["events"].size(), 0);

    auto next = std::async(std::launch::async, [&] { return fleet_->events(120, 0, 10'000); });
    std::this_thread::sleep_for(milliseconds(100));
    store(names_.modem("north.ZPD1"), R"({"kind":"modem","text":"north.ZPD1: modem lost"})");
    const json came = read(next.get());
    EXPECT_THAT(ids_of(came["events"]), ElementsAre(121));
    EXPECT_EQ(came["events"][0]["kind"], "modem");
    EXPECT_THAT(ids_of(read(fleet_->events(119, 0, 0))["events"]), ElementsAre(120, 121)) << "by who goes back";

    std::this_thread::sleep_until(std::chrono::ceil<seconds>(std::chrono::system_clock::now()) + milliseconds(50));
    const auto now = static_cast<uint64_t>(std::time(nullptr));
    store(names_.modem("north.ZPD1"), R"({"kind":"modem","text":"north.ZPD1: modem found"})");
    EXPECT_THAT(ids_of(read(fleet_->events(0, now, 0))["events"]), ElementsAre(122));
    EXPECT_EQ(read(fleet_->events(0, now + 1000, 0))["events"].size(), 0);
}

TEST_F(fleet_of_modems, has_an_inbox_of_all_modems) {
    make();
    const std::string octets("BEGIN:VCARD\0END", 15);
    store(names_.result(1, result_t::sent), "{}");
    store(names_.received("north.ZPD1"), octets,
          R"({"number":8,"file":"4f0a","sender":"+12025550100","received":1795345678,"path":null,)"
          R"("contacts":[{"name":"Ann","organisation":null,"telephone":"+1"}]})");
    store(names_.received("south.ZPD2"), "other");
    const json cards = read(fleet_->inbox_list(0))["cards"];
    EXPECT_THAT(ids_of(cards), ElementsAre(2, 3));
    EXPECT_EQ(cards[0]["sender"], "+12025550100");
    EXPECT_EQ(cards[0]["received"], 1795345678);
    EXPECT_EQ(cards[0]["octets"], octets.size());
    EXPECT_EQ(cards[0]["contacts"][0]["name"], "Ann");
    EXPECT_EQ(cards[0]["modem"], "north.ZPD1");
    EXPECT_EQ(*fleet_->inbox_octets(2), octets);
    EXPECT_THAT(read(fleet_->events(1, 0, 0))["events"][0]["text"],
                AllOf(HasSubstr("stored card 2"), HasSubstr("Ann")));

    EXPECT_TRUE(fleet_->inbox_remove(2));
    EXPECT_THAT(ids_of(read(fleet_->inbox_list(0))["cards"]), ElementsAre(3));
    for (const uint64_t no_card : {1, 2, 9}) {
        EXPECT_EQ(fleet_->inbox_remove(no_card).failure().code, client::error_not_found) << no_card;
        EXPECT_EQ(fleet_->inbox_octets(no_card).failure().code, client::error_not_found) << no_card;
    }
    EXPECT_EQ(read(fleet_->events(0, 0, 0))["events"].size(), 2) << "a result is no card";
}

TEST_F(fleet_of_modems, tells_who_is_there_and_what_waits) {
    make();
    add();
    add();
    EXPECT_TRUE(relay_->put(names_.modems(), "north.ZPD1", R"({"number":"+12025550100","registered":true,"queue":3})"));
    EXPECT_TRUE(relay_->put(names_.modems(), "east.ZPD1", R"({"number":"north"})"));
    auto pull = relay_->pull(names_.cards(), "any");
    ASSERT_TRUE(pull);
    EXPECT_EQ(pull->take(1, seconds(1))->size(), 1);
    const json told = read(fleet_->service_status())["fleet"];
    EXPECT_EQ(told["group"], names_.group());
    EXPECT_EQ(told["cards"], (json{{"waiting", 1}, {"taken", 1}}));
    ASSERT_EQ(told["modems"].size(), 2);
    EXPECT_EQ(told["modems"][0]["modem"], "east.ZPD1");
    EXPECT_EQ(told["modems"][1]["queue"], 3);
    EXPECT_TRUE(relay_->drop(names_.modems(), "north.ZPD1"));
    EXPECT_EQ(read(fleet_->service_status())["fleet"]["modems"].size(), 1);
}

TEST_F(fleet_of_modems, takes_no_harm_from_what_strangers_wrote) {
    const uint64_t id = add();
    const std::string deep(60'000, '[');
    const std::vector<std::string> odd{
        "",
        "no JSON",
        "\xFF\xFE",
        "[]",
        deep,
        R"({"message":)" + deep + std::string(60'000, ']') + "}",
        R"({"message":{"deep":)" + std::string(20'000, '[') + std::string(20'000, ']') + R"(},"text":"kept"})",
        std::string(200'000, ' ') + "{}",
        R"({"message":[1],"text":{},"time":"late","kind":[],"modem":{"a":1}})",
        R"({"message":{"id":"x","state":7,"octets":"many","contacts":[1,{"name":2},"x"],"datagrams":{"total":-1}}})",
        R"({"message":{"number":"\u001b[31m","file":null,"reason":5,"next_try":"soon"},"time":-5})",
    };
    for (const std::string& text : odd) {
        store(names_.result(id, result_t::queued), text);
        const json message = read(fleet_->outbox_watch(id, 0, 0));
        EXPECT_EQ(message["id"], id) << text.substr(0, 40);
        EXPECT_TRUE(message["octets"].is_number_unsigned());
        EXPECT_TRUE(message["datagrams"]["total"].is_number_unsigned());
        for (const json& contact : message["contacts"]) {
            EXPECT_TRUE(contact["name"].is_string());
        }
        store(names_.received("north.ZPD1"), text, text.substr(0, 3000));
        store(names_.modem("north.ZPD1"), text);
        EXPECT_TRUE(relay_->put(names_.modems(), "north.ZPD1", text));
        EXPECT_EQ(read(fleet_->service_status())["fleet"]["modems"][0]["modem"], "north.ZPD1");
    }
    const json events = read(fleet_->events(0, 0, 0))["events"];
    EXPECT_EQ(events.size(), 3 * odd.size());
    for (const json& event : events) {
        EXPECT_TRUE(event["id"].is_number_unsigned() && event["time"].is_number_unsigned() &&
                    event["text"].is_string() && event["kind"].is_string())
            << event.dump().substr(0, 200);
    }
    const json cards = read(fleet_->inbox_list(0))["cards"];
    EXPECT_EQ(cards.size(), odd.size());
    for (const json& one : cards) {
        EXPECT_TRUE(one["file"].is_string() && one["sender"].is_string() && one["received"].is_number_unsigned());
    }
    store(names_.send(""), "a card without any header");
    for (const std::string& subject :
         {names_.send(""), names_.received("north.ZPD1"), names_.result(id, result_t::sent)}) {
        nats::message_t message(subject, "card");
        natsMsgHeader_Set(message.get(), fleet::header_file, "");
        ASSERT_TRUE(relay_->store(message, ""));
    }
    EXPECT_EQ(read(fleet_->outbox_list(0, true))["messages"].size(), 3);
    EXPECT_EQ(state(id), "sent");
    EXPECT_EQ(read(fleet_->inbox_list(0))["cards"].size(), odd.size() + 1);
    EXPECT_EQ(read(fleet_->events(3 * odd.size(), 0, 0))["events"].size(), 2);
}

TEST_F(fleet_of_modems, waits_for_a_server_that_comes_back) {
    const uint64_t id = add("first");
    store(names_.modem("north.ZPD1"), R"({"text":"before"})");
    EXPECT_THAT(ids_of(read(fleet_->events(0, 0, 0))["events"]), ElementsAre(1));
    server->kill();
    const auto begun = steady_clock::now();
    for (const auto& answer : {fleet_->outbox_add(card("second")), fleet_->outbox_watch(id, 0, 100),
                               fleet_->outbox_cancel(id), fleet_->events(1, 0, 100), fleet_->service_status()}) {
        ASSERT_FALSE(answer);
        EXPECT_EQ(answer.failure().obstacle, obstacle_t::no_answer) << answer.failure().text;
    }
    EXPECT_LT(steady_clock::now() - begun, seconds(10));
    server->start();
    client::answer_t<std::string> again = client::failure_t{};
    for (const auto end = steady_clock::now() + seconds(10); !again && steady_clock::now() < end;) {
        again = fleet_->outbox_add(card("first"));
        EXPECT_TRUE(again || again.failure().obstacle == obstacle_t::no_answer) << again.failure().text;
    }
    EXPECT_EQ(read(again)["id"], id) << "the server knows the token still";
    for (const auto end = steady_clock::now() + seconds(10); !relay_->is_connected() && steady_clock::now() < end;) {
        std::this_thread::sleep_for(milliseconds(10));
    }
    store(names_.modem("north.ZPD1"), R"({"text":"after"})");
    std::vector<uint64_t> came;
    for (const auto end = steady_clock::now() + seconds(20); came.empty() && steady_clock::now() < end;) {
        came = ids_of(read(fleet_->events(1, 0, 500))["events"]);
    }
    EXPECT_THAT(came, ElementsAre(2));
}

TEST(fleet_of_others, is_open_to_who_may_send_and_says_so_to_who_may_not) {
    const secured_server_t server;
    const fleet::names_t names("cards");
    const auto maker = server.connection_of("operator");
    ASSERT_TRUE(maker && fleet::make(*maker, names, std::nullopt));
    const auto opened = fleet::fleet_t::open({server.reached_by("sender"), names.group()});
    ASSERT_TRUE(opened) << opened.failure().text;
    fleet::fleet_t& fleet = **opened;
    const uint64_t id = read(fleet.outbox_add(card()))["id"];
    nats::message_t received(names.received("north.ZPD1"), "card");
    ASSERT_TRUE(maker->store(received, ""));
    EXPECT_EQ(read(fleet.outbox_watch(id, 0, 100))["state"], "waiting");
    EXPECT_EQ(read(fleet.outbox_list(0, true))["messages"].size(), 1);
    EXPECT_EQ(read(fleet.outbox_cancel(id))["state"], "cancelled");
    EXPECT_EQ(read(fleet.events(0, 1, 0))["events"].size(), 2);
    EXPECT_EQ(read(fleet.inbox_list(0))["cards"].size(), 1);
    EXPECT_TRUE(fleet.inbox_remove(1));
    EXPECT_EQ(read(fleet.service_status())["fleet"]["cards"]["waiting"], 0);

    const auto other = fleet::fleet_t::open({server.reached_by("sender"), "others"});
    ASSERT_TRUE(other);
    const auto refused = (*other)->outbox_add(card());
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.failure().obstacle, obstacle_t::access) << refused.failure().text;
    const auto no_password = fleet::fleet_t::open({server.reached_by("sender", "wrong"), names.group()});
    ASSERT_FALSE(no_password);
    EXPECT_EQ(no_password.failure().obstacle, obstacle_t::access) << no_password.failure().text;
}

}  // namespace
