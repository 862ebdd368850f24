// What a fleet asks of its NATS server, a row a count of nodes (each card on all of them) and of clients, each with a
// connection of its own. "_a_s" are how many a second all clients together got done, each waiting for its answer;
// "_us" what one costs the node that works most, in microseconds of a core: that does not depend on what else the
// machine does, and its inverse is what a node can bear. The servers' files are in memory: they write without waiting
// for the disk.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/nats_servers.h"
#include "bench/set_up.h"

namespace {

constexpr size_t octets_of_a_card = 800;  // seven datagrams
constexpr size_t octets_of_a_result = 700;

class fleet_t {
  public:
    fleet_t(size_t nodes, size_t clients) : servers_(nodes) {
        for (size_t i = 0; i < clients; ++i) {
            connections_.push_back(servers_.connect());
        }
    }

    const fleet::names_t& names() const { return servers_.names(); }

    /// Each client at the same time; it returns how many it did.
    using work_t = std::function<size_t(nats::connection_t& connection, size_t client)>;
    void measure(benchmark::State& state, const std::string& what, const work_t& work) {
        const double core = servers_.core_seconds();
        const auto begin = std::chrono::steady_clock::now();
        std::vector<size_t> done(connections_.size());
        {
            std::vector<std::jthread> threads;
            for (size_t i = 0; i < connections_.size(); ++i) {
                threads.emplace_back([&, i] { done[i] = work(*connections_[i], i); });
            }
        }
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        double all = 0;
        for (const size_t one : done) {
            all += static_cast<double>(one);
        }
        state.counters[what + "_a_s"] = all / time.count();
        state.counters[what + "_us"] = (servers_.core_seconds() - core) / all * 1e6;
    }

  private:
    nats_servers_t servers_;
    std::vector<std::unique_ptr<nats::connection_t>> connections_;
};

template <typename value_t>
value_t need(client::answer_t<value_t> answer) {
    require(answer ? "" : answer.failure().text);
    return std::move(*answer);
}

nats::message_t card_to(const std::string& subject) {
    nats::message_t message(subject, std::string(octets_of_a_card, 'x'));
    message.set_header(fleet::header_to, "+12025550199");
    return message;
}

std::vector<nats::message_t> take(nats::connection_t& connection, const fleet::names_t& names, size_t count) {
    constexpr size_t at_once = 50;
    nats::pull_t pull = need(connection.pull(names.cards(), fleet::names_t::consumer("")));
    std::vector<nats::message_t> taken;
    while (taken.size() < count) {
        const size_t left = count - taken.size();
        for (auto& message : need(pull.take(static_cast<int>(std::min(at_once, left)), nats::longest_call))) {
            taken.push_back(std::move(message));
        }
    }
    return taken;
}

/// As long as one is, under a token of its own.
void tell(nats::connection_t& connection, const fleet::names_t& names, size_t card) {
    const nats::message_t message(names.result(card, fleet::result_t::sent), std::string(octets_of_a_result, 'x'));
    need(connection.store(message, "sent-" + std::to_string(card)));
}

void a_card_at_the_server(benchmark::State& state) {
    if (!is_installed("nats-server")) {
        state.SkipWithError("nats-server is not installed");
        return;
    }
    const auto clients = static_cast<size_t>(state.range(1));
    const size_t each = 16'000 / clients;
    constexpr size_t beats = 20;
    while (state.KeepRunning()) {
        fleet_t fleet(static_cast<size_t>(state.range(0)), clients);
        const fleet::names_t& names = fleet.names();
        fleet.measure(state, "handed_in", [&](nats::connection_t& connection, size_t client) {
            for (size_t i = 0; i < each; ++i) {
                need(connection.store(card_to(names.send("")), std::to_string(client * each + i)));
            }
            return each;
        });
        std::vector<std::vector<nats::message_t>> taken(clients);
        fleet.measure(state, "taken", [&](nats::connection_t& connection, size_t client) {
            taken[client] = take(connection, names, each);
            return each;
        });
        fleet.measure(state, "renewed", [&](nats::connection_t& connection, size_t client) {
            for (size_t i = 0; i < beats; ++i) {
                for (const nats::message_t& message : taken[client]) {
                    message.report_in_progress();
                }
                need(connection.confirm_progress(taken[client].back()));
            }
            return beats * each;
        });
        fleet.measure(state, "told", [&](nats::connection_t& connection, size_t client) {
            for (size_t i = 0; i < each; ++i) {
                tell(connection, names, client * each + i);
            }
            return each;
        });
        fleet.measure(state, "acknowledged", [&](nats::connection_t& connection, size_t client) {
            for (const nats::message_t& message : taken[client]) {
                message.acknowledge();
            }
            while (need(connection.stream(names.cards()))->messages != 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            return each;
        });
        fleet.measure(state, "beat", [&](nats::connection_t& connection, size_t client) {
            const std::string value(300, 'x');
            const std::string key = fleet::modem_key("machine", "ZPD" + std::to_string(client));
            for (size_t i = 0; i < each / 4; ++i) {
                need(connection.stream(names.cards()));
                need(fleet::consumer_of(connection, names, ""));
                need(connection.put(names.modems(), key, value));
            }
            return each / 4;
        });
    }
}
BENCHMARK(a_card_at_the_server)
    ->ArgNames({"nodes", "clients"})
    ->Args({1, 1})
    ->Args({1, 16})
    ->Args({3, 16})
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

/// What the results that are kept take: octets of the server's memory and of its disk, each.
void a_result_that_is_kept(benchmark::State& state) {
    if (!is_installed("nats-server")) {
        state.SkipWithError("nats-server is not installed");
        return;
    }
    constexpr size_t clients = 8;
    const auto results = static_cast<size_t>(state.range(0));
    while (state.KeepRunning()) {
        const nats_servers_t servers(1);
        const double before = servers.memory();
        {
            std::vector<std::jthread> threads;
            for (size_t client = 0; client < clients; ++client) {
                threads.emplace_back([&, client] {
                    const auto connection = servers.connect();
                    for (size_t i = client; i < results; i += clients) {
                        tell(*connection, servers.names(), i);
                    }
                });
            }
        }
        uintmax_t disk = 0;
        for (const auto& file : std::filesystem::recursive_directory_iterator(servers.folder())) {
            disk += file.is_regular_file() ? file.file_size() : 0;
        }
        state.counters["memory_B"] = (servers.memory() - before) / static_cast<double>(results);
        state.counters["disk_B"] = static_cast<double>(disk) / static_cast<double>(results);
    }
}
BENCHMARK(a_result_that_is_kept)->Arg(300'000)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
