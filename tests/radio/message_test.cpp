// Messages of the driver as octets for the modem, and card datagrams as the driver gets them.
#include "air/cdma.h"
#include "radio/ril_message.h"
#include "tests/radio/session_fixture.h"

namespace {

using base::to_hex;
using radio::card_datagram_of;
using radio::submission_of;
using radio::technology_t;

air::octets_t octets_of(std::string hex) {
    std::erase(hex, ' ');
    return *base::from_hex(hex);
}

// What both kinds have.
template <typename in_t>
std::string described(const in_t& in) {
    const SYSTEMTIME& time = in.stSCReceiveTime;
    return fmt::format("{} at {}-{}-{} {}:{}:{}, {}: {}", base::to_utf8(in.raOrigAddress.wszAddress), time.wYear,
                       time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond,
                       to_hex({in.rgbHdr, in.cbHdrLength}), std::string(in.rgbMsg, in.rgbMsg + in.cchMsgLength));
}

const std::string cdma_deliver =
    "0000021002 020E8885989918991A9A9A9818981800 060114 081E 00031FFFE8 010F00685828211FA11FA0001808100A08 "
    "0306261121120759";

TEST(message, card_datagrams_as_the_driver_gets_them) {
    const struct {
        const char* name;
        technology_t technology;
        std::string octets, in;
    } rows[] = {
        {"octets, one hour east of Greenwich", technology_t::gsm,
         "440C91947110325476000462111200715140 110B050423F423F40003010201 68656C6C6F",
         "+491701234567 at 2026-11-20 23:17:15, 050423F423F40003010201: hello"},
        {"text behind 7 octets, which are 8 septets", technology_t::gsm,
         "440B912120550501F0000062111231452300 0C06050423F40000C2E25106",
         "+12025550100 at 2026-11-21 13:54:32, 050423F40000: BEG2"},
        {"text behind 12 octets and 2 fill bits", technology_t::gsm,
         "440B912120550501F0000062111231452300 110B050423F400000003D80101088B47",
         "+12025550100 at 2026-11-21 13:54:32, 050423F400000003D80101: BEG"},
        {"gammu 1.42 -nokia", technology_t::gsm,
         "440B912120550501F0000062111231452300 440B050423F400000003DE0101 "
         "202C1E934E9D751894121B0AA78EF9B697D9E171B9A1A01699BA554C0693D56A35584C366B288A4EA2CE3A0C4A890D05",
         "+12025550100 at 2026-11-21 13:54:32, 050423F400000003DE0101: "
         "BEGIN:VCARD\r\nN:Lovelace\r\nTEL:+12025550123\r\nEND:VCARD\r\n"},
        {"CDMA", technology_t::cdma, cdma_deliver, "+12125550100 at 2026-11-21 12:7:59, 050423F423F40003010201: A"},
    };
    for (const auto& row : rows) {
        RILMESSAGE message;
        ASSERT_TRUE(radio::fill_card_message(row.technology, octets_of(row.octets), message)) << row.name;
        EXPECT_EQ(message.cbSize, 0xAC4U);
        EXPECT_EQ(message.dwFlags, RIL_MSGFLAG_HEADER);
        if (row.technology == technology_t::gsm) {
            EXPECT_EQ(message.dwType, RIL_MSGTYPE_IN_DELIVER);
            EXPECT_EQ(message.dwParams, 0x0D800A4EU);
            EXPECT_EQ(message.msgInDeliver.raOrigAddress.dwParams, 7U);
            EXPECT_EQ(message.msgInDeliver.raOrigAddress.dwType, RIL_ADDRTYPE_INTERNATIONAL);
            EXPECT_EQ(message.msgInDeliver.rmdDataCoding.dwAlphabet, RIL_DCSALPHABET_8BIT);
            EXPECT_EQ(described(message.msgInDeliver), row.in) << row.name;
        } else {
            EXPECT_EQ(message.dwType, RIL_MSGTYPE_IN_CDMADELIVER);
            EXPECT_EQ(message.msgInCDMADeliver.dwMsgPriority, 1U);
            EXPECT_EQ(card_datagram_of(row.technology, octets_of(row.octets))->sender, "1:12125550100");
            EXPECT_EQ(described(message.msgInCDMADeliver), row.in) << row.name;
        }
    }
}

TEST(message, only_card_datagrams_are_taken_and_their_copies_known) {
    const auto identity_of = [](const auto& change, technology_t technology = technology_t::cdma) {
        air::cdma::message_t message = *air::cdma::decode(octets_of(cdma_deliver));
        change(message);
        const auto datagram = card_datagram_of(technology, *air::cdma::encode(message));
        return datagram ? to_hex(datagram->identity) : "none";
    };
    const std::string identity = identity_of([](auto&) {});
    EXPECT_EQ(identity_of([](auto& message) { message.reply_sequence = 63; }), identity);
    EXPECT_EQ(identity_of([](auto& message) { message.reply_sequence.reset(); }), identity);
    EXPECT_NE(identity_of([](auto& message) { message.identifier = 1; }), identity);
    EXPECT_EQ(identity_of([](auto&) {}, technology_t::gsm), "none");
    for (void (*const change)(air::cdma::message_t&) : std::initializer_list<void (*)(air::cdma::message_t&)>{
             [](auto& message) { message.header_indicator = false; },
             [](auto& message) { message.user_data->characters[4] = 0xF5; },  // port 9205
             [](auto& message) { message.user_data->characters[0] = 0xFF; },
             [](auto& message) { message.user_data.reset(); },
             [](auto& message) { message.type = air::cdma::message_type_t::submit; }}) {
        EXPECT_EQ(identity_of(change), "none");
    }
    // The same from a memory that fills its records, and with more messages behind it; a time that reads alike.
    const air::octets_t first = *air::encode(incoming("x"));
    air::octets_t copy = first;
    copy[0] ^= air::bit_no_more_messages;
    copy.resize(175, 0xFF);
    air::octets_t another = first;
    another[16] |= 0x0F;
    EXPECT_EQ(card_datagram_of(technology_t::gsm, copy)->identity,
              card_datagram_of(technology_t::gsm, first)->identity);
    EXPECT_NE(card_datagram_of(technology_t::gsm, another)->identity,
              card_datagram_of(technology_t::gsm, first)->identity);
}

TEST(message, the_card_port_is_seen_at_any_bit) {
    EXPECT_TRUE(radio::names_card_port(octets_of("440C91 050423F4 00")));
    EXPECT_TRUE(radio::names_card_port(octets_of("050423F4")));
    EXPECT_TRUE(radio::names_card_port(octets_of(cdma_deliver)));
    EXPECT_FALSE(radio::names_card_port(octets_of("050423F5 050423")));
    EXPECT_FALSE(radio::names_card_port({}));
}

TEST(message, what_does_not_fit_on_cdma_is_no_submission) {
    EXPECT_FALSE(submission_of(outgoing_cdma("letters", "")));
    EXPECT_FALSE(submission_of(outgoing_cdma("1", std::string(129, 'x'))));
    EXPECT_TRUE(submission_of(outgoing_cdma("1", std::string(128, 'x'))));
}

}  // namespace
