// What one incoming datagram costs, from the journal's taking it to its leaving, beside so many others that wait: read
// the rows of one run against each other. In memory: how fast a disk is, is not the question.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>

#include "base/hex.h"
#include "radio/journal.h"

namespace {

/// The first datagram of a message of two, or, with `parts` 1, a message of its own; each of another sender.
radio::arrival_t arrival(uint32_t sender, uint8_t parts) {
    air::deliver_t deliver;
    deliver.originator = {air::number_type_t::international, 1, std::to_string(10'000'000 + sender)};
    deliver.data_coding = air::data_coding_8bit;
    deliver.header_indicator = true;
    deliver.user_data = *base::from_hex("0B050423F423F40003010001");
    deliver.user_data[10] = parts;
    deliver.user_data.resize(air::max_user_data, 'x');
    deliver.user_data_length = air::max_user_data;
    air::octets_t octets = *air::encode(deliver);
    radio::card_datagram_t card = *radio::card_datagram_of(radio::technology_t::gsm, octets);
    return {radio::technology_t::gsm, std::move(octets), std::move(card)};
}

void one_message_beside(benchmark::State& state) {
    char name[] = "/dev/shm/zpd-bench-XXXXXX";
    const std::filesystem::path home = mkdtemp(name);
    {
        radio::journal_t journal;
        if (!journal
                 .open(radio::journal_file::path(home),
                       {.age = 1'000'000, .datagrams = 1'000'000, .rules = {30, 120, 86'400}})
                 .empty()) {
            abort();
        }
        uint32_t sender = 0;
        for (; sender < static_cast<uint32_t>(state.range(0)); ++sender) {
            const radio::arrival_t waiting = arrival(sender, 2);
            if (!journal.take({&waiting, 1})) {
                abort();
            }
        }
        int64_t last = 0;
        while (state.KeepRunning()) {
            const radio::arrival_t fresh = arrival(++sender, 1);
            benchmark::DoNotOptimize(journal.take({&fresh, 1}));
            while (const auto message = journal.next(last)) {
                last = message->number;
                journal.finish(last);
            }
        }
    }
    std::filesystem::remove_all(home);
}
BENCHMARK(one_message_beside)->Arg(1)->Arg(100)->Arg(10'000)->Iterations(3000);

}  // namespace

BENCHMARK_MAIN();
