// What the radio tells of datagrams, and what becomes of their messages.
#include "service/in_flight.h"

#include <gmock/gmock.h>

#include "base/hex.h"

namespace {

using radio::outgoing_t;
using enum radio::submission_outcome_t::kind_t;
using enum radio::final_result_t::kind_t;
using kind_t = ending_t::kind_t;

const std::string ann = "+12025550100";

outgoing_t datagram(uint8_t width, uint16_t reference, uint8_t part, uint8_t parts, const std::string& body,
                    const std::string& number = ann) {
    return {number, {width, reference, part, parts}, {body.begin(), body.end()}};
}

radio::submission_outcome_t refusal(int code) {
    return {refused, {cms_error, code}};
}

outbox_message_t message(int64_t id, const std::string& octets, int64_t datagrams, bool long_reference = false) {
    outbox_message_t message;
    message.id = id;
    message.number = ann;
    message.long_reference = long_reference;
    message.datagrams = datagrams;
    message.octets = octets;
    return message;
}

TEST(in_flight, a_datagram_is_found_by_its_reference_and_before_by_its_octets) {
    struct row_t {
        const char* what;
        outbox_message_t message;
        std::optional<uint32_t> driver_message;
        outgoing_t datagram;
        bool is_of;
    };
    const outbox_message_t single = message(1, "one", 1);
    const outbox_message_t parts = message(1, "onetwo", 2);
    const outbox_message_t wide = message(1, "onetwo", 2, true);
    const row_t rows[] = {
        {"single", single, {}, datagram(0, 0, 1, 1, "one"), true},
        {"single, known", single, 0x1234, datagram(0, 0, 1, 1, "one"), true},
        {"other octets", single, 0x1234, datagram(0, 0, 1, 1, "ona"), false},
        {"other number", single, {}, datagram(0, 0, 1, 1, "one", "12025550100"), false},
        {"8 bits", parts, 0x1234, datagram(1, 0x34, 2, 2, "two"), true},
        {"8 bits, repeated octets", parts, 0x1234, datagram(1, 0x34, 2, 2, "who knows"), true},
        {"other reference", parts, 0x1234, datagram(1, 0x35, 2, 2, "two"), false},
        {"16 bits", wide, 0x51234, datagram(2, 0x1234, 1, 2, "one"), true},
        {"16 bits, other", wide, 0x51234, datagram(2, 0x0034, 1, 2, "one"), false},
        {"other width", wide, 0x51234, datagram(1, 0x34, 1, 2, "one"), false},
        {"other count", parts, 0x1234, datagram(1, 0x34, 1, 3, "one"), false},
        {"not known yet", parts, {}, datagram(1, 0x99, 2, 2, "two"), true},
        {"not known yet, other octets", parts, {}, datagram(1, 0x99, 2, 2, "six"), false},
        {"no part of it", parts, 0x1234, datagram(1, 0x34, 3, 2, "two"), false},
    };
    for (const row_t& row : rows) {
        in_flight_t flight([] {});
        flight.begin(row.message);
        if (row.driver_message) {
            flight.name(1, *row.driver_message);
        }
        flight.submitted(row.datagram, {sent});
        flight.submitted(row.datagram, {sent});  // a repetition counts once
        EXPECT_EQ(flight.look()[0].sent, row.is_of ? 1 : 0) << row.what;
        EXPECT_EQ(flight.outstanding(), row.message.datagrams - (row.is_of ? 1 : 0)) << row.what;
        const bool completes = row.is_of && row.message.datagrams == 1;
        EXPECT_EQ(flight.give_up(1, {}), !completes) << row.what;
        EXPECT_EQ(flight.is_given_up(row.datagram) && row.datagram.place.part <= row.message.datagrams,
                  row.is_of && !completes)
            << row.what;
    }
    in_flight_t flight([] {});
    flight.begin(single);
    flight.begin(message(2, "one", 1));
    for (const size_t confirmed : {1U, 2U}) {
        flight.submitted(datagram(0, 0, 1, 1, "one"), {sent});
        const auto states = flight.look();
        EXPECT_EQ(std::ranges::count_if(states, &in_flight_t::state_t::complete), confirmed) << "equal cards in order";
        EXPECT_TRUE(states[0].complete);
    }
}

// Numbers as the outbox has them, of either kind of network.
TEST(in_flight, what_goes_on_the_air_is_known_by_its_number_and_place) {
    for (const char* number : {"+12025550100", "12025550100", "112"}) {
        const air::octets_t user_data = *base::from_hex(
            "0B050423F423F40003220201"
            "6F6E65");
        air::submit_t gsm;
        gsm.destination = *air::address_from_number(number);
        gsm.header_indicator = true;
        gsm.user_data = user_data;
        air::cdma::message_t cdma;
        cdma.address = *air::address_from_number(number);
        cdma.header_indicator = true;
        cdma.user_data = {air::cdma::encoding_t::octets, user_data};
        for (const radio::submission_t& submission : {radio::submission_t{gsm}, radio::submission_t{cdma}}) {
            in_flight_t flight([] {});
            outbox_message_t out = message(1, "onetwo", 2);
            out.number = number;
            flight.begin(out);
            flight.name(1, 0x722);
            flight.submitted(radio::outgoing_of(submission), {sent});
            EXPECT_EQ(flight.look()[0].sent, 1) << number;
        }
    }
}

TEST(in_flight, what_becomes_of_a_message_follows_from_the_outcome) {
    struct row_t {
        radio::submission_outcome_t outcome;
        int64_t refusals, at_once;
        std::optional<kind_t> kind;
        const char* reason;
    };
    const row_t rows[] = {
        {refusal(1), 1, 0, kind_t::refused, "(+CMS ERROR: 1): check the number"},
        {refusal(22), 1, 0, kind_t::later, "(+CMS ERROR: 22): the receiver's memory is full"},
        {refusal(22), 20, 0, kind_t::later, "(+CMS ERROR: 22)"},
        {refusal(22), 21, 0, kind_t::refused, "(+CMS ERROR: 22)"},
        {refusal(41), 1, 0, {}, ""},
        {refusal(41), 3, 2, {}, ""},
        {refusal(41), 4, 3, kind_t::later, "(+CMS ERROR: 41)"},
        {refusal(331), 1, 0, {}, ""},
        {refusal(310), 1, 9, {}, ""},
        {refusal(512), 1, 0, kind_t::later, "(+CMS ERROR: 512)"},
        {{refused, {error, 0}}, 1, 0, kind_t::later, "refused without a reason"},
        {{refused, {cme_error, 4}}, 1, 0, kind_t::refused, "(+CME ERROR: 4)"},
        {{unknown}, 1, 0, {}, ""},
        {{unknown}, 21, 0, kind_t::refused, "the modem does not tell what becomes of it: look after the modem"},
    };
    for (const row_t& row : rows) {
        const auto ending = ending_after(row.outcome, row.refusals, row.at_once);
        EXPECT_EQ(ending ? std::optional(ending->kind) : std::nullopt, row.kind) << words_of(row.outcome.result);
        EXPECT_THAT(ending ? ending->reason.text + ": " + ending->reason.advice : "", testing::HasSubstr(row.reason));
    }
}

TEST(in_flight, a_message_is_given_up_after_refusals_that_nothing_comes_between) {
    int woken = 0;
    in_flight_t flight([&] { ++woken; });
    flight.begin(message(1, std::string(900, 'x'), 9));
    flight.name(1, 7);
    const auto part = [](uint8_t number) { return datagram(1, 7, number, 9, "x"); };
    for (uint8_t number = 1; number <= 5; ++number) {
        flight.submitted(part(number), refusal(41));
        flight.submitted(part(number), {sent});
        flight.submitted(part(number + 1), {not_out});
        flight.submitted(part(number + 1), refusal(331));
    }
    EXPECT_FALSE(flight.look()[0].ending) << "it gets on";
    EXPECT_EQ(flight.look()[0].refusals, 5);
    for (int times = 0; times < 4; ++times) {
        EXPECT_FALSE(flight.is_given_up(part(6)));
        flight.submitted(part(6), refusal(41));
    }
    EXPECT_GT(woken, 0);
    EXPECT_TRUE(flight.is_given_up(part(6)));
    EXPECT_EQ(flight.outstanding(), 0);
    EXPECT_TRUE(flight.gives_up_equal(message(2, std::string(900, 'x'), 9)));
    for (uint8_t number = 6; number <= 9; ++number) {
        flight.submitted(part(number), {sent});  // those were on their way
    }
    EXPECT_TRUE(flight.look()[0].complete);
    EXPECT_FALSE(flight.give_up(1, {})) << "all of it has gone";
    flight.end(1);
    EXPECT_FALSE(flight.is_given_up(part(6)));
    EXPECT_EQ(flight.outstanding(), 0);
}

}  // namespace
