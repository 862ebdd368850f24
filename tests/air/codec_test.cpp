// TPDUs and CDMA messages against the octets of vectors.txt, against random damage, and what their fields mean.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>

#include "air/cdma.h"
#include "air/tpdu.h"
#include "base/hex.h"

namespace {

using namespace air;
using base::from_hex;
using base::to_hex;

/// The octets decoded and encoded again: none where they do not decode, empty where they do not encode.
template <auto decode>
std::optional<octets_t> round_trip(const octets_t& octets) {
    const auto decoded = decode(octets);
    return decoded ? std::optional(encode(*decoded).value_or(octets_t{})) : std::nullopt;
}
const std::map<std::string, std::optional<octets_t> (*)(const octets_t&)> round_trips = {
    {"deliver", round_trip<decode_deliver>},
    {"submit", round_trip<decode_submit>},
    {"cdma", round_trip<air::cdma::decode>},
};

struct vector_t {
    std::string kind, name;
    octets_t octets, canonical;

    [[nodiscard]] std::optional<octets_t> again(const octets_t& changed) const { return round_trips.at(kind)(changed); }
};

// The blanks there are for the eye.
octets_t next_octets(std::istream& file) {
    std::string hex;
    std::getline(file, hex);
    std::erase(hex, ' ');
    return *from_hex(hex);
}

/// Those whose title begins with the mark, "" for the valid ones.
std::vector<vector_t> vectors(const std::string& mark) {
    std::vector<vector_t> all;
    std::ifstream file(ZPD_SOURCE "/tests/air/vectors.txt");
    for (std::string title; std::getline(file, title);) {
        if (title.empty() || title[0] == '#') {
            continue;
        }
        const std::string its_mark = title.starts_with("no ") ? "no " : title.starts_with("odd ") ? "odd " : "";
        const octets_t octets = next_octets(file);
        const octets_t canonical = its_mark == "odd " ? next_octets(file) : octets;
        const size_t begin = its_mark.size();
        if (its_mark == mark) {
            all.push_back({title.substr(begin, title.find(':') - begin), title, octets, canonical});
        }
    }
    return all;
}

TEST(codec, what_is_valid_or_odd_decodes_to_what_encodes_to_the_valid_octets) {
    for (const char* mark : {"", "odd "}) {
        for (const vector_t& vector : vectors(mark)) {
            EXPECT_EQ(to_hex(vector.again(vector.octets).value_or(octets_t{})), to_hex(vector.canonical))
                << vector.name;
        }
    }
}

TEST(codec, what_is_malformed_is_refused) {
    for (const vector_t& vector : vectors("no ")) {
        EXPECT_FALSE(vector.again(vector.octets)) << vector.name;
    }
}

// Whatever is read has a valid form, which is read as the same.
TEST(codec, damage_never_decodes_to_something_else) {
    const std::vector<vector_t> valid = vectors("");
    std::mt19937 random(20240904);
    size_t accepted = 0;
    for (int round = 0; round < 60'000; ++round) {
        const vector_t& vector = valid[random() % valid.size()];
        octets_t octets = vector.octets;
        for (unsigned changes = random() % 4; changes > 0; --changes) {
            uint8_t& octet = octets[random() % octets.size()];
            octet = static_cast<uint8_t>(random() % 2 == 0 ? random() : octet ^ 1U << random() % 8);
        }
        octets.resize(octets.size() - (random() % 8 == 0 ? random() % octets.size() : 0));
        if (const std::optional<octets_t> again = vector.again(octets)) {
            ++accepted;
            ASSERT_EQ(to_hex(*again), to_hex(vector.again(*again).value_or(octets_t{})))
                << vector.name << ": " << to_hex(octets);
            ASSERT_FALSE(again->empty()) << to_hex(octets);
        }
    }
    EXPECT_GT(accepted, 20'000U);
}

TEST(tpdu, fields_have_their_meaning) {
    const deliver_t odd = *decode_deliver(*from_hex("8C05A12143F50004621112017151080101"));
    EXPECT_EQ(odd.originator.text, "12345");
    EXPECT_TRUE(odd.reply_path && odd.loop_prevention && !odd.more_messages);
    EXPECT_EQ(odd.service_centre_time, (timestamp_t{26, 11, 21, 10, 17, 15, 0}));
    EXPECT_EQ(decode_deliver(*from_hex("0402812100046211120171519F00"))->service_centre_time.quarters_east, -79);
    submit_t submit = *decode_submit(*from_hex("01000281210004024142"));
    ++submit.user_data_length;
    EXPECT_FALSE(encode(submit)) << "the length disagrees with the data";
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
    for (const char* broken : {"", "07911326040000", "0C91111111111111111111111100"}) {
        EXPECT_FALSE(decode_pdu(*from_hex(broken))) << broken;
    }
    const std::pair<const char*, const char*> rows[] = {
        {"0A911326040000F0FFFFFFAA", "07911326040000F0AA"},  // filled up
        {"07111326040000F0AA", "07911326040000F0AA"},        // a type octet without its first bit
        {"0100AA", "00AA"},                                  // a type and no digit, as Chinese centres have it
        {"03D0E14DAA", "00AA"},                              // a name
    };
    for (const auto& [odd, canonical] : rows) {
        EXPECT_EQ(to_hex(*encode_pdu(decode_pdu(*from_hex(odd)).value())), canonical) << odd;
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

// A subaddress, a subparameter of another year, user data once more in another alphabet, reserved bits set.
TEST(cdma, what_is_unknown_is_skipped) {
    const auto message =
        air::cdma::decode(*from_hex("000002100202040126F2800302FFFF081300031000777701120103000A080104204820AC"));
    ASSERT_TRUE(message);
    EXPECT_EQ(message->identifier, 7);
    EXPECT_FALSE(message->user_data);
}

TEST(cdma, what_does_not_fit_is_not_encoded) {
    const std::initializer_list<void (*)(air::cdma::message_t&)> changes = {
        [](auto& message) { message.address.text.assign(256, '1'); },
        [](auto& message) { message.address.text = "1\r"; },
        [](auto& message) { message.user_data->characters.resize(256); },
        [](auto& message) { message.user_data->characters.resize(240); },
        [](auto& message) {
            message.user_data = {air::cdma::encoding_t::ascii, {0x80}};
        },
        [](auto& message) { message.priority = 4; },
        [](auto& message) { message.validity_absolute = {.year = 100}; },
    };
    const std::vector<vector_t> valid = vectors("");
    const auto submitted = std::ranges::find(valid, "cdma", &vector_t::kind);
    for (const auto change : changes) {
        air::cdma::message_t message = *air::cdma::decode(submitted->octets);
        change(message);
        EXPECT_FALSE(encode(message));
    }
}

}  // namespace
