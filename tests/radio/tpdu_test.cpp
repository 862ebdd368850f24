// TPDUs against octets worked out by hand from 3GPP TS 23.040, and against random damage.
#include "radio/tpdu.h"

#include <gtest/gtest.h>
#include <platform/linux/hex.h>

#include <random>

namespace {

using namespace tpdu;
using platform::from_hex;
using platform::to_hex;

/// The octets decoded and encoded again: none where they do not decode, empty where they do not encode.
template <auto decode>
std::optional<octets_t> round_trip(const octets_t& octets) {
    const auto decoded = decode(octets);
    return decoded ? std::optional(encode(*decoded).value_or(octets_t{})) : std::nullopt;
}

constexpr auto as_deliver = round_trip<decode_deliver>;
constexpr auto as_submit = round_trip<decode_submit>;

struct vector_t {
    const char* name;
    std::optional<octets_t> (*again)(const octets_t& octets);
    std::string hex;
};

const std::string septets_160 = "04028121000062111201715140A0" + std::string(280, '5');

const vector_t valid[] = {
    // 9.2.2.1: first octet, TP-OA, TP-PID, TP-DCS, TP-SCTS, TP-UDL, TP-UD.
    {"8-bit with header", as_deliver, "440C919471103254760004621112017151400F0B050423F423F40003010201414243"},
    {"7-bit recorded, zone minus zero", as_deliver, "040B911346610089F60000208062917314080CC8F71D14969741F977FD07"},
    {"alphanumeric, 11 septets", as_deliver, "0414D0C4F23C7D760390EF761900006211120171514000"},
    {"alphanumeric with an escape", as_deliver, "0406D0E14D1900006211120171514000"},
    {"alphanumeric, a semi-octet too long", as_deliver, "0408D0E170330800006211120171514000"},
    {"odd digits, national, reply path, loop prevention", as_deliver, "8C05A12143F50004621112017151080101"},
    {"letters among the digits", as_deliver, "040481BADC00046211120171514000"},
    {"no originator", as_deliver, "04008000006211120171514000"},
    {"UCS2", as_deliver, "040281210008621112017151400420AC0041"},
    {"160 septets fill 140 octets", as_deliver, septets_160},
    {"zone 79 quarters west", as_deliver, "0402812100046211120171519F00"},
    // 9.2.2.2: first octet, TP-MR, TP-DA, TP-PID, TP-DCS, [TP-VP,] TP-UDL, TP-UD.
    {"8-bit with header, seven days", as_submit, "51000C919471103254760004AD0F0B050423F423F40003010201414243"},
    {"no validity period", as_submit, "01000B911346610089F600000CC8F71D14969741F977FD07"},
    {"all flags, own reference", as_submit, "F5FF02812100040100"},
};

const vector_t malformed[] = {
    {"nothing", as_deliver, ""},
    {"a submit", as_deliver, "0100028121000400"},
    {"status report", as_deliver, "0602812100046211120171514000"},
    {"21 digits", as_deliver, "0415911032547698103254769801F000046211120171514000"},
    {"type octet without its top bit", as_deliver, "0402112100046211120171514000"},
    {"filler within the digits", as_deliver, "040381F1F200046211120171514000"},
    {"no filler after odd digits", as_deliver, "040381214300046211120171514000"},
    {"bits after the last septet", as_deliver, "0402D0E100006211120171514000"},
    {"user data one octet short", as_deliver, "040281210004621112017151400201"},
    {"an octet after the user data", as_deliver, "04028121000462111201715140010102"},
    {"no digit in the time", as_deliver, "0402812100046A11120171514000"},
    {"enhanced validity period", as_submit, "190002812100040100000000000000"},
    {"absolute validity period", as_submit, "190002812100040102030405060700"},
};

TEST(tpdu, what_is_valid_decodes_and_encodes_to_the_same_octets) {
    for (const vector_t& vector : valid) {
        EXPECT_EQ(to_hex(vector.again(*from_hex(vector.hex)).value_or(octets_t{})), vector.hex) << vector.name;
    }
}

TEST(tpdu, what_is_malformed_is_refused) {
    for (const vector_t& vector : malformed) {
        EXPECT_FALSE(vector.again(*from_hex(vector.hex))) << vector.name;
    }
    submit_t submit = *decode_submit(*from_hex("01000281210004024142"));
    ++submit.user_data_length;
    EXPECT_FALSE(encode(submit)) << "the length disagrees with the data";
}

TEST(tpdu, damage_never_decodes_to_something_else) {
    std::mt19937 random(20240904);
    size_t accepted = 0;
    for (int round = 0; round < 40000; ++round) {
        const vector_t& vector = valid[random() % std::size(valid)];
        octets_t octets = *from_hex(vector.hex);
        for (unsigned changes = random() % 3; changes > 0; --changes) {
            octets[random() % octets.size()] = static_cast<uint8_t>(random());
        }
        octets.resize(octets.size() - (random() % 8 == 0 ? random() % octets.size() : 0));
        if (const std::optional<octets_t> again = vector.again(octets)) {
            ++accepted;
            ASSERT_EQ(to_hex(*again), to_hex(octets)) << "round " << round;
        }
    }
    EXPECT_GT(accepted, 10000U);
}

TEST(tpdu, fields_have_their_meaning) {
    const deliver_t odd = *decode_deliver(*from_hex("8C05A12143F50004621112017151080101"));
    EXPECT_EQ(odd.originator.text, "12345");
    EXPECT_TRUE(odd.reply_path && odd.loop_prevention && !odd.more_messages);
    EXPECT_EQ(odd.service_centre_time, (timestamp_t{26, 11, 21, 10, 17, 15, 0, true}));
    EXPECT_EQ(decode_deliver(*from_hex("0402812100046211120171519F00"))->service_centre_time.quarters_east, -79);
}

TEST(tpdu, numbers_as_people_write_them) {
    for (const char* number : {"+1", "0170123", "12345678901234567890", "+12345678901234567890"}) {
        EXPECT_EQ(number_from_address(address_from_number(number).value_or(address_t{})), number);
    }
    for (const char* number : {"", "+", "12a", "Maria", "+49 170", "++1", "123456789012345678901"}) {
        EXPECT_FALSE(address_from_number(number)) << number;
    }
}

TEST(tpdu, alphanumeric_originators) {
    const auto originator = [](const char* hex) {
        return number_from_address(decode_deliver(*from_hex(hex))->originator);
    };
    EXPECT_EQ(originator("0414D0C4F23C7D760390EF761900006211120171514000"), "Design@Home");
    EXPECT_EQ(originator("0406D0E14D1900006211120171514000"), "a€");
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
    const std::pair<const char*, std::optional<uint16_t>> rows[] = {
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
    for (const auto& [header, port] : rows) {
        EXPECT_EQ(destination_port(*from_hex(header)), port) << header;
    }
    EXPECT_FALSE(split_user_data(octets_t{}));
    EXPECT_FALSE(split_user_data(octets_t{2, 1}));
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
