// What one incoming datagram costs, from the journal's taking it to its leaving, beside so many others that wait: read
// the rows of one run against each other. In memory: how fast a disk is, is not the question.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "base/clock.h"
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

/// In a home of its own.
class kept_t {
  public:
    explicit kept_t(size_t bound) : home_(mkdtemp(name_)) {
        if (!journal
                 .open(radio::journal_file::path(home_), {.age = age, .datagrams = bound, .rules = {30, 120, 86'400}})
                 .empty()) {
            abort();
        }
    }
    kept_t(const kept_t&) = delete;
    kept_t& operator=(const kept_t&) = delete;
    ~kept_t() { std::filesystem::remove_all(home_); }

    /// The first datagrams of so many messages of two.
    void fill(int64_t count, uint32_t& sender) {
        std::vector<radio::arrival_t> arrivals;
        for (int64_t filled = 0; filled < count; ++filled) {
            arrivals.push_back(arrival(sender++, 2));
        }
        if (!journal.take(arrivals)) {
            abort();
        }
    }

    static constexpr int64_t age = 1'000'000;  // seconds
    radio::journal_t journal;

  private:
    char name_[32] = "/dev/shm/zpd-bench-XXXXXX";
    const std::filesystem::path home_;
};

void one_message_beside(benchmark::State& state) {
    kept_t kept(1'000'000);
    radio::journal_t& journal = kept.journal;
    uint32_t sender = 0;
    kept.fill(state.range(0), sender);
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
BENCHMARK(one_message_beside)->Arg(1)->Arg(100)->Arg(10'000)->Arg(100'000)->Iterations(3000);

/// Of this thread's processor: another program that has it for a while is no part of a step.
double milliseconds_of(const std::function<void()>& step) {
    const auto now = [] {
        timespec used{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
        return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
    };
    const double begin = now();
    step();
    return now() - begin;
}

/// The longest of the steps in which so many expire, half of them messages that never became whole, half gone ones; and
/// of those that find nothing to do.
void longest_step_of_expiry(benchmark::State& state) {
    double longest = 0;
    double idle = 0;
    while (state.KeepRunning()) {
        state.PauseTiming();
        kept_t kept(1'000'000);
        radio::journal_t& journal = kept.journal;
        uint32_t sender = 0;
        kept.fill(state.range(0) / 2, sender);
        std::vector<radio::arrival_t> whole;
        for (int64_t gone = 0; gone < state.range(0) / 2; ++gone) {
            whole.push_back(arrival(sender++, 1));
        }
        if (!journal.take(whole)) {
            abort();
        }
        for (int64_t number = 1; number <= state.range(0) / 2; ++number) {
            journal.finish(number);
        }
        for (int repeat = 0; repeat < 10; ++repeat) {
            idle = std::max(idle, milliseconds_of([&] { journal.expire(); }));
        }
        base::advance_clock(kept_t::age * 1000 + 10'000);
        state.ResumeTiming();
        longest = std::max(longest, milliseconds_of([&] { journal.expire(); }));
        while (journal.next_look() <= base::tick64()) {
            longest = std::max(longest, milliseconds_of([&] { journal.look_again(); }));
        }
        if (journal.counts().given_up != static_cast<size_t>(state.range(0) / 2)) {
            state.SkipWithError("not all expired");
        }
    }
    state.counters["longest_ms"] = longest;
    state.counters["idle_ms"] = idle;
}
BENCHMARK(longest_step_of_expiry)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
