// What it costs that a card comes to a modem through a fleet's queue: the same cards handed in at a server, for a relay
// to bring, and straight into the outbox, by turns, on one emulated modem that answers at once. All are processes of
// their own, as people run them. "ratio" is the time of the second over that of the first; "_us" are microseconds of a
// core that the relay takes for a card. The files are in memory: how fast a disk is, is not the question.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench/nats_servers.h"
#include "bench/set_up.h"
#include "client/client.h"

namespace {

using std::chrono::milliseconds;

const std::string sender = "+12025550100";
const std::string receiver = "+12025550199";

template <typename value_t>
value_t need(client::answer_t<value_t> answer) {
    require(answer ? "" : answer.failure().text);
    return std::move(*answer);
}

template <typename holds_t>
void wait(const holds_t& holds) {
    while (!holds()) {
        std::this_thread::sleep_for(milliseconds(5));
    }
}

double seconds_since(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// A phone, and its relay.
class phone_t {
  public:
    phone_t(const std::filesystem::path& folder, const std::string& number, const std::string& url)
        : folder_(folder / ("phone" + number)), url_(url) {
        wait([&] { return std::filesystem::exists(folder / "modems" / number); });
        serve_.emplace(std::vector<std::string>{ZPD_BINARY, "serve", "--modem", folder / "modems" / number, "--home",
                                                folder_, "--device", device(), "--activate"});
        wait([&] { return client::client_t::connect(device()); });
        client_.emplace(need(client::client_t::connect(device())));
    }
    std::string device() const { return folder_.native() + ".device"; }
    client::client_t& client() { return *client_; }
    nlohmann::json status() { return nlohmann::json::parse(need(client_->service_status())); }

    void start_relay() {
        relay_.emplace(std::vector<std::string>{ZPD_BINARY, "relay", "--server", url_, "--device", device(), "--state",
                                                folder_ / "relay"});
    }
    const child_t& relay() const { return *relay_; }

  private:
    const std::filesystem::path folder_;
    const std::string url_;
    std::optional<child_t> serve_;
    std::optional<client::client_t> client_;
    std::optional<child_t> relay_;
};

/// Two phones, the first of which serves a fleet.
class fleet_t {
  public:
    fleet_t()
        : servers_(1),
          server_(servers_.connect()),
          network_({ZPD_BINARY, "network", "--phones", sender + "," + receiver, "--dir", servers_.folder() / "modems",
                    "--fault", receiver + ":delivery-gap=0"}),
          sender_(servers_.folder(), sender, servers_.url()),
          receiver_(servers_.folder(), receiver, servers_.url()) {
        sender_.start_relay();
        seconds_through_queue(1);  // the driver waits at its start
    }

    double seconds_straight(size_t cards) {
        const auto begin = std::chrono::steady_clock::now();
        for (size_t i = 0; i < cards; ++i) {
            need(sender_.client().outbox_add(
                {.card = {.octets = card()}, .number = receiver, .file = "card.vcf", .token = {}}));
        }
        wait([&] { return sender_.status()["outbox"]["datagrams"] == 0; });
        const double seconds = seconds_since(begin);
        wait_until_all_came();
        return seconds;
    }

    double seconds_through_queue(size_t cards) {
        const auto begin = std::chrono::steady_clock::now();
        auto results = need(server_->subscribe(servers_.names().results(fleet::result_t::sent)));
        for (size_t i = 0; i < cards; ++i) {
            nats::message_t message(servers_.names().send(""), card());
            message.set_header(fleet::header_to, receiver);
            need(server_->store(message, "bench-" + std::to_string(last_card_)));
        }
        for (size_t sent = 0; sent < cards; ++sent) {
            while (!need(results.next(milliseconds(100)))) {
                look_at_relay();
            }
            if (sent % 64 == 0) {
                look_at_relay();
            }
        }
        const double seconds = seconds_since(begin);
        wait_until_all_came();
        return seconds;
    }

    /// Those that came, as its relay tells them when it starts.
    double received_a_second() {
        auto told = need(server_->subscribe(servers_.names().all_received()));
        receiver_.start_relay();
        require(need(told.next(std::chrono::seconds(30))) ? "" : "no received card is told");
        const auto begin = std::chrono::steady_clock::now();
        for (size_t i = 1; i < last_card_; ++i) {
            require(need(told.next(std::chrono::seconds(30))) ? "" : "a received card is not told");
        }
        return static_cast<double>(last_card_ - 1) / seconds_since(begin);
    }

    const child_t& relay() const { return sender_.relay(); }
    double most_leases() const { return most_leases_; }
    double most_memory() const { return most_memory_; }

  private:
    /// Each another: the radio tells them apart.
    std::string card() {
        const std::string name = std::to_string(++last_card_);
        return "BEGIN:VCARD\r\nVERSION:2.1\r\nN:" + name + std::string(40, 'x') + "\r\nEND:VCARD\r\n";
    }
    /// What the receiver has still to do is not to slow down what is measured next.
    void wait_until_all_came() {
        wait([&] { return receiver_.status()["cards"]["stored"] >= last_card_; });
    }
    void look_at_relay() {
        most_leases_ = std::max(most_leases_, sender_.status()["outbox"]["waiting"].get<double>());
        most_memory_ = std::max(most_memory_, relay().memory());
    }

    const nats_servers_t servers_;
    const std::unique_ptr<nats::connection_t> server_;
    const child_t network_;
    phone_t sender_;
    phone_t receiver_;
    size_t last_card_ = 0;
    double most_leases_ = 0;
    double most_memory_ = 0;
};

void queue_against_outbox(benchmark::State& state) {
    if (!is_installed("nats-server")) {
        state.SkipWithError("nats-server is not installed");
        return;
    }
    fleet_t fleet;
    const auto cards = static_cast<size_t>(state.range(0));
    double through = 0;
    double straight = 0;
    double core = 0;
    while (state.KeepRunning()) {
        straight += fleet.seconds_straight(cards);
        const double before = fleet.relay().core_seconds();
        through += fleet.seconds_through_queue(cards);
        core += fleet.relay().core_seconds() - before;
    }
    const double all = static_cast<double>(cards) * static_cast<double>(state.iterations());
    state.counters["ratio"] = straight / through;
    state.counters["straight_a_s"] = all / straight;
    state.counters["queue_a_s"] = all / through;
    state.counters["relay_us"] = core / all * 1e6;
    state.counters["leases"] = fleet.most_leases();
    state.counters["relay_MB"] = fleet.most_memory() / 1e6;
    state.counters["received_a_s"] = fleet.received_a_second();
}
BENCHMARK(queue_against_outbox)->Arg(4000)->Iterations(2)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
