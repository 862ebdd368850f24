/// What packaging/nats/fleet.conf promises of its users, tried on a server that has it: docs/fleet.md, "Who may do
/// what".
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <array>
#include <future>
#include <thread>

#include "relay/batch.h"
#include "relay/fleet_names.h"
#include "tests/relay/secured_server.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

const std::string north_number = "+12025550100";
const std::string north_phone = "north.ZPD1";
const std::string south_phone = "south.ZPD1";
const fleet::names_t names("cards");
constexpr milliseconds soon{300};

nats::message_t card_for(const std::string& from = "") {
    nats::message_t card(names.send(from), "BEGIN:VCARD");
    card.set_header(fleet::header_to, "+12025550199");
    return card;
}

/// Each test begins with streams of its own.
class permissions : public testing::Test {
  public:
    static void SetUpTestSuite() { server = new secured_server_t; }
    static void TearDownTestSuite() { delete server; }

    void SetUp() override {
        for (const std::string& stream : {names.cards(), names.events(), "KV_" + names.modems()}) {
            ASSERT_TRUE(operator_->request("$JS.API.STREAM.DELETE." + stream, "", nats::longest_call));
        }
        const auto made = fleet::make(*operator_, names, std::nullopt);
        ASSERT_TRUE(made) << made.failure().text;
    }

    /// What somebody could change, for comparison.
    std::string cards_and_streams() {
        const auto all = operator_->request(std::string("$JS.API.STREAM.NAMES"), "", nats::longest_call);
        return state_of(names.cards()) + (all ? std::string(all->data()) : all.failure().text);
    }
    std::string state() { return cards_and_streams() + state_of(names.events()) + state_of("KV_" + names.modems()); }
    std::string state_of(const std::string& stream) {
        const auto found = operator_->stream(stream);
        return found && *found ? fmt::format("{} from {} to {} ", (*found)->messages, (*found)->first, (*found)->last)
                               : "gone ";
    }

    static secured_server_t* server;
    const std::unique_ptr<nats::connection_t> operator_ = server->connection_of("operator");
    const std::unique_ptr<nats::connection_t> sender_ = server->connection_of("sender");
    const std::unique_ptr<nats::connection_t> north_ = server->connection_of("north");
};
secured_server_t* permissions::server = nullptr;

template <typename result_t>
void expect_done(const client::answer_t<result_t>& answer) {
    EXPECT_TRUE(answer) << answer.failure().text;
}

TEST_F(permissions, a_card_goes_its_way_from_a_sender_through_a_machine) {
    const auto stored = sender_->store(card_for(), "token");
    ASSERT_TRUE(stored) << stored.failure().text;
    expect_done(sender_->store(card_for(north_number), ""));

    for (const std::string& from : {std::string(), north_number}) {
        SCOPED_TRACE(from);
        expect_done(fleet::make(*north_, names, std::nullopt));
        expect_done(fleet::consumer_of(*north_, names, from));
        auto pull = north_->pull(names.cards(), fleet::names_t::consumer(from));
        ASSERT_TRUE(pull) << pull.failure().text;
        const auto cards = pull->take(10, nats::longest_call);
        ASSERT_TRUE(cards) << cards.failure().text;
        ASSERT_EQ(cards->size(), 1U);
        const nats::message_t& card = cards->front();
        EXPECT_EQ(card.header(fleet::header_to), "+12025550199");
        expect_done(north_->confirm_progress(card));
        expect_done(north_->store({names.result(card.sequence(), fleet::result_t::sent), "{}"}, ""));
        const auto result = north_->last_in(names.events(), names.results_of(card.sequence()));
        EXPECT_TRUE(result && *result) << "what was sent is not sent again";
        card.acknowledge();
        expect_done(north_->confirm_progress(card));  // A consumer takes these in their order, in a thread of its own.
    }
    EXPECT_EQ((*operator_->stream(names.cards()))->messages, 0U);
    const auto result = sender_->last_in(names.events(), names.results_of(stored->sequence));
    EXPECT_TRUE(result && *result);
}

