// What it costs to store a received card, from the radio's notification until the driver returns: beside the same
// octets written by the host's calls alone, on a disk and in memory; and with a bound of the inbox to be kept, beside
// one look through the same folder.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <ril.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/idle_radio.h"
#include "bench/set_up.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/home.h"

namespace {

/// A card of one datagram, as full as one gets.
RILMESSAGE card() {
    RILMESSAGE message{};
    message.cbSize = sizeof message;
    message.dwParams =
        RIL_PARAM_M_TYPE | RIL_PARAM_M_HDRLENGTH | RIL_PARAM_M_MSGLENGTH | RIL_PARAM_M_HDR | RIL_PARAM_M_MSG;
    message.dwType = RIL_MSGTYPE_IN_DELIVER;
    RIL_IN_DELIVER& in = message.msgInDeliver;
    in.raOrigAddress.dwParams = RIL_PARAM_A_ADDRESS;
    const std::u16string_view sender = u"+491700000001";
    std::copy(sender.begin(), sender.end(), in.raOrigAddress.wszAddress);
    const std::string_view header("\x05\x04\x23\xF4\0\0", 6);
    memcpy(in.rgbHdr, header.data(), header.size());
    in.cbHdrLength = static_cast<DWORD>(header.size());
    in.cchMsgLength = 133;
    memset(in.rgbMsg, 'x', in.cchMsgLength);
    return message;
}

/// The driver, activated, in a home of its own, and the folder where it stores cards.
class driver_t {
  public:
    explicit driver_t(const char* where) {
        std::string name = std::string(where) + "/zpd-bench-XXXXXX";
        home_ = mkdtemp(name.data());
        incoming_ = home_;
        for (const char* const folder : {ZPD_INCOMING_DIRECTORY}) {
            incoming_ /= folder;
        }
        require(platform::set_home(home_));
        ZPD_Init(nullptr, nullptr);
        set(ZPD_IOCTL_ACTIVATION, std::string("\1\1", 2));
        store();  // it makes the folder
    }
    ~driver_t() {
        ZPD_Deinit(1);
        std::filesystem::remove_all(home_);
    }
    driver_t(const driver_t&) = delete;
    driver_t& operator=(const driver_t&) = delete;

    void store() const { notify(RIL_NOTIFY_MESSAGE, &card_, sizeof card_, 0); }
    static void set(DWORD code, std::string input) {
        BYTE output[64];
        DWORD returned = 0;
        if (ZPD_IOControl(1, code, reinterpret_cast<BYTE*>(input.data()), static_cast<DWORD>(input.size()), output,
                          sizeof output, &returned) == FALSE) {
            require("the driver refuses a setting");
        }
    }
    const std::filesystem::path& incoming() const { return incoming_; }
    int64_t cards() const { return std::distance(std::filesystem::directory_iterator(incoming_), {}); }
    /// What is in a stored card.
    std::string octets() const {
        std::ifstream file(std::filesystem::directory_iterator(incoming_)->path());
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::filesystem::path home_;
    std::filesystem::path incoming_;
    const RILMESSAGE card_ = card();
};

template <typename act_t>
double seconds(int64_t times, const act_t& act) {
    const auto begin = std::chrono::steady_clock::now();
    for (int64_t time = 0; time < times; ++time) {
        act();
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// So many cards stored, and the yardstick as often. Other programs make times uncertain, and both alike.
template <typename yardstick_t>
void take_turns(benchmark::State& state, int64_t turn, const driver_t& driver, const yardstick_t& yardstick) {
    const int64_t before = driver.cards();
    double storing = 0;
    double alone = 0;
    int64_t stored = 0;
    while (state.KeepRunning()) {
        storing += seconds(turn, [&] { driver.store(); });
        stored += turn;
        alone += seconds(turn, yardstick);
    }
    if (driver.cards() != before + stored) {
        state.SkipWithError("not every card was stored");
    }
    state.counters["ratio"] = storing / alone;
    state.counters["us_storing"] = storing / static_cast<double>(stored) * 1e6;
    state.counters["us_alone"] = alone / static_cast<double>(stored) * 1e6;
}

/// Beside files with names as long, in a folder beside.
void store(benchmark::State& state, const char* where, int64_t turn, bool on_disk) {
    const driver_t driver(where);
    const std::string octets = driver.octets();
    const std::filesystem::path folder = driver.incoming().parent_path() / "ALONE";
    std::filesystem::create_directory(folder);
    std::vector<std::string> names;
    for (int64_t number = 0; number < static_cast<int64_t>(state.max_iterations) * turn; ++number) {
        const std::string digits = std::to_string(number);
        names.push_back(folder / (std::string(ZPD_STORED_NAME_LENGTH - digits.size(), 'n') + digits));
    }
    auto name = names.begin();
    take_turns(state, turn, driver, [&] {
        const int file = open(name++->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        const bool written = write(file, octets.data(), octets.size()) == static_cast<ssize_t>(octets.size()) &&
                             (!on_disk || fdatasync(file) == 0);
        if (close(file) != 0 || !written) {
            state.SkipWithError("a file was not written");
        }
    });
}

/// In a folder in memory with so many cards, under a bound that is not reached, beside one look through it.
void store_within_bound(benchmark::State& state) {
    const driver_t driver("/dev/shm");
    for (int64_t number = driver.cards(); number < state.range(0); ++number) {
        driver.store();
    }
    driver_t::set(ZPD_IOCTL_INCOMING_DIR_SIZE, {1, 0, 0, 1, 0});
    take_turns(state, 1, driver, [&] {
        DIR* const folder = opendir(driver.incoming().c_str());
        int64_t entries = 0;
        while (readdir(folder) != nullptr) {
            ++entries;
        }
        closedir(folder);
        if (entries <= state.range(0)) {
            state.SkipWithError("another folder was read");
        }
    });
}

BENCHMARK_CAPTURE(store, on_disk, "/var/tmp", 1, true)->Iterations(300);
BENCHMARK_CAPTURE(store, in_memory, "/dev/shm", 50, false)->Iterations(200);
BENCHMARK(store_within_bound)->Arg(10'000)->Iterations(100);

}  // namespace

BENCHMARK_MAIN();
