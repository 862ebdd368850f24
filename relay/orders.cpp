#include "relay/orders.h"

#include <chrono>

namespace fleet {

namespace {

using std::chrono::milliseconds;

constexpr uint64_t two_days = 172'800;  // seconds, as for one that is handed in

uint64_t now() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count());
}

}  // namespace

void orders_t::serve() {
    serve(cancels_, "cancel", &orders_t::cancel);
    serve(retries_, "retry", &orders_t::retry);
}

void orders_t::serve(subscription_t& orders, const char* what,
                     void (orders_t::*carry_out)(const nats::message_t&, uint64_t)) {
    if (!orders) {
        auto made = modem_.server.subscribe(modem_.names.order(what));
        if (!made) {
            return;
        }
        orders.emplace(std::move(*made));
    }
    for (;;) {
        const auto order = orders->next(milliseconds(0));
        if (!order) {
            orders.reset();
        }
        if (!order || !*order) {
            return;
        }
        const uint64_t card = number(read_json((*order)->data()), "id");
        if (card != 0) {
            (this->*carry_out)(**order, card);
        }
    }
}

void orders_t::cancel(const nats::message_t& order, uint64_t card) {
    const auto lease = modem_.leases.change(card, [](lease_t& one) { one.is_cancelled = true; });
    if (lease && lease->message != 0) {
        answer(order, card, link_.ask([&](client::client_t& client) { return client.outbox_cancel(lease->message); }));
    }
}

void orders_t::retry(const nats::message_t& order, uint64_t card) {
    if (const auto message = set_aside(card)) {
        answer(order, card,
               link_.ask([&](client::client_t& client) { return client.outbox_retry(*message, now() + two_days); }));
    }
}

void orders_t::answer(const nats::message_t& order, uint64_t card, const client::answer_t<std::string>& message) {
    const json_t told = message ? for_fleet(read_json(*message), card, modem_.key)
                                : json_t{{"error", message.failure().text}, {"modem", modem_.key}};
    if (const std::string address = order.reply(); !address.empty()) {
        static_cast<void>(modem_.server.publish(address, text_of(told)));
    }
}

/// The outbox's own number of a card that it has set aside.
std::optional<uint64_t> orders_t::set_aside(uint64_t card) {
    for (uint64_t after = 0;;) {
        const auto page = link_.ask([&](client::client_t& client) { return client.outbox_list(after, false); });
        const json_t list = page ? read_json(*page) : json_t();
        const json_t& messages = member(list, "messages");
        if (!messages.is_array() || messages.empty()) {
            return std::nullopt;
        }
        for (const json_t& message : messages) {
            after = number(message, "id");
            if (text(message, "state") == "set aside" && card_of(text(message, "token"), modem_.created) == card) {
                return after;
            }
        }
        if (!is_true(list, "more")) {
            return std::nullopt;
        }
    }
}

}  // namespace fleet
