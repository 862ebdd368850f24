#include "cli/outbox_connection.h"

#include <fmt/format.h>

#include <chrono>
#include <random>

#include "cli/service_connection.h"

namespace {

using client::answer_t;
using client::obstacle_t;
using std::chrono::steady_clock;

constexpr std::chrono::seconds patience{15};  // a service that restarts sets its modem up first
constexpr int between_tries = 200;            // milliseconds

}  // namespace

outbox_connection_t::outbox_connection_t(std::unique_ptr<client::service_t> service, std::string device,
                                         const base::end_signals_t& signals,
                                         std::function<void(const std::string&)> lost)
    : service_(std::move(service)), device_(std::move(device)), signals_(signals), lost_(std::move(lost)) {}

answer_t<outbox_card_t> outbox_connection_t::hand_in(client::handed_in_card_t card) {
    std::random_device random;
    const std::string token = fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
    card.token = token;
    return ask([&](client::service_t& service) { return service.outbox_add(card); });
}

answer_t<outbox_card_t> outbox_connection_t::ask(
    const std::function<answer_t<std::string>(client::service_t&)>& request) {
    auto answer = request(*service_);
    if (answer || answer.failure().obstacle != obstacle_t::no_answer) {
        return read_message(answer);
    }
    lost_(answer.failure().text);
    const auto deadline = steady_clock::now() + patience;
    do {
        auto service = connect_service(device_);
        answer = service ? request(*(service_ = std::move(*service))) : answer_t<std::string>(service.failure());
        // One that is ending may take a connection once more.
        if (service && (answer || answer.failure().obstacle != obstacle_t::no_answer)) {
            return read_message(answer);
        }
    } while (!signals_.wait(between_tries) && steady_clock::now() < deadline);
    return answer.failure();
}
