// What a message of the driver's log costs: where it goes to a file, beside the same two lines written by the C
// library; and where nobody writes it, beside the log switched off. In memory: how fast a disk is, is not the question.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bench/set_up.h"
#include "com/qmlog/api2.h"
#include "com/qmlog/log_file.h"
#include "platform/linux/home.h"

namespace {

const std::filesystem::path& home() {
    static const std::filesystem::path folder = [] {
        std::filesystem::path made = new_folder();
        require(platform::set_home(made));
        return made;
    }();
    return folder;
}

void message_to_file(benchmark::State& state) {
    home();
    qmlog::logging_enabled = true;
    qmlog::log_file sink(qmlog::process_log(), R"(\sink.log)");
    int value = 0;
    while (state.KeepRunning()) {
        QM_DEBUG("Transition 0x%X: %d[%d]:%s->%s", ++value, 240, 17, "QUEUED", "DISPATCHER");
    }
    qmlog::logging_enabled = false;
    std::filesystem::remove(home() / "sink.log");
}

/// The same two lines, with what the flags add made beforehand.
void two_lines_by_the_c_library(benchmark::State& state) {
    FILE* const file = fopen((home() / "plain.log").c_str(), "ab");
    int value = 0;
    while (state.KeepRunning()) {
        char line[512];
        const char* const groups = "[monotonic=n/a (TZ=n/a,GMT) 2026-11-23 06:30:00 'ZPD'] [0x4D2,0x4D2]";
        int length = snprintf(line, sizeof line, "%s %s at %s:%d in %s:\n", groups, "DEBUG", "machine.cpp", 42,
                              "machine_t::transition");
        fwrite(line, 1, static_cast<size_t>(length), file);
        fflush(file);
        length = snprintf(line, sizeof line, "%s -- Transition 0x%X: %d[%d]:%s->%s\n", groups, ++value, 240, 17,
                          "QUEUED", "DISPATCHER");
        fwrite(line, 1, static_cast<size_t>(length), file);
        fflush(file);
    }
    fclose(file);
    std::filesystem::remove(home() / "plain.log");
}

/// For what takes less time than to ask whether to go on.
template <typename step_t>
void repeat(benchmark::State& state, const step_t& step) {
    constexpr int batch = 1000;
    int value = 0;
    while (state.KeepRunningBatch(batch)) {
        for (int i = 0; i < batch; ++i) {
            benchmark::DoNotOptimize(++value);
            step(value);
        }
    }
}

void log_a_text(int value) {
    QM_DEBUG("value=%d %s", value, std::string(100, 'x').c_str());
}

void message_that_nobody_writes(benchmark::State& state) {
    qmlog::process_log();  // has the debugger's sink
    qmlog::logging_enabled = true;
    repeat(state, log_a_text);
    qmlog::logging_enabled = false;
}

void message_switched_off(benchmark::State& state) {
    qmlog::logging_enabled = false;
    repeat(state, log_a_text);
}

void no_message(benchmark::State& state) {
    repeat(state, [](int) {});
}

BENCHMARK(message_to_file);
BENCHMARK(two_lines_by_the_c_library);
BENCHMARK(message_that_nobody_writes);
BENCHMARK(message_switched_off);
BENCHMARK(no_message);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(home());
}
