// CDMA messages against octets worked out by hand from 3GPP2 C.S0015, against random damage, and as the driver's.
#include "radio/cdma.h"

#include <algorithm>
#include <random>

#include "radio/ril_message.h"
#include "tests/radio/session_fixture.h"

namespace {

using namespace cdma;
using platform::from_hex;
using platform::to_hex;
using radio::technology_t;

// Each: message type, then parameters (identifier, length, value): 00 teleservice, 02 or 04 address, 06 bearer reply
// option, 08 bearer data; in it likewise 00 message identifier, 01 user data, 03 and the rest.
const std::string card_user_data = "010F00685828211FA11FA0001808100A08";  // 13 octets: a header of 11 and "A"
const std::string submit =                                                // 2125550100 as DTMF, 0x0301, seven days
    "0000021002 04070288495568 6A80 081F 0003203018" + card_user_data + "0501AD 080100 090100";
const std::string deliver =  // +12125550100 as characters, reply sequence 5, 0xFFFE, 2026-11-21 12:07:59
    "0000021002 020E8885989918991A9A9A9818981800 060114 081E 00031FFFE8" + card_user_data + "0306261121120759";

struct vector_t {
    const char* name;
    std::string hex;
};
const vector_t valid[] = {
    {"a submitted card datagram", submit},
    {"a delivered one", deliver},
    {"all that is known, 7-bit ASCII, national number of unknown plan",
     "0000021005 040690019C989880 0827 0003200000 010410148D20 0306991231235959 0406000101000000 0501F5 0801C0 090140 "
     "0F0180"},
    {"an electronic mail address, no user data", "0000021002 0208D0330A0311731B20 0805 0003100010"},
    {"star and hash", "0000021002 02040126F280 0805 0003100070"},
};

// The spaces of the tables above are for the eye.
tpdu::octets_t octets_of(std::string hex) {
    std::erase(hex, ' ');
    return *from_hex(hex);
}

TEST(cdma, what_is_valid_decodes_and_encodes_to_the_same_octets) {
    for (const vector_t& vector : valid) {
        const std::optional<message_t> message = decode(octets_of(vector.hex));
        ASSERT_TRUE(message) << vector.name;
        EXPECT_EQ(encode(*message), octets_of(vector.hex)) << vector.name << ' ' << to_hex(*encode(*message));
    }
}

TEST(cdma, what_is_malformed_is_refused_and_what_is_unknown_skipped) {
    const std::string begin = "0000021002 02040126F280";
    const std::vector<vector_t> malformed = {
        {"nothing", ""},
        {"broadcast", "01" + begin.substr(2) + "08050003100070"},
        {"no bearer data", begin},
        {"no originating address", "0000021002 08050003100070"},
        {"no teleservice", "00 02040126F280 08050003100070"},
        {"an acknowledgement", begin + "08050003400070"},
        {"no message identifier", begin + "08030801C0"},
        {"a message identifier cut short", begin + "080400021000"},
        {"bearer data cut short", begin + "080600031000"},
        {"user data cut short", begin + "080A0003100070 0103001000"},
        {"DTMF digit 0", "0000021002 0203004000 08050003100070"},
        {"a line end in an address", "0000021002 0204 80808680 08050003100070"},
        {"no digit in the time", begin + "080D0003100070 0306261121120A59"},
    };
    for (const vector_t& vector : malformed) {
        EXPECT_FALSE(decode(octets_of(vector.hex))) << vector.name;
    }
    // A subaddress, a subparameter of another year, the user data of another alphabet, reserved bits set.
    const std::optional<message_t> message = decode(octets_of(begin + "0302FFFF 080E 0003100077 770112 0104204820AC"));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->identifier, 7);
    EXPECT_FALSE(message->user_data);
}

TEST(cdma, what_does_not_fit_is_not_encoded) {
    const std::initializer_list<void (*)(message_t&)> changes = {
        [](message_t& message) { message.address.text.assign(256, '1'); },
        [](message_t& message) { message.address.text = "1\r"; },
        [](message_t& message) { message.user_data->characters.resize(256); },
        [](message_t& message) { message.user_data->characters.resize(240); },
        [](message_t& message) {
            message.user_data = {encoding_t::ascii, {0x80}};
        },
        [](message_t& message) { message.priority = 4; },
        [](message_t& message) { message.validity_absolute = {.year = 100}; },
    };
    for (const auto change : changes) {
        message_t message = *decode(octets_of(submit));
        change(message);
        EXPECT_FALSE(encode(message));
    }
}

