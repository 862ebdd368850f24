// TPDUs against octets worked out by hand from 3GPP TS 23.040, and against random damage.
#include "radio/tpdu.h"

#include <gtest/gtest.h>
#include <platform/linux/hex.h>

#include <random>

namespace {

using namespace tpdu;
using platform::from_hex;
using platform::to_hex;

const octets_t card_header = *from_hex("050423F423F40003010201");  // ports 9204, part 1 of 2 of message 1

struct vector_t {
    const char* name;
    const char* hex;
};

// 9.2.2.1: first octet, TP-OA, TP-PID, TP-DCS, TP-SCTS, TP-UDL, TP-UD.
const vector_t delivers[] = {
    {"8-bit with header", "440C919471103254760004621112017151400F0B050423F423F40003010201414243"},
    {"7-bit recorded, zone minus zero", "040B911346610089F60000208062917314080CC8F71D14969741F977FD07"},
    {"alphanumeric, 11 septets", "0414D0C4F23C7D760390EF761900006211120171514000"},
    {"alphanumeric with an escape", "0406D0E14D1900006211120171514000"},
    {"alphanumeric, a semi-octet too long", "0408D0E170330800006211120171514000"},
    {"odd digits, national, reply path, loop prevention", "8C05A12143F50004621112017151080101"},
    {"letters among the digits", "040481BADC00046211120171514000"},
    {"no originator", "04008000006211120171514000"},
    {"UCS2", "040281210008621112017151400420AC0041"},
    {"160 septets fill 140 octets", nullptr},
    {"zone 79 quarters west", "0402812100046211120171519F00"},
};

octets_t octets_of(const vector_t& vector) {
    if (vector.hex != nullptr) {
        return *from_hex(vector.hex);
    }
    octets_t octets = *from_hex("04028121000062111201715140A0");
    octets.resize(octets.size() + 140, 0x55);
    return octets;
}

// 9.2.2.2: first octet, TP-MR, TP-DA, TP-PID, TP-DCS, [TP-VP,] TP-UDL, TP-UD.
const vector_t submits[] = {
    {"8-bit with header, seven days", "51000C919471103254760004AD0F0B050423F423F40003010201414243"},
    {"no validity period", "01000B911346610089F600000CC8F71D14969741F977FD07"},
    {"all flags, own reference", "F5FF02812100040100"},
};

TEST(tpdu, delivers_decode_and_encode_to_the_same_octets) {
    for (const vector_t& vector : delivers) {
        const octets_t octets = octets_of(vector);
        const std::optional<deliver_t> deliver = decode_deliver(octets);
        ASSERT_TRUE(deliver) << vector.name;
        EXPECT_EQ(to_hex(encode(*deliver).value_or(octets_t{})), to_hex(octets)) << vector.name;
    }
}

TEST(tpdu, submits_decode_and_encode_to_the_same_octets) {
    for (const vector_t& vector : submits) {
        const octets_t octets = octets_of(vector);
        const std::optional<submit_t> submit = decode_submit(octets);
        ASSERT_TRUE(submit) << vector.name;
        EXPECT_EQ(to_hex(encode(*submit).value_or(octets_t{})), to_hex(octets)) << vector.name;
    }
}

TEST(tpdu, deliver_fields) {
    const deliver_t deliver = *decode_deliver(octets_of(delivers[0]));
    EXPECT_EQ(number_from_address(deliver.originator), "+491701234567");
    EXPECT_TRUE(deliver.header_indicator);
    EXPECT_FALSE(deliver.more_messages);
    EXPECT_EQ(deliver.service_centre_time, (timestamp_t{26, 11, 21, 10, 17, 15, 4}));
    const user_data_parts_t parts = *split_user_data(deliver.user_data);
    EXPECT_EQ(octets_t(parts.header.begin(), parts.header.end()), card_header);
    EXPECT_EQ(std::string(parts.body.begin(), parts.body.end()), "ABC");
    EXPECT_EQ(decode_deliver(octets_of(delivers[10]))->service_centre_time.quarters_east, -79);
    const deliver_t odd = *decode_deliver(octets_of(delivers[5]));
    EXPECT_EQ(odd.originator.text, "12345");
    EXPECT_TRUE(odd.reply_path && odd.loop_prevention);
}

TEST(tpdu, submit_of_a_card_datagram) {
    submit_t submit;
    submit.destination = *address_from_number("+491701234567");
    submit.data_coding = data_coding_8bit;
    submit.validity_period = 0xAD;
    submit.header_indicator = true;
    submit.user_data = *join_user_data(card_header, octets_t{'A', 'B', 'C'});
    submit.user_data_length = static_cast<uint8_t>(submit.user_data.size());
    EXPECT_EQ(to_hex(*encode(submit)), submits[0].hex);
    ++submit.user_data_length;
    EXPECT_FALSE(encode(submit)) << "the length disagrees with the data";
}

TEST(tpdu, what_is_malformed_is_refused) {
    const vector_t broken[] = {
        {"nothing", ""},
        {"a submit", "0100028121000400"},
        {"status report", "0602812100046211120171514000"},
        {"21 digits", "0415911032547698103254769801F000046211120171514000"},
        {"type octet without its top bit", "0402112100046211120171514000"},
        {"filler within the digits", "040381F1F200046211120171514000"},
        {"no filler after odd digits", "040381214300046211120171514000"},
        {"bits after the last septet", "0402D0E100006211120171514000"},
        {"user data one octet short", "040281210004621112017151400201"},
        {"an octet after the user data", "04028121000462111201715140010102"},
        {"no digit in the time", "0402812100046A11120171514000"},
    };
    for (const vector_t& row : broken) {
        EXPECT_FALSE(decode_deliver(octets_of(row))) << row.name;
    }
    EXPECT_FALSE(decode_submit(*from_hex("190002812100040100000000000000"))) << "absolute validity period";
    EXPECT_FALSE(decode_submit(*from_hex("190002812100040102030405060700"))) << "absolute validity period";
}

TEST(tpdu, damage_never_decodes_to_something_else) {
    std::mt19937 random(20240904);
    size_t accepted = 0;
    for (int round = 0; round < 40000; ++round) {
        const bool deliver = round % 2 == 0;
        octets_t octets = deliver ? octets_of(delivers[random() % std::size(delivers)])
                                  : octets_of(submits[random() % std::size(submits)]);
        for (unsigned changes = random() % 3; changes > 0; --changes) {
            octets[random() % octets.size()] = static_cast<uint8_t>(random());
        }
        octets.resize(octets.size() - (random() % 8 == 0 ? random() % octets.size() : 0));
        std::optional<octets_t> again;
        if (deliver) {
            const std::optional<deliver_t> decoded = decode_deliver(octets);
            again = decoded ? encode(*decoded) : octets;
            accepted += decoded.has_value();
        } else {
            const std::optional<submit_t> decoded = decode_submit(octets);
            again = decoded ? encode(*decoded) : octets;
            accepted += decoded.has_value();
        }
        ASSERT_EQ(to_hex(again.value_or(octets_t{})), to_hex(octets)) << "round " << round;
    }
    EXPECT_GT(accepted, 10000U);
}

TEST(tpdu, numbers_as_people_write_them) {
    const std::string digits20 = "12345678901234567890";
    for (const std::string& number : {std::string("+1"), std::string("0170123"), digits20, "+" + digits20}) {
        const std::optional<address_t> address = address_from_number(number);
        ASSERT_TRUE(address) << number;
        EXPECT_EQ(number_from_address(*address), number);
    }
    for (const std::string& number :
         {std::string(), std::string("+"), std::string("12a"), std::string("Maria"), std::string("+49 170"),
          std::string("++1"), digits20 + "1", std::string(300, '1')}) {
        EXPECT_FALSE(address_from_number(number)) << number;
    }
}

TEST(tpdu, alphanumeric_originators) {
    EXPECT_EQ(number_from_address(decode_deliver(octets_of(delivers[2]))->originator), "Design@Home");
    EXPECT_EQ(number_from_address(decode_deliver(octets_of(delivers[3]))->originator), "a€");
    address_t address{number_type_t::alphanumeric, 0, "A\r\nB\x1B"};
    EXPECT_EQ(number_from_address(address), "A\uFFFD\uFFFDB\uFFFD");
    submit_t submit;
    submit.destination = address;
    EXPECT_EQ(decode_submit(*encode(submit))->destination, address);
    submit.destination.text = "日本";
    EXPECT_FALSE(encode(submit)) << "no such characters";
    submit.destination.text = "twelve chars";
    EXPECT_FALSE(encode(submit)) << "84 bits are 21 semi-octets";
}

TEST(tpdu, service_centre_addresses) {
    const std::optional<pdu_t> pdu = decode_pdu(*from_hex("07911326040000F0AABB"));
    ASSERT_TRUE(pdu);
    EXPECT_EQ(number_from_address(pdu->service_centre), "+31624000000");
    EXPECT_EQ(to_hex(*encode_pdu(*pdu)), "07911326040000F0AABB");
    EXPECT_EQ(to_hex(*encode_pdu({{}, {0xAA}})), "00AA");
    EXPECT_EQ(decode_pdu(octets_t{0})->tpdu, octets_t{});
    for (const char* broken : {"", "0191", "07911326040000", "0C91111111111111111111111100", "03D0E14D00"}) {
        EXPECT_FALSE(decode_pdu(*from_hex(broken))) << broken;
    }
}

TEST(tpdu, ports_of_headers) {
    const struct {
        const char* header;
        std::optional<uint16_t> port;
    } rows[] = {
        {"050423F423F4", 9204},
        {"0003010201050423F40000", 9204},
        {"0402F4E2", 0xF4},                    // 8-bit element
        {"0504158A0000050423F40000", 0x158A},  // the first counts
        {"050323F423050423F40000", 9204},      // an element of a wrong length is none
        {"0003010201", std::nullopt},          // concatenation only
        {"050423F423", std::nullopt},          // cut off
        {"05", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(destination_port(*from_hex(row.header)), row.port) << row.header;
    }
    EXPECT_FALSE(split_user_data(octets_t{}));
    EXPECT_FALSE(split_user_data(octets_t{2, 1}));
    EXPECT_TRUE(join_user_data(octets_t(11), octets_t(128)));
    EXPECT_FALSE(join_user_data(octets_t(11), octets_t(129)));
    EXPECT_FALSE(join_user_data({}, octets_t(1)));
}

TEST(tpdu, alphabets) {  // 3GPP TS 23.038 4
    const std::pair<uint8_t, alphabet_t> rows[] = {
        {0x00, alphabet_t::gsm7},    {0x04, alphabet_t::octets8}, {0x08, alphabet_t::ucs2},
        {0x0C, alphabet_t::gsm7},    {0x15, alphabet_t::octets8}, {0x24, alphabet_t::compressed},
        {0x44, alphabet_t::octets8}, {0x84, alphabet_t::gsm7},    {0xC4, alphabet_t::gsm7},
        {0xE0, alphabet_t::ucs2},    {0xF5, alphabet_t::octets8}, {0xF1, alphabet_t::gsm7},
    };
    for (const auto& [coding, alphabet] : rows) {
        EXPECT_EQ(alphabet_of(coding), alphabet) << static_cast<int>(coding);
    }
}

}  // namespace
