// What a datagram costs from one host over the network to another, in networks of 10, 100 and 1,000 phones, by turns:
// the medians. "ratio" is the last over the first; phones that are idle cost nothing when it is 1.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "bench/set_up.h"
#include "network/network.h"

namespace {

std::vector<std::string> numbers(int64_t count) {
    std::vector<std::string> all;
    for (int64_t i = 0; i < count; ++i) {
        all.push_back("+4917" + std::to_string(1'000'000 + i));
    }
    return all;
}

/// The host at a tty.
class host_t {
  public:
    host_t(const std::filesystem::path& tty, const std::string& setting) : fd_(open(tty.c_str(), O_RDWR | O_NOCTTY)) {
        say(setting);
        hear("OK\r\n");
    }
    void say(const std::string& text) const {
        const ssize_t count = write(fd_.get(), text.data(), text.size());
        require(count == static_cast<ssize_t>(text.size()) ? "" : "a modem takes nothing");
    }
    /// Waits until the modem has said this.
    void hear(const std::string& end) {
        while (heard_.find(end) == std::string::npos) {
            char octets[4096];
            const ssize_t count = read(fd_.get(), octets, sizeof octets);
            require(count > 0 ? "" : "a modem has gone");
            heard_.append(octets, static_cast<size_t>(count));
        }
        heard_.clear();
    }

  private:
    const base::descriptor_t fd_;
    std::string heard_;
};

/// A network of so many phones, the first of which sends to the last.
class pair_t {
  public:
    explicit pair_t(int64_t phones) : numbers_(numbers(phones)) {
        std::string error;
        network_ = network::network_t::start(folder_, numbers_, &error);
        require(network_ ? network_->set_fault(numbers_.back(), "delivery-gap=0") : error);
        from_.emplace(network_->link(numbers_.front()), "ATE0\r");
        to_.emplace(network_->link(numbers_.back()), "ATE0;+CNMI=2,2\r");
    }
    ~pair_t() {
        network_.reset();
        std::filesystem::remove_all(folder_);
    }
    pair_t(const pair_t&) = delete;
    pair_t& operator=(const pair_t&) = delete;

    /// An SMS-SUBMIT of 140 octets; returns the microseconds until it has come.
    double send() {
        std::string digits = numbers_.back().substr(1) + "F";
        for (size_t i = 0; i < digits.size(); i += 2) {
            std::swap(digits[i], digits[i + 1]);
        }
        const auto begin = std::chrono::steady_clock::now();
        from_->say("AT+CMGS=153\r");
        from_->hear("> ");
        from_->say("0001000B91" + digits + "00048C" + std::string(280, 'A') + "\x1a");
        from_->hear("OK\r\n");
        to_->hear("AAAA\r\n");
        return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
    }

  private:
    const std::filesystem::path folder_ = new_folder();
    const std::vector<std::string> numbers_;
    std::unique_ptr<network::network_t> network_;
    std::optional<host_t> from_;
    std::optional<host_t> to_;
};

double median(std::vector<double> times) {
    std::ranges::nth_element(times, times.begin() + static_cast<long>(times.size() / 2));
    return times[times.size() / 2];
}

void a_datagram_beside_idle_phones(benchmark::State& state) {
    pair_t pairs[] = {pair_t(10), pair_t(100), pair_t(1000)};
    std::vector<double> times[std::size(pairs)];
    while (state.KeepRunning()) {
        for (size_t i = 0; i < std::size(pairs); ++i) {
            times[i].push_back(pairs[i].send());
        }
    }
    state.counters["us_of_10"] = median(times[0]);
    state.counters["us_of_100"] = median(times[1]);
    state.counters["us_of_1000"] = median(times[2]);
    state.counters["ratio"] = median(times[2]) / median(times[0]);
}
BENCHMARK(a_datagram_beside_idle_phones)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