TEST_F(permissions, a_machine_shows_its_modems_and_what_they_received_and_a_sender_reads_it) {
    auto modems = sender_->watch(names.modems());
    ASSERT_TRUE(modems) << modems.failure().text;
    expect_done(north_->put(names.modems(), north_phone, "{}"));
    bool all = false;
    EXPECT_TRUE(modems->next(nats::longest_call, &all));
    EXPECT_EQ(sender_->entries(names.modems())->size(), 1U);
    expect_done(north_->drop(names.modems(), north_phone));

    auto events = sender_->follow(names.events(), names.all_received(), 1);
    ASSERT_TRUE(events) << events.failure().text;
    nats::batch_t batch(*north_);
    for (int twice = 0; twice < 2; ++twice) {
        expect_done(batch.add(names.modem(north_phone), "{}", ""));
        expect_done(batch.add(names.received(north_phone), "BEGIN:VCARD", "7-1"));
        expect_done(batch.store());
    }
    const auto received = events->next(nats::longest_call);
    ASSERT_TRUE(received && *received);
    EXPECT_EQ((*received)->data(), "BEGIN:VCARD");
    EXPECT_TRUE(*sender_->remove(names.events(), (*received)->sequence()));
    const auto second = events->next(soon);
    EXPECT_TRUE(second && !*second) << "its token was known";

    expect_done(batch.add(names.modem(north_phone), "{}", ""));
    expect_done(batch.add(names.received(south_phone), "BEGIN:VCARD", ""));
    const auto refused = batch.store();
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.failure().text, HasSubstr("No responders"));
}

TEST_F(permissions, an_order_reaches_the_machines_and_its_answer_the_sender) {
    auto orders = north_->subscribe(names.order("cancel"));
    ASSERT_TRUE(orders);
    expect_done(north_->flush());
    auto answer = std::async(std::launch::async,
                             [&] { return sender_->request(names.order("cancel"), "{}", nats::longest_call); });
    const auto order = orders->next(nats::longest_call);
    ASSERT_TRUE(order && *order);
    expect_done(north_->publish(natsMsg_GetReply((*order)->get()), "done"));
    ASSERT_TRUE(answer.get()) << answer.get().failure().text;
}

/// A request, or a publication whose answer goes to another subject.
struct attempt_t {
    const char* user;
    std::string subject;
    std::string data;
    std::string reply;
};

void PrintTo(const attempt_t& attempt, std::ostream* stream) {
    *stream << attempt.user << " to " << attempt.subject << " for " << attempt.reply;
}

const std::string api = "$JS.API.";
const std::string any_filter =
    R"({"stream_name":"ZPD-cards-events","config":{"ack_policy":"none","deliver_policy":"all",)"
    R"("deliver_subject":"_INBOX_north.x"}})";
std::string consumer_of(const std::string& number) {
    return R"({"stream_name":"ZPD-cards-cards","config":{"durable_name":"from-12025550100","name":"from-12025550100",)"
           R"("ack_policy":"explicit","filter_subject":"zpd.cards.send.from.)" +
           number + R"("}})";
}

