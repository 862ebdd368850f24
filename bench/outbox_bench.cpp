// What it costs that a card is on the disk before it goes: to hand it in, and the same cards through the outbox and
// straight to the driver, by turns, on one emulated modem that answers at once. "ratio" is the time of the second over
// that of the first. The home is in memory: how fast a disk is, is not the question.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "bench/set_up.h"
#include "com/zpd/zpd_ioctl.h"
#include "network/network.h"
#include "platform/linux/home.h"
#include "radio/attach_modem.h"
#include "service/feeder.h"
#include "service/inbox.h"
#include "service/loaded_driver.h"
#include "service/news.h"
#include "service/outbox.h"

namespace {

const std::string sender = "+491700000001";
const std::string receiver = "+491700000002";
constexpr size_t octets_a_datagram = 128;  // of a card of several

/// A service without its socket.
class phone_t {
  public:
    phone_t() {
        std::string error;
        network_ = network::network_t::start(folder_ / "modems", {sender, receiver}, &error);
        require(error);
        require(platform::set_home(folder_ / "home"));
        require(outbox_.open(platform::home()));
        require(radio::attach_modem({.tty = network_->link(sender), .observer = &news_}));
        driver_.emplace();
        news_.begin(*driver_);
        feeder_.start(*driver_);
        seconds_through_outbox(1, 1);  // the driver waits at its start
    }
    ~phone_t() {
        feeder_.stop();
        radio::detach_modem();
        news_.end();
        driver_.reset();
        network_.reset();
        std::filesystem::remove_all(folder_);
    }
    phone_t(const phone_t&) = delete;
    phone_t& operator=(const phone_t&) = delete;

    double seconds_through_outbox(size_t cards, size_t datagrams) {
        const auto begin = std::chrono::steady_clock::now();
        for (size_t i = 0; i < cards; ++i) {
            outbox_message_t message;
            message.number = receiver;
            message.contacts = "[]";
            message.octets = card(datagrams);
            message.size = static_cast<int64_t>(message.octets.size());
            message.datagrams = driver_->count({message.octets, true, false}).value;
            problem_t problem;
            if (!outbox_.add(std::move(message), 0, &problem)) {
                require(problem.text);
            }
            feeder_.wake();
        }
        wait([&] { return outbox_.counts().datagrams == 0; });
        return seconds_since(begin);
    }

    double seconds_straight(size_t cards, size_t datagrams) {
        const auto begin = std::chrono::steady_clock::now();
        std::vector<uint32_t> ids;
        for (size_t i = 0; i < cards; ++i) {
            ids.push_back(driver_->send({card(datagrams), true, false}, receiver).value);
        }
        for (const uint32_t id : ids) {
            wait([&] {
                const auto statuses = driver_->datagrams(id);
                return !statuses || std::ranges::all_of(*statuses, [](uint32_t one) { return one == ZPD_STATUS_SENT; });
            });
            driver_->close(id);
        }
        return seconds_since(begin);
    }

  private:
    /// Each another: the radio tells them apart.
    std::string card(size_t datagrams) {
        const std::string name = std::to_string(++last_card_);
        return name + std::string(datagrams == 1 ? 100 : datagrams * octets_a_datagram - name.size(), 'x');
    }
    static double seconds_since(std::chrono::steady_clock::time_point begin) {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }
    template <typename holds_t>
    static void wait(const holds_t& holds) {
        while (!holds()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    std::filesystem::path folder_ = new_folder();
    std::unique_ptr<network::network_t> network_;
    outbox_t outbox_{[](base::priority_t, const std::string&) {}};
    inbox_t inbox_{folder_ / "home"};
    feeder_t feeder_{outbox_};
    news_t news_{outbox_, feeder_.in_flight(), inbox_};
    std::optional<loaded_driver_t> driver_;
    size_t last_card_ = 0;
};

/// So many cards of so many datagrams.
void outbox_against_driver(benchmark::State& state) {
    static phone_t phone;
    const auto cards = static_cast<size_t>(state.range(0));
    const auto datagrams = static_cast<size_t>(state.range(1));
    double through = 0;
    double straight = 0;
    while (state.KeepRunning()) {
        straight += phone.seconds_straight(cards, datagrams);
        through += phone.seconds_through_outbox(cards, datagrams);
    }
    const auto all = static_cast<double>(cards * datagrams) * static_cast<double>(state.iterations());
    state.counters["ratio"] = straight / through;
    state.counters["ms_a_datagram"] = straight / all * 1000;
    state.counters["ms_in_outbox"] = through / all * 1000;
}

/// One card more while as many wait.
void hand_in_behind(benchmark::State& state) {
    const std::filesystem::path folder = new_folder();
    {
        outbox_t outbox([](base::priority_t, const std::string&) {});
        require(outbox.open(folder));
        const auto add = [&] {
            outbox_message_t message;
            message.number = receiver;
            message.contacts = "[]";
            message.octets = std::string(100, 'x');
            message.size = static_cast<int64_t>(message.octets.size());
            message.datagrams = 1;
            problem_t problem;
            if (!outbox.add(std::move(message), 0, &problem)) {
                require(problem.text);
            }
        };
        for (int64_t waiting = 0; waiting < state.range(0); ++waiting) {
            add();
        }
        while (state.KeepRunning()) {
            add();
        }
    }
    std::filesystem::remove_all(folder);
}

BENCHMARK(hand_in_behind)->Arg(1)->Arg(90)->Arg(900)->Arg(9'000)->Iterations(500);
BENCHMARK(outbox_against_driver)->Args({4, 255})->Args({300, 1})->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
