// A journal whose rows may hold anything, as the radio goes on with it. What must hold: it opens; all that it hands
// over comes in order and to an end; and a datagram that is taken is handed over, whatever lies before it.
#include "radio/journal.h"

#include "base/clock.h"
#include "fuzz/fuzz.h"
#include "fuzz/home.h"
#include "fuzz/hostile_rows.h"
#include "fuzz/sent_datagram.h"
#include "radio/incomplete_messages.h"

namespace {

using namespace radio;

constexpr journal_t::bounds_t bounds{.age = 1000, .datagrams = 100, .rules = {.close = 10, .wait = 5, .apart = 100}};

/// A card of one datagram, which no row can hold.
arrival_t fresh_arrival(unsigned series) {
    const std::string user_data = std::string("\x06\x05\x04\x23\xF4\0\0", 7) + std::to_string(series);
    const air::address_t sender{air::number_type_t::international, 1, "4930" + std::to_string(series)};
    const air::octets_t octets = gsm_octets(sender, {user_data.begin(), user_data.end()}, air::data_coding_8bit);
    return {technology_t::gsm, octets, *card_datagram_of(technology_t::gsm, octets)};
}

/// Tells whether the datagram was among them.
bool hand_over_all(journal_t& journal, const arrival_t& sought) {
    bool found = false;
    int64_t last = 0;
    while (const auto message = journal.next(last)) {
        must(message->number > last && !message->datagrams.empty());
        last = message->number;
        found = found || message->datagrams.front().octets == sought.octets;
        journal.finish(last);
    }
    return found;
}

void use(const std::filesystem::path& file, input_t& input, unsigned series) {
    journal_t journal;
    must(journal.open(file, bounds).empty());
    while (!input.empty()) {
        const sent_datagram_t sent = sent_datagram(input, 0);
        if (const auto card = card_datagram_of(sent.technology, sent.octets)) {
            const arrival_t arrival{sent.technology, sent.octets, *card};
            static_cast<void>(journal.take({&arrival, 1}));
        }
    }
    base::advance_clock(6000);
    journal.look_again();
    const arrival_t fresh = fresh_arrival(series);
    const bool taken = journal.take({&fresh, 1});
    must(hand_over_all(journal, fresh) == taken);
    must(!taken || (journal.take({&fresh, 1}) && !journal.next(0)));
    while (const auto text = journal.first_text()) {
        must(journal.forget_text(text->id));
    }
    journal.expire();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzzed_home_t home;
    static const std::filesystem::path file = journal_file::path(home.path());
    static const std::string made = journal_t().open(file, bounds);
    static hostile_rows_t rows(file);
    static unsigned inputs = 0;
    silence();
    must(made.empty());
    input_t input(data, size);
    const sent_datagram_t sent = sent_datagram(input, 0);
    rows.replace(input, {{sent.octets.begin(), sent.octets.end()}, "1", "+4930", "1:49/1/7/2", "a", "b"});
    std::string error;
    incomplete_messages(home.path(), &error);
    use(file, input, ++inputs);
    return 0;
}