/// What each is refused: after all of them the streams are as they were, and nobody was answered with a success.
const std::vector<attempt_t> attempts{
    // A machine hands in no cards.
    {"north", names.send(""), "card", ""},
    {"north", names.send(north_number), "card", ""},
    // It speaks for no other.
    {"north", names.received(south_phone), "card", ""},
    {"north", names.modem(south_phone), "{}", ""},
    {"north", "$KV.ZPD-cards-modems." + south_phone, "{}", ""},
    // It removes nothing, and makes nothing.
    {"north", api + "STREAM.MSG.DELETE.ZPD-cards-cards", R"({"seq":1})", ""},
    {"north", api + "STREAM.MSG.DELETE.ZPD-cards-events", R"({"seq":1})", ""},
    {"north", api + "STREAM.PURGE.ZPD-cards-cards", "", ""},
    {"north", api + "STREAM.DELETE.ZPD-cards-cards", "", ""},
    {"north", api + "STREAM.CREATE.mine", R"({"name":"mine","subjects":["mine"],"storage":"memory"})", ""},
    {"north", api + "CONSUMER.DELETE.ZPD-cards-cards.any", "", ""},
    // It reads neither what others received nor what waits.
    {"north", api + "DIRECT.GET.ZPD-cards-events", R"({"seq":1})", ""},
    {"north", api + "DIRECT.GET.ZPD-cards-events." + names.received(south_phone), "", ""},
    {"north", api + "STREAM.MSG.GET.ZPD-cards-events", R"({"seq":1})", ""},
    {"north", api + "STREAM.MSG.GET.ZPD-cards-cards", R"({"seq":1})", ""},
    {"north", api + "DIRECT.GET.ZPD-cards-cards", R"({"seq":1})", ""},
    {"north", api + "CONSUMER.CREATE.ZPD-cards-events", any_filter, ""},
    // It takes no cards of another phone, also not under its own phone's name.
    {"north", api + "CONSUMER.MSG.NEXT.ZPD-cards-cards.from-12025550199", R"({"batch":1,"no_wait":true})", ""},
    {"north", api + "CONSUMER.CREATE.ZPD-cards-cards.from-12025550199.zpd.cards.send.from.12025550199",
     consumer_of("12025550199"), ""},
    {"north", api + "CONSUMER.CREATE.ZPD-cards-cards.from-12025550100.zpd.cards.send.from.12025550100",
     consumer_of("12025550199"), ""},
    {"north", api + "CONSUMER.DURABLE.CREATE.ZPD-cards-cards.from-12025550100", consumer_of("12025550199"), ""},
    // A sender takes, acknowledges, receives and makes nothing.
    {"sender", api + "CONSUMER.MSG.NEXT.ZPD-cards-cards.any", R"({"batch":1,"no_wait":true})", ""},
    {"sender", "$JS.ACK.ZPD-cards-cards.any.1.1.1.1.0", "+ACK", ""},
    {"sender", names.received(north_phone), "card", ""},
    {"sender", names.result(1, fleet::result_t::sent), "{}", ""},
    {"sender", "$KV.ZPD-cards-modems." + north_phone, "{}", ""},
    {"sender", api + "STREAM.PURGE.ZPD-cards-cards", "", ""},
    {"sender", api + "STREAM.DELETE.ZPD-cards-cards", "", ""},
    {"sender", api + "STREAM.UPDATE.ZPD-cards-cards", R"({"name":"ZPD-cards-cards","max_msgs":1})", ""},
    {"sender", api + "STREAM.CREATE.mine", R"({"name":"mine","subjects":["mine"],"storage":"memory"})", ""},
};

TEST_F(permissions, what_is_not_a_users_is_refused) {
    expect_done(operator_->store(card_for(), ""));
    expect_done(operator_->store({names.received(south_phone), "secret"}, ""));
    const std::string before = state();
    for (const attempt_t& attempt : attempts) {
        SCOPED_TRACE(testing::PrintToString(attempt));
        const auto& user = attempt.user == std::string("sender") ? sender_ : north_;
        const auto answer = user->request(attempt.subject, attempt.data, milliseconds(100));
        EXPECT_TRUE(!answer || answer->data().find("\"error\"") != std::string::npos) << answer->data();
        if (user == sender_) {
            EXPECT_THAT(user->last_refusal(), HasSubstr("Permissions Violation for Publish to \"" + attempt.subject));
        }
        EXPECT_EQ(state(), before);
    }
}

