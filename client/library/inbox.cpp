// The cards that came.
#include <zpd/client.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "client/library/handle.h"
#include "client/library/values.h"

struct zpd_card {
    uint64_t number = 0;
    std::string name;
    std::string sender;
    uint64_t received = 0;
    uint64_t size = 0;
    std::string json;
};

struct zpd_cards {
    std::vector<zpd_card> items;
};

namespace {

using client::answer_t;
using client::client_t;
using library::answer;
using library::json_t;

zpd_card card_of(const json_t& object) {
    using library::number_at;
    return {.number = number_at(object, "/number"),
            .name = library::contact_names(object),
            .sender = library::text_at(object, "/sender"),
            .received = number_at(object, "/received"),
            .size = number_at(object, "/octets"),
            .json = library::text_of(object)};
}

answer_t<std::unique_ptr<zpd_cards>> list_inbox(client_t& device, uint64_t after) {
    auto cards = std::make_unique<zpd_cards>();
    for (bool more = true; more;) {
        const auto text = device.inbox_list(after);
        if (!text) {
            return text.failure();
        }
        const auto list = library::read_object(*text);
        if (!list) {
            return list.failure();
        }
        const uint64_t before = after;
        for (const json_t& one : library::list_at(*list, "cards")) {
            cards->items.push_back(card_of(one));
            after = std::max(after, cards->items.back().number);
        }
        more = list->value("more", json_t()) == true && after > before;
    }
    return cards;
}

}  // namespace

int zpd_inbox(zpd_client_t* client, uint64_t after, zpd_cards_t** cards) {
    return answer(client, cards,
                  [&] { return client->ask([&](client_t& device) { return list_inbox(device, after); }); });
}

int zpd_card_octets(zpd_client_t* client, uint64_t number, const void** octets, size_t* size) {
    const int result = answer(client, octets, [&]() -> answer_t<const void*> {
        auto card = client->ask([&](client_t& device) { return device.inbox_octets(number); });
        if (!card) {
            return card.failure();
        }
        client->given = std::move(*card);
        return client->given.data();
    });
    if (size != nullptr) {
        *size = result == ZPD_OK ? client->given.size() : 0;
    }
    return result;
}

int zpd_card_remove(zpd_client_t* client, uint64_t number) {
    return answer<client::done_t>(
        client, nullptr, [&] { return client->ask([&](client_t& device) { return device.inbox_remove(number); }); });
}

uint64_t zpd_card_number(const zpd_card_t* card) {
    return card != nullptr ? card->number : 0;
}
const char* zpd_card_name(const zpd_card_t* card) {
    return card != nullptr ? card->name.c_str() : "";
}
const char* zpd_card_sender(const zpd_card_t* card) {
    return card != nullptr ? card->sender.c_str() : "";
}
uint64_t zpd_card_received(const zpd_card_t* card) {
    return card != nullptr ? card->received : 0;
}
uint64_t zpd_card_size(const zpd_card_t* card) {
    return card != nullptr ? card->size : 0;
}
const char* zpd_card_json(const zpd_card_t* card) {
    return card != nullptr ? card->json.c_str() : "";
}

size_t zpd_cards_count(const zpd_cards_t* cards) {
    return cards != nullptr ? cards->items.size() : 0;
}
const zpd_card_t* zpd_cards_at(const zpd_cards_t* cards, size_t index) {
    return index < zpd_cards_count(cards) ? &cards->items[index] : nullptr;
}
void zpd_cards_free(zpd_cards_t* cards) {
    delete cards;
}
