#include "relay/service_json.h"

#include <fmt/format.h>

#include <charconv>

namespace fleet {

const json_t& member(const json_t& object, const char* name) {
    static const json_t none;
    if (!object.is_object()) {
        return none;
    }
    const auto found = object.find(name);
    return found != object.end() ? *found : none;
}

std::string text(const json_t& object, const char* name) {
    const json_t& value = member(object, name);
    return value.is_string() ? value.get<std::string>() : std::string();
}

uint64_t number(const json_t& object, const char* name) {
    const json_t& value = member(object, name);
    return value.is_number_unsigned() || (value.is_number_integer() && value.get<int64_t>() >= 0)
               ? value.get<uint64_t>()
               : 0;
}

bool is_true(const json_t& object, const char* name) {
    const json_t& value = member(object, name);
    return value.is_boolean() && value.get<bool>();
}

namespace {

std::string prefix_of(int64_t created) {
    return fmt::format("fleet-{:x}-", created);
}

void replace(std::string& text, const std::string& what, const std::string& with) {
    if (const size_t found = text.find(what); found != std::string::npos) {
        text.replace(found, what.size(), with);
    }
}

}  // namespace

std::string token_of(int64_t created, uint64_t card, uint64_t digest) {
    return fmt::format("{}{}-{:016x}", prefix_of(created), card, digest);
}

std::optional<card_name_t> card_of(std::string_view token, int64_t created) {
    constexpr int hexadecimal = 16;
    const std::string prefix = prefix_of(created);
    if (!token.starts_with(prefix)) {
        return std::nullopt;
    }
    card_name_t name;
    const char* const end = token.data() + token.size();
    const auto card = std::from_chars(token.data() + prefix.size(), end, name.card);
    if (card.ec != std::errc() || name.card == 0 || card.ptr == end || *card.ptr != '-') {
        return std::nullopt;
    }
    const auto digest = std::from_chars(card.ptr + 1, end, name.digest, hexadecimal);
    return digest.ec == std::errc() && digest.ptr == end ? std::optional(name) : std::nullopt;
}

json_t for_fleet(json_t message, uint64_t card, const std::string& modem) {
    message["id"] = card;
    message["modem"] = modem;
    const std::string token = text(message, "token");
    message["digest"] = token.substr(token.rfind('-') + 1);
    message.erase("token");
    message.erase("leased");
    message.erase("driver_message");
    return message;
}

// The words of the service name its own number, once or twice.
json_t event_for_fleet(json_t event, uint64_t card, const std::string& modem) {
    const uint64_t own = number(member(event, "message"), "id");
    std::string words = text(event, "text");
    replace(words, fmt::format(" message {} ", own), fmt::format(" message {} ", card));
    replace(words, fmt::format("zpd outbox retry {}", own), fmt::format("zpd outbox retry {}", card));
    event["text"] = fmt::format("{}: {}", modem, words);
    event["message"] = for_fleet(member(event, "message"), card, modem);
    event["modem"] = modem;
    return event;
}

}  // namespace fleet