TEST(cdma, what_random_damage_leaves_decodable_encodes_to_an_equal_message) {
    std::mt19937 random(20261121);
    size_t decodable = 0;
    for (int round = 0; round < 20'000; ++round) {
        tpdu::octets_t octets = octets_of(valid[random() % std::size(valid)].hex);
        for (unsigned changes = random() % 4; changes > 0; --changes) {
            octets[random() % octets.size()] ^= static_cast<uint8_t>(1U << random() % 8);
        }
        octets.resize(octets.size() - (random() % 4 == 0 ? random() % octets.size() : 0));
        if (const std::optional<message_t> message = decode(octets)) {
            ++decodable;
            const std::optional<tpdu::octets_t> again = encode(*message);
            ASSERT_TRUE(again) << to_hex(octets);
            EXPECT_EQ(decode(*again), message) << to_hex(octets);
        }
    }
    EXPECT_GT(decodable, 5'000U);
}

TEST(cdma, the_driver_s_messages_go_out_as_octets_and_come_in_as_they_were) {
    const RILMESSAGE message = outgoing_cdma("2125550100", "A");
    const std::optional<radio::submission_t> submission = radio::submission_of(message);
    ASSERT_TRUE(submission);
    EXPECT_EQ(submission->technology, technology_t::cdma);
    EXPECT_EQ(to_hex(submission->octets), to_hex(octets_of(submit)));
    EXPECT_EQ(submission->reference, 0x0301) << "the card, and the part that tells its datagrams apart";

    EXPECT_FALSE(radio::submission_of(outgoing_cdma("letters", "")));
    EXPECT_FALSE(radio::submission_of(outgoing_cdma("1", std::string(129, 'x'))));
    EXPECT_TRUE(radio::submission_of(outgoing_cdma("1", std::string(128, 'x'))));

    const auto datagram = radio::card_datagram_of(technology_t::cdma, octets_of(deliver));
    ASSERT_TRUE(datagram);
    EXPECT_EQ(datagram->sender, "1:12125550100");
    EXPECT_EQ(to_hex(datagram->header), "050423F423F40003010201");
    EXPECT_EQ(datagram->body, octets_of("41"));
    const RIL_IN_CDMADELIVER& in = datagram->message.msgInCDMADeliver;
    EXPECT_EQ(datagram->message.dwType, RIL_MSGTYPE_IN_CDMADELIVER);
    EXPECT_EQ(platform::to_utf8(in.raOrigAddress.wszAddress), "+12125550100");
    EXPECT_EQ(tpdu::octets_t(in.rgbHdr, in.rgbHdr + in.cbHdrLength), datagram->header);
    EXPECT_EQ(std::pair(in.cchMsgLength, in.rgbMsg[0]), std::pair(DWORD{1}, BYTE{'A'}));
    EXPECT_EQ(std::pair(in.stSCReceiveTime.wYear, in.stSCReceiveTime.wMinute), std::pair(WORD{2026}, WORD{7}));
}

TEST(cdma, only_card_datagrams_are_taken_and_their_copies_known) {
    const auto identity_of = [](const auto& change, technology_t technology = technology_t::cdma) {
        message_t message = *decode(octets_of(deliver));
        change(message);
        const auto datagram = radio::card_datagram_of(technology, *encode(message));
        return datagram ? to_hex(datagram->identity) : "none";
    };
    const std::string identity = identity_of([](message_t&) {});
    EXPECT_EQ(identity_of([](message_t& message) { message.reply_sequence = 63; }), identity);
    EXPECT_EQ(identity_of([](message_t& message) { message.reply_sequence.reset(); }), identity);
    EXPECT_NE(identity_of([](message_t& message) { message.identifier = 1; }), identity);
    EXPECT_EQ(identity_of([](message_t&) {}, technology_t::gsm), "none");
    for (void (*const change)(message_t&) : std::initializer_list<void (*)(message_t&)>{
             [](message_t& message) { message.header_indicator = false; },
             [](message_t& message) { message.user_data->characters[4] = 0xF5; },  // port 9205
             [](message_t& message) { message.user_data->characters[0] = 0xFF; },
             [](message_t& message) { message.user_data.reset(); },
             [](message_t& message) { message.type = message_type_t::submit; }}) {
        EXPECT_EQ(identity_of(change), "none");
    }
}

}  // namespace