/// The server answers to any subject that is asked for, whoever asks: in an account of its own a machine gets nowhere
/// by it.
TEST_F(permissions, a_machine_has_nothing_done_by_the_answers_to_it) {
    const std::string stream = R"({"name":"mine","subjects":["mine"],"storage":"memory"})";
    for (int i = 0; i < 2; ++i) {
        expect_done(operator_->store(card_for(), ""));
    }
    expect_done(north_->store({names.result(9, fleet::result_t::sent), stream}, ""));
    const auto plain = server->plain_connection_of("north");
    const std::string before = cards_and_streams();
    const std::string own_result = api + "DIRECT.GET.ZPD-cards-events." + names.result(9, fleet::result_t::sent);
    const std::string next_card = api + "CONSUMER.MSG.NEXT.ZPD-cards-cards.any";
    for (const auto& [subject, data, reply] : std::vector<std::array<std::string, 3>>{
             {own_result, "", api + "STREAM.CREATE.mine"},
             {own_result, "", names.send("")},
             {own_result, "", names.received(south_phone)},
             {next_card, R"({"batch":1,"expires":100000000})", names.received(south_phone)},
             {next_card, R"({"batch":1,"expires":100000000})", names.send(north_number)},
             {api + "STREAM.INFO.ZPD-cards-cards", "", api + "STREAM.PURGE.ZPD-cards-cards"},
             {"$KV.ZPD-cards-modems." + north_phone, "{}", api + "STREAM.PURGE.ZPD-cards-cards"},
         }) {
        EXPECT_EQ(natsConnection_PublishRequestString(plain.get(), subject.c_str(), reply.c_str(), data.c_str()),
                  NATS_OK);
        EXPECT_EQ(natsConnection_Flush(plain.get()), NATS_OK);
    }
    std::this_thread::sleep_for(soon);
    EXPECT_EQ(cards_and_streams(), before);
    EXPECT_FALSE(*operator_->last_in(names.events(), names.received(south_phone)));
}

TEST_F(permissions, nobody_listens_to_what_is_anothers) {
    for (const std::string user : {"sender", "north"}) {
        const auto connection = server->connection_of(user);
        auto heard = connection->subscribe(">");
        for (const std::string& subject : {names.all_sent(), names.all_received(), std::string("_INBOX_operator.>")}) {
            auto subscription = connection->subscribe(subject);
            expect_done(connection->flush());
            EXPECT_EQ(connection->last_refusal().empty(), user == "north") << subject;
            expect_done(operator_->store(card_for(), ""));
            expect_done(operator_->store({names.received(south_phone), "secret"}, ""));
            const auto message = subscription->next(soon);
            EXPECT_TRUE(!message || !*message) << user << " hears " << (*message)->subject();
        }
        const auto message = heard->next(soon);
        EXPECT_TRUE(!message || !*message) << user << " hears " << (*message)->subject();
    }
}

/// What stands against a connection, in words.
std::string obstacle(const nats::server_t& server) {
    const auto connection = nats::connection_t::open(server, "test", false);
    return connection ? "" : connection.failure().text;
}

TEST_F(permissions, who_is_not_known_is_told_so_and_a_server_that_is_not_known_gets_no_password) {
    EXPECT_EQ(obstacle(server->reached_by("sender")), "");
    EXPECT_THAT(obstacle(server->reached_by("sender", "wrong")), HasSubstr("Authorization Violation"));
    EXPECT_THAT(obstacle(server->reached_by("nobody")), HasSubstr("Authorization Violation"));
    nats::server_t other = server->reached_by("sender");
    other.ca = server->file("other-ca.pem");
    EXPECT_THAT(obstacle(other), HasSubstr("certificate"));
    nats::server_t elsewhere = server->reached_by("sender");
    elsewhere.url.replace(elsewhere.url.find("localhost"), 9, "127.0.0.1");  // which its certificate does not name
    EXPECT_THAT(obstacle(elsewhere), HasSubstr("mismatch"));
}

TEST(secured_server, takes_only_clients_with_a_certificate_of_its_authority_when_it_is_told_to) {
    const secured_server_t server(true);
    nats::server_t client = server.reached_by("sender");
    EXPECT_NE(obstacle(client), "");
    client.certificate = server.file("client.pem");
    client.key = server.file("client.key");
    EXPECT_EQ(obstacle(client), "");
}

}  // namespace
