// Which datagrams make a message: of worlds full of senders, and of single cases.
#include "radio/assembly.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>

#include "tests/driver/home.h"
#include "tests/radio/card_world.h"

namespace {

namespace assembly = radio::assembly;

constexpr manners_t patient{.senders = 50,
                            .references = 3,
                            .reused_after = 100'000,
                            .longest_gap = 3000,
                            .lost_of_100 = 8,
                            .in_a_burst = false};
constexpr manners_t no_loss{
    .senders = 20, .references = 2, .reused_after = 500, .longest_gap = 300, .lost_of_100 = 0, .in_a_burst = false};
constexpr manners_t hasty{
    .senders = 20, .references = 2, .reused_after = 60, .longest_gap = 300, .lost_of_100 = 8, .in_a_burst = false};
constexpr manners_t bursts{
    .senders = 20, .references = 2, .reused_after = 1, .longest_gap = 1, .lost_of_100 = 0, .in_a_burst = true};

unsigned long from_environment(const char* name, unsigned long otherwise) {
    const char* const told = std::getenv(name);
    return told != nullptr ? std::stoul(told) : otherwise;
}

/// A thousand cards, or ZPD_CARDS of them, of ZPD_SEED.
card_world_t::result_t live(const char* name, const manners_t& manners) {
    const size_t cards = from_environment("ZPD_CARDS", 1000);
    const home_t home;
    std::mt19937 random(from_environment("ZPD_SEED", 20261122));
    card_world_t world(home.path(), manners,
                       [&](unsigned most) { return static_cast<unsigned>(random() % (most + 1)); });
    world.send(cards);
    const auto result = world.result();
    std::printf("%s: %zu cards, %zu whole, %zu stored; %zu missed, %zu surplus, %zu mixed; %zu kills\n", name,
                result.cards, result.whole, result.stored, result.missed, result.surplus, result.mixed, result.kills);
    return result;
}

// What comes whole is stored as often as it was sent, and nothing else is.
TEST(assembly, no_card_is_lost_doubled_or_mixed) {
    for (const auto& [name, manners] : {std::pair{"patient", patient}, std::pair{"no loss", no_loss}}) {
        const auto result = live(name, manners);
        EXPECT_EQ(result.missed, 0U);
        EXPECT_EQ(result.surplus, 0U);
        EXPECT_EQ(result.mixed, 0U);
        EXPECT_GT(result.whole, result.cards / 3);
    }
}

// What cannot be told apart is rare: a reference that is used again within minutes while datagrams are lost, or within
// a second.
TEST(assembly, what_cannot_be_told_apart_is_rare) {
    for (const auto& [name, manners] : {std::pair{"hasty", hasty}, std::pair{"bursts", bursts}}) {
        const auto result = live(name, manners);
        EXPECT_LE(result.missed + result.surplus + result.mixed, result.cards / 8) << name;
    }
}

struct case_t {
    const char* name;
    size_t parts;
    const char* story;  // "1a@40": part 1 with the body a, which the service centre got then; it comes now. "wait"
    const char* messages;
};
constexpr case_t cases[] = {
    {"in_any_order", 3, "3c@8 1a@0 2b@4", "abc"},
    {"a_corrected_card_after_one_that_stays_incomplete", 2, "1a@0 1a@1000 2c@1004", "ac"},
    {"the_same_card_again", 2, "1a@0 2b@4 1a@60 2b@64", "ab ab"},
    {"the_same_card_twice_in_one_second", 2, "1a@0 2b@0 1a@0 2b@0", "ab ab"},
    {"submitted_again_before_it_is_whole", 2, "1a@0 1a@20 2b@24 wait", "ab"},
    {"submitted_again_after_it_was_whole", 2, "1a@0 2b@4 1a@300 wait 1c@5000 2d@5004", "ab cd"},
    {"submitted_again_and_then_a_message_whose_first_part_is_late", 2, "1a@0 2b@4 1a@300 2d@5004 1c@5000", "ab cd"},
    {"submitted_again_and_then_one_whose_first_part_is_lost", 2, "1a@0 2b@4 1a@300 2d@5004 wait", "ab"},
    {"most_of_it_submitted_again_and_then_a_corrected_card", 3,
     "1a@724 2b@724 3c@733 2b@858 3c@867 1a@1367 wait 2d@1377 3e@1387 wait", "abc ade"},
    {"a_slow_sender", 2, "1a@0 2b@7000 wait", "ab"},
    {"too_slow_for_one_message", 2, "1a@0 2b@90000 wait", ""},
    {"a_part_that_was_refused_at_first", 3, "2b@4 3c@8 1a@12 wait", "abc"},
    {"the_end_of_one_message_and_the_begin_of_the_next", 3, "2b@4 3c@8 1d@12 2e@16 3f@20 wait", "def"},
    {"a_late_part_of_the_message_before", 2, "1a@0 1c@50 2d@54 2b@4 wait", "cd ab"},
    {"the_second_before_the_first_and_another_waits", 2, "1a@0 2d@54 1c@50 wait", "cd"},
    {"nothing_between_two_parts_has_gone", 3, "1a@0 1d@10 2e@14 3f@18 2b@30 3c@34 wait", "def"},
};

class assembly_case : public testing::TestWithParam<case_t> {};

TEST_P(assembly_case, makes_these_messages) {
    constexpr assembly::rules_t rules{.close = 30, .wait = 120, .apart = 86'400};
    assembly::records_t records;
    std::string messages;
    int64_t now = 0;
    std::istringstream story(GetParam().story);
    for (std::string step; story >> step;) {
        now += step == "wait" ? 120 : 1;
        if (step != "wait") {
            const auto id = static_cast<int64_t>(records.size()) + 1;
            assembly::insert(records, {id, std::stoll(step.substr(3)), now, static_cast<uint8_t>(step[0] - '0'), false,
                                       step.substr(1, 1)});
        }
        while (const auto set = assembly::choose(records, GetParam().parts, rules)) {
            if (set->due > now) {
                break;
            }
            messages += messages.empty() ? "" : " ";
            for (const int64_t id : set->ids) {
                const auto record = std::ranges::find(records, id, &assembly::record_t::id);
                record->gone = true;
                messages += record->body;
            }
        }
    }
    EXPECT_EQ(messages, GetParam().messages);
}
INSTANTIATE_TEST_SUITE_P(table, assembly_case, testing::ValuesIn(cases),
                         [](const auto& tested) { return tested.param.name; });

struct header_t {
    const char* octets;
    std::vector<unsigned> place;  // width, reference, part, parts; none: refused
};
TEST(assembly, a_header_is_read_as_the_driver_reads_it) {
    const header_t headers[] = {
        {"050423F423F4", {0, 0, 1, 1}},
        {"050423F423F40003070302", {1, 7, 2, 3}},
        {"0804010203020003070302", {2, 0x102, 2, 3}},  // the first one counts
        {"0003070300", {1, 7, 1, 3}},
        {"0003070000", {}},
        {"0003070304", {}},
        {"00030703040003070302", {}},  // also when another one is well
        {"00030703020003", {}},        // cut off
        {"000307030200", {}},
        {"0004070302010003070302", {}},  // of a wrong length
        {"00030703020404000000", {}},
        {"7005010203040500030703FF", {}},
        {"70050102030405000307FFFF", {1, 7, 255, 255}},
    };
    for (const auto& [octets, place] : headers) {
        const auto found = assembly::place_of(*base::from_hex(octets));
        std::vector<unsigned> read;
        if (found) {
            read = {found->width, found->reference, found->part, found->parts};
        }
        EXPECT_EQ(read, place) << octets;
    }
}

}  // namespace
