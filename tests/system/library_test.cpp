// libzpd-client between real services: what it hands in arrives, and what happens is told over a kill.
#include <gmock/gmock.h>
#include <poll.h>
#include <zpd/client.h>

#include <csignal>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>

#include "tests/system/phones.h"

namespace {

using client_t = std::unique_ptr<zpd_client_t, decltype(&zpd_client_free)>;
using message_t = std::unique_ptr<zpd_message_t, decltype(&zpd_message_free)>;
using event_t = std::unique_ptr<zpd_event_t, decltype(&zpd_event_free)>;
using events_t = std::unique_ptr<zpd_events_t, decltype(&zpd_events_free)>;

client_t client_of(const phone_t& phone) {
    return {zpd_client_new(phone.device().c_str()), zpd_client_free};
}

/// The id; 0 when it is refused.
uint64_t hand_in(const client_t& client, const std::string& card, const std::string& number,
                 const zpd_options_t* options = nullptr) {
    uint64_t id = 0;
    EXPECT_EQ(zpd_send(client.get(), card.data(), card.size(), number.c_str(), options, &id), ZPD_OK)
        << zpd_client_error(client.get());
    return id;
}

message_t wait_for(const client_t& client, uint64_t id) {
    zpd_message_t* message = nullptr;
    EXPECT_EQ(zpd_wait(client.get(), id, 60'000, &message), ZPD_OK) << zpd_client_error(client.get());
    return {message, zpd_message_free};
}

/// The next event of this kind.
event_t next_of(const events_t& events, int kind) {
    for (const std::time_t begun = std::time(nullptr); std::time(nullptr) < begun + 30;) {
        pollfd ready{zpd_events_descriptor(events.get()), POLLIN, 0};
        poll(&ready, 1, 1000);
        zpd_event_t* event = nullptr;
        zpd_events_next(events.get(), &event);
        event_t owned(event, zpd_event_free);
        if (zpd_event_kind(event) == kind && event != nullptr) {
            return owned;
        }
    }
    ADD_FAILURE() << "there is none of the kind " << kind << "; " << zpd_events_error(events.get());
    return {nullptr, zpd_event_free};
}

struct phones_t {
    folder_t folder;
    network_t network{folder};
    phone_t sender{folder, "alice", network.modem(alice)};
    phone_t receiver{folder, "bob", network.modem(bob)};
};

TEST(library, a_card_is_handed_in_followed_read_and_removed) {
    phones_t phones;
    phones.sender.start();
    phones.receiver.start();
    ASSERT_TRUE(phones.sender.ready() && phones.receiver.ready());
    const client_t sender = client_of(phones.sender);
    const client_t receiver = client_of(phones.receiver);
    const events_t events(zpd_events_new(phones.receiver.device().c_str(), 0, 0), zpd_events_free);
    uint32_t version = 0;
    int active = 7;
    const char* status = nullptr;
    EXPECT_EQ(zpd_driver_version(sender.get(), &version), ZPD_OK);
    EXPECT_EQ(version, 2U);
    EXPECT_EQ(zpd_activation(receiver.get(), &active), ZPD_OK);
    EXPECT_EQ(active, 0);
    EXPECT_EQ(zpd_set_activation(receiver.get(), 1), ZPD_OK);
    EXPECT_EQ(zpd_status(receiver.get(), &status), ZPD_OK);
    EXPECT_EQ(nlohmann::json::parse(status)["active"], true);

    const std::string card =
        "BEGIN:VCARD\r\nN:Placeholder;Ann\r\nNOTE:" + std::string(300, '\0') + "\xFF\r\nEND:VCARD\r\n";
    uint32_t datagrams = 0;
    EXPECT_EQ(zpd_count(sender.get(), card.data(), card.size(), nullptr, &datagrams), ZPD_OK);
    zpd_options_t options = ZPD_OPTIONS_INIT;
    options.token = "once";
    options.file = "ann.vcf";
    options.expires = ZPD_NEVER;
    const uint64_t id = hand_in(sender, card, bob, &options);
    EXPECT_EQ(hand_in(sender, card, bob, &options), id) << "one token, one message";
    EXPECT_EQ(zpd_send(sender.get(), "x", 1, "no number", nullptr, nullptr), ZPD_BAD_ARGUMENT);
    EXPECT_THAT(zpd_client_error(sender.get()), testing::HasSubstr("1 to 20 digits"));
    const message_t message = wait_for(sender, id);
    EXPECT_EQ(zpd_message_state(message.get()), ZPD_MESSAGE_SENT);
    EXPECT_EQ(zpd_message_sent(message.get()), datagrams);
    EXPECT_EQ(zpd_message_datagrams(message.get()), datagrams);
    EXPECT_EQ(zpd_message_number(message.get()), bob);
    EXPECT_EQ(zpd_message_size(message.get()), card.size());
    EXPECT_EQ(zpd_message_expires(message.get()), 0U);
    EXPECT_STREQ(zpd_message_file(message.get()), "ann.vcf");

    const event_t stored = next_of(events, ZPD_EVENT_STORED);
    const uint64_t number = zpd_event_card(stored.get());
    EXPECT_EQ(zpd_event_number(stored.get()), alice);
    zpd_cards_t* cards = nullptr;
    ASSERT_EQ(zpd_inbox(receiver.get(), 0, &cards), ZPD_OK);
    ASSERT_EQ(zpd_cards_count(cards), 1U);
    EXPECT_EQ(zpd_card_number(zpd_cards_at(cards, 0)), number);
    EXPECT_STREQ(zpd_card_name(zpd_cards_at(cards, 0)), "Ann Placeholder");
    EXPECT_EQ(zpd_card_sender(zpd_cards_at(cards, 0)), alice);
    zpd_cards_free(cards);
    const void* octets = nullptr;
    size_t size = 0;
    ASSERT_EQ(zpd_card_octets(receiver.get(), number, &octets, &size), ZPD_OK);
    EXPECT_EQ(std::string(static_cast<const char*>(octets), size), card);
    EXPECT_EQ(zpd_card_remove(receiver.get(), number), ZPD_OK);
    EXPECT_EQ(zpd_card_octets(receiver.get(), number, &octets, &size), ZPD_NOT_FOUND);
    EXPECT_EQ(octets, nullptr);
    EXPECT_EQ(size, 0U);
}

TEST(library, a_full_outbox_and_a_killed_service_lose_nothing) {
    phones_t phones;
    EXPECT_EQ(zpd({"fault", "--dir", phones.folder / "modems", alice, "late-results=100"}).status, 0);
    phones.receiver.start({"--activate"});
    phones.sender.start({"--set", "outbox-size=2"});
    ASSERT_TRUE(phones.sender.ready() && phones.receiver.ready());
    const client_t sender = client_of(phones.sender);
    const events_t events(zpd_events_new(phones.sender.device().c_str(), 0, 0), zpd_events_free);
    const std::string large(30 * 128, 'l');
    const uint64_t first = hand_in(sender, large, bob);
    const uint64_t dropped = hand_in(sender, "dropped", bob);
    EXPECT_EQ(zpd_send(sender.get(), "second", 6, bob.c_str(), nullptr, nullptr), ZPD_FULL);
    zpd_message_t* message = nullptr;
    EXPECT_EQ(zpd_retry(sender.get(), dropped, 0, nullptr), ZPD_OK);
    ASSERT_EQ(zpd_cancel(sender.get(), dropped, &message), ZPD_OK);
    EXPECT_EQ(zpd_message_state(message), ZPD_MESSAGE_CANCELLED);
    zpd_message_free(message);
    EXPECT_EQ(zpd_retry(sender.get(), dropped, 0, nullptr), ZPD_NOT_NOW);
    EXPECT_EQ(zpd_cancel(sender.get(), 99, nullptr), ZPD_NOT_FOUND);
    const uint64_t second = hand_in(sender, "second", bob);

    ASSERT_TRUE(eventually([&] {
        zpd_message_t* now = nullptr;
        zpd_watch(sender.get(), first, 0, 1000, &now);
        const message_t owned(now, zpd_message_free);
        return zpd_message_sent(now) > 3;
    }));
    phones.sender.serve().signal(SIGKILL);
    phones.sender.serve().wait();
    EXPECT_EQ(zpd_outbox(sender.get(), 1, nullptr), ZPD_NO_SERVICE);
    phones.sender.start();
    EXPECT_EQ(zpd_message_state(wait_for(sender, first).get()), ZPD_MESSAGE_SENT);
    EXPECT_EQ(zpd_message_state(wait_for(sender, second).get()), ZPD_MESSAGE_SENT);
    zpd_messages_t* all = nullptr;
    ASSERT_EQ(zpd_outbox(sender.get(), 1, &all), ZPD_OK);
    EXPECT_EQ(zpd_messages_count(all), 3U);
    EXPECT_EQ(zpd_message_id(zpd_messages_at(all, 2)), second);
    zpd_messages_free(all);
    std::vector<uint64_t> told;
    for (int i = 0; i < 2; ++i) {
        told.push_back(zpd_event_message(next_of(events, ZPD_EVENT_SENT).get()));
    }
    EXPECT_THAT(told, testing::UnorderedElementsAre(first, second));
    EXPECT_TRUE(eventually([&] { return stored_cards(phones.receiver).contains("second"); }));
    EXPECT_TRUE(stored_cards(phones.receiver).contains(large));
}

}  // namespace
