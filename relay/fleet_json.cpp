#include "relay/fleet_json.h"

#include <fmt/format.h>

#include <charconv>
#include <ctime>

#include "client/service.h"
#include "relay/fleet_names.h"

namespace fleet {

namespace {

/// zpd.GROUP.KIND.…: what stands at a place, and all after it.
std::string_view rest_of(std::string_view subject, size_t place) {
    for (; place > 0; --place) {
        const size_t dot = subject.find('.');
        subject = dot == std::string_view::npos ? "" : subject.substr(dot + 1);
    }
    return subject;
}

std::string_view part_of(std::string_view subject, size_t place) {
    const std::string_view rest = rest_of(subject, place);
    return rest.substr(0, rest.find('.'));
}

uint64_t digits_as_number(std::string_view digits) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() && end == digits.data() + digits.size() ? number : 0;
}

/// The form's members, as they were given where they are of its type; what is null in the form may be anything.
json_t in_form(json_t form, const json_t& given) {
    for (auto& [name, value] : form.items()) {
        const auto found = given.is_object() ? given.find(name) : given.end();
        if (found != given.end() && (value.is_null() || value.type() == found->type())) {
            value = *found;
        }
    }
    return form;
}

json_t contacts_of(const json_t& given) {
    json_t contacts = json_t::array();
    for (const json_t& one : given.is_array() ? given : contacts) {
        contacts.push_back(in_form({{"name", ""}, {"organisation", nullptr}, {"telephone", nullptr}}, one));
    }
    return contacts;
}

json_t empty_message(uint64_t id, std::string_view state) {
    return {{"id", id},
            {"state", state},
            {"number", ""},
            {"file", ""},
            {"octets", uint64_t{0}},
            {"contacts", json_t::array()},
            {"datagrams", {{"total", uint64_t{0}}, {"sent", uint64_t{0}}}},
            {"handed_in", uint64_t{0}},
            {"expires", nullptr},
            {"changed", uint64_t{0}},
            {"refusals", uint64_t{0}},
            {"reason", nullptr},
            {"version", uint64_t{0}},
            {"driver_message", nullptr},
            {"next_try", nullptr},
            {"ahead", nullptr},
            {"waits_for", nullptr},
            {"estimate", nullptr}};
}

json_t message_in_form(uint64_t id, const json_t& given) {
    const json_t form = empty_message(id, "waiting");
    json_t message = in_form(form, given);
    message["id"] = id;
    message["contacts"] = contacts_of(message["contacts"]);
    message["datagrams"] = in_form(form["datagrams"], message["datagrams"]);
    return message;
}

std::string_view state_of(std::string_view result) {
    return result == words_of(result_t::sent)        ? "sent"
           : result == words_of(result_t::aside)     ? "set aside"
           : result == words_of(result_t::cancelled) ? "cancelled"
                                                     : "waiting";
}

json_t or_null(std::string_view text) {
    return text.empty() ? json_t(nullptr) : json_t(text);
}

/// The names on a card, else what it is called.
std::string label_of(const json_t& card) {
    std::string names;
    for (const json_t& contact : card.at("contacts")) {
        const std::string name = contact.at("name");
        names += (names.empty() || name.empty() ? "" : ", ") + name;
    }
    return names.empty() ? card.at("file").get<std::string>() : names;
}

}  // namespace

// What lies deep is of nobody that we know, and would be printed by functions that call themselves.
json_t read_object(std::string_view text) {
    constexpr size_t longest = 65'536;  // octets, as many as a service answers
    constexpr int deepest = 16;
    if (text.size() > longest) {
        return json_t::object();
    }
    const auto is_near = [](int depth, json_t::parse_event_t, const json_t&) { return depth <= deepest; };
    json_t json = json_t::parse(text, is_near, false);
    return json.is_object() ? json : json_t::object();
}

uint64_t id_of_result(const std::string& subject) {
    return part_of(subject, 2) == "result" ? digits_as_number(part_of(subject, 3)) : 0;
}

