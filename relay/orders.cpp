#include "relay/orders.h"

#include <chrono>

namespace fleet {

namespace {

using std::chrono::milliseconds;

/// Seconds since 1970, 0 for never; two days from now, as for one that is handed in, when it is not said.
uint64_t expiry_of(const json_t& request) {
    constexpr std::chrono::hours two_days{48};
    if (member(request, "expires").is_number()) {
        return number(request, "expires");
    }
    const auto then = std::chrono::system_clock::now().time_since_epoch() + two_days;
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(then).count());
}

}  // namespace

void orders_t::serve() {
    serve(cancels_, "cancel", &orders_t::cancel);
    serve(retries_, "retry", &orders_t::retry);
}

void orders_t::serve(subscription_t& orders, const char* what, carry_out_t carry_out) {
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
        const json_t request = read_json((*order)->data());
        if (const uint64_t card = number(request, "id"); card != 0) {
            (this->*carry_out)(**order, card, request);
        }
    }
}

void orders_t::cancel(const nats::message_t& order, uint64_t card, const json_t& /*request*/) {
    const auto lease = modem_.leases.change(card, [](lease_t& one) { one.is_cancelled = true; });
    const auto message = lease ? lease->message : set_aside(card).value_or(0);
    if (message != 0) {
        answer(order, card, link_.ask([&](client::client_t& client) { return client.outbox_cancel(message); }));
    }
}

void orders_t::retry(const nats::message_t& order, uint64_t card, const json_t& request) {
    if (const auto message = set_aside(card)) {
        answer(order, card,
               link_.ask([&](client::client_t& client) { return client.outbox_retry(*message, expiry_of(request)); }));
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
            const auto name = card_of(text(message, "token"), modem_.created);
            if (text(message, "state") == "set aside" && name && name->card == card) {
                return after;
            }
        }
        if (!is_true(list, "more")) {
            return std::nullopt;
        }
    }
}

}  // namespace fleet
