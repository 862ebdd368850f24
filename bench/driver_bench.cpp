// What the driver's hot paths cost, and that the costs do not grow with what has piled up: read the rows of one run
// against each other.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <ril.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "bench/idle_radio.h"
#include "bench/set_up.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/home.h"

namespace {

/// The driver in a home of its own, for one measurement.
class driver_t {
  public:
    driver_t() {
        require(platform::set_home(home_));
        ZPD_Init(nullptr, nullptr);
    }
    ~driver_t() {
        ZPD_Deinit(1);
        std::filesystem::remove_all(home_);
    }
    driver_t(const driver_t&) = delete;
    driver_t& operator=(const driver_t&) = delete;

    bool request(DWORD code, std::string input) {
        BYTE output[64];
        DWORD returned = 0;
        return ZPD_IOControl(1, code, reinterpret_cast<BYTE*>(input.data()), static_cast<DWORD>(input.size()), output,
                             sizeof output, &returned) != FALSE;
    }

  private:
    const std::filesystem::path home_ = new_folder();
};

std::string u32(uint32_t value) {
    std::string octets;
    for (int shift = 0; shift < 32; shift += 8) {
        octets += static_cast<char>(value >> shift & 0xFF);
    }
    return octets;
}

std::string counted(const std::string& octets) {
    return u32(static_cast<uint32_t>(octets.size())) + octets;
}

const std::string number16(
    "+\0"
    "4\0"
    "9\0"
    "1\0",
    8);

std::string card_to_send(size_t size) {
    return counted(std::string(size, 'x')) + std::string("\1\0", 2) + counted(number16);
}

void fill(RILMESSAGE& message, uint32_t reference) {
    const std::string header = std::string("\x05\x04\x23\xF4\0\0\x08\x04", 8) +
                               static_cast<char>(reference >> 8 & 0xFF) + static_cast<char>(reference & 0xFF) + "\2\1";
    message.cbSize = sizeof message;
    message.dwParams =
        RIL_PARAM_M_TYPE | RIL_PARAM_M_HDRLENGTH | RIL_PARAM_M_MSGLENGTH | RIL_PARAM_M_HDR | RIL_PARAM_M_MSG;
    message.dwType = RIL_MSGTYPE_IN_DELIVER;
    memcpy(message.msgInDeliver.rgbHdr, header.data(), header.size());
    message.msgInDeliver.cbHdrLength = static_cast<DWORD>(header.size());
    message.msgInDeliver.cchMsgLength = 100;
}

void enter_and_leave(benchmark::State& state) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    while (state.KeepRunning()) {
        EnterCriticalSection(&section);
        LeaveCriticalSection(&section);
    }
    DeleteCriticalSection(&section);
}

void version(benchmark::State& state) {
    const driver_t driver;
    BYTE output[4];
    DWORD returned = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(ZPD_IOControl(1, ZPD_IOCTL_VERSION, nullptr, 0, output, sizeof output, &returned));
    }
}

void count_datagrams(benchmark::State& state) {
    driver_t driver;
    const std::string input = counted(std::string(static_cast<size_t>(state.range(0)), 'x')) + std::string("\1\0", 2);
    while (state.KeepRunning()) {
        if (!driver.request(ZPD_IOCTL_COUNT_DATAGRAMS, input)) {
            state.SkipWithError("refused");
        }
    }
}

/// One datagram more while as many wait in the queue.
void send_behind_backlog(benchmark::State& state) {
    driver_t driver;
    for (int64_t queued = 0; queued < state.range(0); queued += 250) {
        driver.request(ZPD_IOCTL_SEND_MESSAGE, card_to_send(size_t{250} * 128));
    }
    const std::string input = card_to_send(100);
    while (state.KeepRunning()) {
        if (!driver.request(ZPD_IOCTL_SEND_MESSAGE, input)) {
            state.SkipWithError("refused");
        }
    }
}

/// What the queue takes for one, with all that the allocator hands out.
void memory_of_queued(benchmark::State& state) {
    driver_t driver;
    const size_t before = mallinfo2().uordblks;
    int64_t queued = 0;
    while (state.KeepRunning()) {
        if (!driver.request(ZPD_IOCTL_SEND_MESSAGE, card_to_send(size_t{255} * 128))) {
            state.SkipWithError("refused");
        }
        queued += 255;
    }
    state.counters["octets"] = static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(queued);
}

/// One of so many after the other in an order that no cache foresees: 7919 is a prime.
uint32_t some_of(int64_t count, uint32_t& turn) {
    return static_cast<uint32_t>(++turn * int64_t{7919} % count);
}

/// A datagram of one of as many messages that are incomplete, which has it: found, and refused.
void receive_beside_incomplete(benchmark::State& state) {
    driver_t driver;
    RILMESSAGE message{};
    for (int64_t i = 0; i < state.range(0); ++i) {
        fill(message, static_cast<uint32_t>(i));
        notify(RIL_NOTIFY_MESSAGE, &message, sizeof message, 0);
    }
    uint32_t turn = 0;
    while (state.KeepRunning()) {
        fill(message, some_of(state.range(0), turn));
        notify(RIL_NOTIFY_MESSAGE, &message, sizeof message, 0);
    }
}

/// One of as many messages of one datagram that wait.
void request_beside(benchmark::State& state, DWORD code) {
    driver_t driver;
    const std::string card = card_to_send(100);
    for (int64_t queued = 0; queued < state.range(0); ++queued) {
        driver.request(ZPD_IOCTL_SEND_MESSAGE, card);
    }
    constexpr uint32_t first_id = 239;
    uint32_t turn = 0;
    while (state.KeepRunning()) {
        if (!driver.request(code, u32(first_id + some_of(state.range(0), turn)))) {
            state.SkipWithError("refused");
        }
    }
}

BENCHMARK(enter_and_leave);
BENCHMARK(version);
BENCHMARK(count_datagrams)->Arg(100)->Arg(32000);
BENCHMARK(send_behind_backlog)->Arg(250)->Arg(2500)->Arg(25000)->Arg(100000)->Iterations(500);
BENCHMARK(memory_of_queued)->Iterations(200);
BENCHMARK(receive_beside_incomplete)->Arg(1)->Arg(100)->Arg(10000)->Arg(65536);
BENCHMARK_CAPTURE(request_beside, status, ZPD_IOCTL_MESSAGE_STATUS)->Arg(64)->Arg(65000)->Iterations(50'000);
BENCHMARK_CAPTURE(request_beside, close, ZPD_IOCTL_MESSAGE_CLOSE)->Arg(64)->Arg(65000)->Iterations(64);

}  // namespace

BENCHMARK_MAIN();
