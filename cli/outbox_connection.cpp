#include "cli/outbox_connection.h"

#include <fmt/format.h>

#include <chrono>
#include <random>

namespace {

using client::answer_t;
using client::client_t;
using client::obstacle_t;
using std::chrono::steady_clock;

constexpr std::chrono::seconds patience{15};  // a service that restarts sets its modem up first
constexpr int between_tries = 200;            // milliseconds

}  // namespace

outbox_connection_t::outbox_connection_t(client_t client, std::string device, const base::end_signals_t& signals,
                                         std::function<void(const std::string&)> lost)
    : client_(std::move(client)), device_(std::move(device)), signals_(signals), lost_(std::move(lost)) {}

answer_t<outbox_card_t> outbox_connection_t::hand_in(client::handed_in_card_t card) {
    std::random_device random;
    const std::string token = fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
    card.token = token;
    return ask([&](client_t& client) { return client.outbox_add(card); });
}

answer_t<outbox_card_t> outbox_connection_t::ask(const std::function<answer_t<std::string>(client_t&)>& request) {
    for (bool told = false;; told = true) {  // one that is ending may take a connection once more
        const auto answer = request(client_);
        if (answer || answer.failure().obstacle != obstacle_t::no_answer) {
            return read_message(answer);
        }
        if (!told) {
            lost_(answer.failure().text);
        }
        auto client = reconnect();
        if (!client) {
            return client.failure();
        }
        client_ = std::move(*client);
    }
}

answer_t<client_t> outbox_connection_t::reconnect() {
    const auto deadline = steady_clock::now() + patience;
    for (;;) {
        auto client = client_t::connect(device_);
        if (client || signals_.wait(between_tries) || steady_clock::now() >= deadline) {
            return client;
        }
    }
}
