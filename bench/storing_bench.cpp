// What it costs to store a received card, from the radio's notification until the driver returns: beside the same
// octets written by the host's calls alone, on a disk and in memory; and with a bound of the inbox to be kept, beside
// one look through the same folder.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <ril.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/set_up.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/home.h"

namespace {

// The radio of these measurements: it has no network, and delivers what it is told to.
RILNOTIFYCALLBACK notify = nullptr;

}  // namespace

HRESULT RIL_Initialize(DWORD, RILRESULTCALLBACK, RILNOTIFYCALLBACK on_notify, DWORD, DWORD, HRIL* session) {
    notify = on_notify;
    *session = &notify;
    return S_OK;
}
HRESULT RIL_Deinitialize(HRIL) {
    return S_OK;
}
HRESULT RIL_SendMsg(HRIL, const RILMESSAGE*, DWORD) {
    return E_FAIL;
}
HRESULT RIL_GetCurrentSystemType(HRIL) {
    return 1;
}

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

void store(benchmark::State& state, const char* where) {
    const driver_t driver(where);
    while (state.KeepRunning()) {
        driver.store();
    }
    if (driver.cards() != state.iterations() + 1) {
        state.SkipWithError("not every card was stored");
    }
}

/// Files with names of that length and in that place; `on_disk` each with fdatasync.
void write_alone(benchmark::State& state, const char* where, bool on_disk) {
    const driver_t driver(where);
    const std::string octets = driver.octets();
    std::vector<std::string> names;
    for (int64_t number = 0; number < state.max_iterations; ++number) {
        const std::string digits = std::to_string(number);
        names.push_back(driver.incoming() / (std::string(ZPD_STORED_NAME_LENGTH - digits.size(), 'n') + digits));
    }
    auto name = names.begin();
    while (state.KeepRunning()) {
        const int file = open(name++->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        const bool written = write(file, octets.data(), octets.size()) == static_cast<ssize_t>(octets.size()) &&
                             (!on_disk || fdatasync(file) == 0);
        if (close(file) != 0 || !written) {
            state.SkipWithError("a file was not written");
        }
    }
}

constexpr int64_t bound = 20'000;

/// A folder in memory with so many cards, under a bound that is not reached.
class inbox_t : public driver_t {
  public:
    explicit inbox_t(int64_t cards) : driver_t("/dev/shm") {
        for (int64_t number = 1; number < cards; ++number) {
            store();
        }
        set(ZPD_IOCTL_INCOMING_DIR_SIZE, {1, static_cast<char>(bound & 0xFF), static_cast<char>(bound >> 8), 0, 0});
    }
};

void store_within_bound(benchmark::State& state) {
    const inbox_t inbox(state.range(0));
    while (state.KeepRunning()) {
        inbox.store();
    }
    if (inbox.cards() != state.range(0) + state.iterations()) {
        state.SkipWithError("not every card was stored");
    }
}

void look_through(benchmark::State& state) {
    const inbox_t inbox(state.range(0));
    while (state.KeepRunning()) {
        DIR* const folder = opendir(inbox.incoming().c_str());
        int64_t entries = 0;
        while (readdir(folder) != nullptr) {
            ++entries;
        }
        closedir(folder);
        if (entries != state.range(0) + 2) {  // "." and ".."
            state.SkipWithError("another folder was read");
        }
    }
}

BENCHMARK_CAPTURE(store, on_disk, "/var/tmp")->Iterations(300);
BENCHMARK_CAPTURE(write_alone, on_disk, "/var/tmp", true)->Iterations(300);
BENCHMARK_CAPTURE(store, in_memory, "/dev/shm")->Iterations(10'000);
BENCHMARK_CAPTURE(write_alone, in_memory, "/dev/shm", false)->Iterations(10'000);
BENCHMARK(store_within_bound)->Arg(10'000)->Iterations(100);
BENCHMARK(look_through)->Arg(10'000)->Iterations(100);

}  // namespace

BENCHMARK_MAIN();
