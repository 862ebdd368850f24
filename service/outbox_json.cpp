#include "service/outbox_json.h"

#include <fmt/format.h>

#include <string_view>

using nlohmann::ordered_json;

namespace {

/// What is not there is null.
template <typename value_t>
ordered_json or_null(const std::optional<value_t>& value) {
    return value ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json reason_json(const reason_t& reason) {
    if (reason.text.empty()) {
        return nullptr;
    }
    return {{"text", reason.text},
            {"advice", reason.advice.empty() ? ordered_json(nullptr) : ordered_json(reason.advice)}};
}

/// The names on the card, else its file.
std::string label_of(const outbox_message_t& message) {
    std::string names;
    for (const ordered_json& contact : ordered_json::parse(message.contacts, nullptr, false)) {
        const std::string name = contact.is_object() ? contact.value("name", std::string()) : std::string();
        names += (names.empty() || name.empty() ? "" : ", ") + name;
    }
    return names.empty() ? message.file : names;
}

std::string counted(int64_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

/// Nothing where it is not known any more.
std::string how_far(const outbox_message_t& message) {
    return message.reason.text == lease_lost
               ? std::string()
               : fmt::format("; {} of {} had been sent", message.sent, counted(message.datagrams, "datagram"));
}

std::string why_called_back(const outbox_message_t& message) {
    const std::string& reason = message.reason.text;
    return reason == lease_ended || reason == lease_lost ? "; " + reason : std::string();
}

std::string what_became(const outbox_message_t& message) {
    switch (message.state) {
        case outbox_state_t::set_aside:
            return fmt::format(": {}{}{}; zpd outbox retry {}", message.reason.text,
                               message.reason.advice.empty() ? "" : ": ", message.reason.advice, message.id);
        case outbox_state_t::cancelled:
            return how_far(message) + why_called_back(message);
        default:
            return fmt::format(" ({})", counted(message.datagrams, "datagram"));
    }
}

}  // namespace

ordered_json message_json(const outbox_message_t& message) {
    return {{"id", message.id},
            {"state", words_of(message.state)},
            {"number", message.number},
            {"file", message.file},
            {"octets", message.size},
            {"contacts", ordered_json::parse(message.contacts, nullptr, false)},
            {"datagrams", {{"total", message.datagrams}, {"sent", message.sent}}},
            {"handed_in", message.handed_in},
            {"expires", message.expires == 0 ? ordered_json(nullptr) : ordered_json(message.expires)},
            {"changed", message.changed},
            {"refusals", message.refusals},
            {"reason", reason_json(message.reason)},
            {"token", message.token.empty() ? ordered_json(nullptr) : ordered_json(message.token)},
            {"leased", message.leased}};
}

ordered_json message_json(const outbox_t::view_t& view) {
    ordered_json json = message_json(view.message);
    json["version"] = view.version;
    json["driver_message"] = or_null(view.driver_message);
    json["next_try"] = view.hold ? ordered_json(view.hold->until) : ordered_json(nullptr);
    json["ahead"] = view.ahead ? ordered_json{{"messages", view.ahead->messages}, {"datagrams", view.ahead->datagrams}}
                               : ordered_json(nullptr);
    return json;
}

std::string event_text(const outbox_message_t& message, const char* kind) {
    return fmt::format("{} message {} to {}: {}{}", kind, message.id, message.number, label_of(message),
                       what_became(message));
}