json_t waiting_message(const nats::message_t& card) {
    json_t message = empty_message(card.sequence(), "waiting");
    const uint64_t expires = digits_as_number(card.header(header_expires));
    message["number"] = card.header(header_to);
    message["file"] = card.header(header_file);
    message["octets"] = card.data().size();
    message["handed_in"] = static_cast<uint64_t>(card.time());
    message["expires"] = expires == 0 ? json_t(nullptr) : json_t(expires);
    message["changed"] = message["handed_in"];
    const std::string subject = card.subject();
    message["waits_for"] = part_of(subject, 3) == "from"
                               ? fmt::format("the phone {} of the fleet takes it", part_of(subject, 4))
                               : "a modem of the fleet takes it";
    return message;
}

json_t message_of_result(const nats::message_t& result) {
    const std::string subject = result.subject();
    const json_t given = read_object(result.data());
    json_t message = message_in_form(id_of_result(subject), member(given, "message"));
    message["state"] = state_of(rest_of(subject, 4));
    message["version"] = result.sequence();
    const std::string modem = text(given, "modem");
    message["modem"] = or_null(modem);
    if (message["state"] == "waiting" && message["waits_for"].is_null() && !modem.empty()) {
        message["waits_for"] = "it is with the modem " + modem;
    }
    return message;
}

json_t message_of_answer(uint64_t id, const nats::message_t& answer) {
    return message_in_form(id, read_object(answer.data()));
}

json_t cancelled_event(const json_t& message) {
    json_t cancelled = message;
    const auto now = static_cast<uint64_t>(std::time(nullptr));
    cancelled["state"] = "cancelled";
    cancelled["changed"] = now;
    cancelled["waits_for"] = nullptr;
    return {{"time", now},
            {"kind", "cancelled"},
            {"text", fmt::format("cancelled message {} to {}: {}; no relay had it", message["id"].get<uint64_t>(),
                                 message["number"].get<std::string>(), label_of(message))},
            {"message", cancelled}};
}

json_t received_card(const nats::message_t& message) {
    const std::string subject = message.subject();
    const std::string modem(rest_of(subject, 3));
    json_t card = in_form({{"number", uint64_t{0}},
                           {"file", fmt::format("{}-{}", modem, message.sequence())},
                           {"path", nullptr},
                           {"sender", ""},
                           {"received", static_cast<uint64_t>(message.time())},
                           {"octets", uint64_t{0}},
                           {"contacts", json_t::array()}},
                          read_object(message.header(header_card)));
    card["number"] = message.sequence();
    card["path"] = nullptr;  // a machine's own affair
    card["octets"] = message.data().size();
    card["contacts"] = contacts_of(card["contacts"]);
    card["modem"] = modem;
    return card;
}

json_t event_of(const nats::message_t& message) {
    const std::string subject = message.subject();
    const std::string_view about = part_of(subject, 2);
    const json_t form{{"id", uint64_t{0}},
                      {"time", static_cast<uint64_t>(message.time())},
                      {"kind", about},
                      {"text", "what cannot be read, of " + subject}};
    json_t event;
    if (about == "received") {
        const json_t card = received_card(message);
        event = form;
        event["kind"] = "stored";
        event["text"] =
            fmt::format("stored card {} from {}: {}, at {}", message.sequence(), card["sender"].get<std::string>(),
                        label_of(card), card["modem"].get<std::string>());
        event["card"] = card;
    } else {
        const json_t given = read_object(message.data());
        event = in_form(form, given);
        if (about == "result") {
            event["message"] = message_of_result(message);
        }
        event["modem"] = about == "modem" ? json_t(rest_of(subject, 3)) : or_null(text(given, "modem"));
    }
    event["id"] = message.sequence();
    return event;
}

json_t modem_of(const nats::entry_t& entry) {
    const uint64_t none = 0;
    json_t modem = in_form({{"modem", ""},
                            {"machine", ""},
                            {"device", ""},
                            {"number", nullptr},
                            {"network", nullptr},
                            {"registered", false},
                            {"hindrance", nullptr},
                            {"queue", none},
                            {"room", none},
                            {"version", ""},
                            {"since", none}},
                           read_object(entry.value.value_or("")));
    modem["modem"] = entry.key;
    return modem;
}

}  // namespace fleet
