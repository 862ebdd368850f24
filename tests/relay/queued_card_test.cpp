/// A card in the queue is whoever's who may publish there: what a relay makes of it, and what it refuses, in words.
#include "relay/queued_card.h"

#include <gmock/gmock.h>

#include "relay/fleet_names.h"
#include "relay/service_json.h"

namespace {

using testing::HasSubstr;

using headers_t = std::vector<std::pair<const char*, std::string>>;

nats::message_t message(const std::string& octets, const headers_t& headers) {
    nats::message_t message("zpd.cards.send.any", octets);
    for (const auto& [name, value] : headers) {
        static_cast<void>(natsMsgHeader_Set(message.get(), name, value.c_str()));  // as it is
    }
    return message;
}

const std::string number = "+12025550199";

TEST(queued_card, of_another_program_needs_octets_and_a_number) {
    const auto card = fleet::read_card(message("BEGIN:VCARD", {{fleet::header_to, number}}));
    ASSERT_TRUE(card) << card.failure().text;
    EXPECT_EQ(card->octets, "BEGIN:VCARD");
    EXPECT_EQ(card->number, number);
    EXPECT_TRUE(card->is_utf8);
    EXPECT_FALSE(card->long_reference);
    EXPECT_EQ(card->expires, 0U);
}

TEST(queued_card, a_files_name_is_text_without_controls_and_of_bounded_length) {
    for (const std::string& file : {std::string("a\x1b[31m\tb.vcf"), std::string(400, 'f'), std::string(255, '\x1b')}) {
        const auto card = fleet::read_card(message("x", {{fleet::header_to, number}, {fleet::header_file, file}}));
        ASSERT_TRUE(card) << card.failure().text;
        EXPECT_LE(card->file.size(), 255U);
        EXPECT_EQ(card->file.find_first_of("\x1b\t"), std::string::npos);
    }
}

TEST(queued_card, what_is_none_is_refused_in_words) {
    struct row_t {
        const char* octets;
        headers_t headers;
        const char* words;
    };
    for (const row_t& row : std::vector<row_t>{
             {"", {{fleet::header_to, number}}, "the card is empty"},
             {"x", {}, "there is no Zpd-To"},
             {"x", {{fleet::header_to, number}, {fleet::header_utf8, "yes"}}, "Zpd-Utf8 is neither 0 nor 1"},
             {"x", {{fleet::header_to, number}, {fleet::header_long_reference, "01"}}, "Zpd-Long-Reference is neither"},
             {"x", {{fleet::header_to, number}, {fleet::header_expires, "tomorrow"}}, "Zpd-Expires is no time"},
             {"x", {{fleet::header_to, number}, {fleet::header_expires, "-1"}}, "Zpd-Expires is no time"},
             {"x", {{fleet::header_to, number}, {fleet::header_expires, "18446744073709551615"}}, "Zpd-Expires is no"},
             {"x", {{fleet::header_to, number}, {fleet::header_expires, "99999999999999999999"}}, "Zpd-Expires is no"},
             // A relay publishes there with its own permissions.
             {"x", {{fleet::header_to, number}, {fleet::header_reply, "zpd.cards.order.cancel"}}, "Zpd-Reply is no"},
             {"x", {{fleet::header_to, number}, {fleet::header_reply, "$JS.API.STREAM.PURGE.x"}}, "Zpd-Reply is no"},
             {"x", {{fleet::header_to, number}, {fleet::header_reply, "_INBOX.>"}}, "Zpd-Reply is no address"},
             {"x", {{fleet::header_to, number}, {fleet::header_reply, "_INBOX.a b"}}, "Zpd-Reply is no address"},
         }) {
        const auto card = fleet::read_card(message(row.octets, row.headers));
        ASSERT_FALSE(card) << row.words;
        EXPECT_THAT(card.failure().text, HasSubstr(row.words));
    }
}

/// After all nodes of a cluster had ended at once, two cards had the same number.
TEST(queued_card, another_card_with_the_same_id_has_another_token) {
    const auto digest_of = [](const char* octets, const std::string& to) {
        return fleet::digest_of(*fleet::read_card(message(octets, {{fleet::header_to, to}})));
    };
    const uint64_t digest = digest_of("BEGIN:VCARD", number);
    EXPECT_NE(digest, digest_of("BEGIN:VCARD", "+12025550198"));
    EXPECT_NE(digest, digest_of("BEGIN:CARDS", number));
    const std::string token = fleet::token_of(1795, 7, digest);
    const auto name = fleet::card_of(token, 1795);
    ASSERT_TRUE(name);
    EXPECT_EQ(name->card, 7U);
    EXPECT_EQ(name->digest, digest);
    for (const std::string& other : {token + "0", token.substr(0, token.rfind('-')), std::string("fleet-703-0-1")}) {
        EXPECT_FALSE(fleet::card_of(other, 1795)) << other;
    }
    EXPECT_FALSE(fleet::card_of(token, 1796)) << "of another stream";
}

}  // namespace
