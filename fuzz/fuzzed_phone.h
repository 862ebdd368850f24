/// A phone for one input after the other: its driver goes on from each to the next, for a start costs more than an
/// input.
#pragma once

#include <filesystem>

#include "fuzz/input.h"
#include "tests/driver/phone.h"
#include "tests/incoming.h"

/// The driver holds on to memory from input to input: to look for leaks after each would take most of the time.
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}

class fuzzed_phone_t : public phone_t {
  public:
    fuzzed_phone_t() {
        testing::GTEST_FLAG(break_on_failure) = true;
        silence();
        preset("activated", 1);
        start_on(gsm);
    }

    /// No cards, and a log that does not fill the disk. The driver begins anew now and then, and this
    /// is true: what it keeps of what came before is in its memory.
    bool begin() {
        const bool renewed = ++inputs_ % 2000 == 0;
        if (renewed) {
            stop();
            start_on(gsm);
        }
        radio.reset();
        std::error_code none;
        std::filesystem::remove_all(incoming_folder(home()), none);
        const auto log = home() / "Application Data/PUBLIC/VARKON/ZPD/LOG/zpd.log";
        if (std::filesystem::file_size(log, none) > 1'000'000 && !none) {
            std::filesystem::resize_file(log, 0, none);
        }
        return renewed;
    }
    /// Logging, all of it or none: each line costs as much as a datagram.
    void log(bool all) { request(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(all ? 1 : 0) + u8(0) + u8(all ? 7 : 0)); }
    /// Tells them apart by their number.
    unsigned inputs() const { return inputs_; }

  private:
    unsigned inputs_ = 0;
};
