#include "cli/outbox_message.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <ctime>

#include "base/duration.h"
#include "base/safe_text.h"
#include "cli/output.h"

namespace {

using client::answer_t;
using client::failure_t;
using nlohmann::ordered_json;

/// What is not there, null or of another type is none.
template <typename value_t>
std::optional<value_t> find(const ordered_json& object, const char* path) {
    const ordered_json::json_pointer pointer(path);
    if (!object.contains(pointer)) {
        return std::nullopt;
    }
    const ordered_json& value = object[pointer];
    const bool fits = std::is_same_v<value_t, std::string> ? value.is_string() : value.is_number_unsigned();
    return fits ? std::optional(value.get<value_t>()) : std::nullopt;
}

std::string text_at(const ordered_json& object, const char* path) {
    return base::escaped(find<std::string>(object, path).value_or(""));
}

uint64_t number_at(const ordered_json& object, const char* path) {
    return find<uint64_t>(object, path).value_or(0);
}

uint64_t now() {
    return static_cast<uint64_t>(std::time(nullptr));
}

failure_t not_understood() {
    return {.text = "the service's answer is no message of an outbox"};
}

}  // namespace

std::string outbox_card_t::name() const {
    std::vector<std::string> names;
    for (const ordered_json& contact : json.value("contacts", ordered_json::array())) {
        if (std::string name = text_at(contact, "/name"); !name.empty()) {
            names.push_back(std::move(name));
        }
    }
    return names.empty()       ? base::escaped(file)
           : names.size() == 1 ? names[0]
                               : fmt::format("{} and {} more", names[0], names.size() - 1);
}

bool outbox_card_t::is_held_back() const {
    return !is_over() && find<uint64_t>(json, "/next_try");
}

std::string outbox_card_t::age() const {
    const uint64_t handed_in = number_at(json, "/handed_in");
    return base::duration_words(now() - std::min(handed_in, now()));
}

std::string outbox_card_t::progress() const {
    return total == 0 ? "not cut into datagrams yet" : fmt::format("{} of {} sent", sent, counted(total, "datagram"));
}

std::string outbox_card_t::circumstances() const {
    std::vector<std::string> texts;
    if (const std::string reason = text_at(json, "/reason/text"); !reason.empty()) {
        const std::string advice = text_at(json, "/reason/advice");
        texts.push_back(reason + (advice.empty() ? "" : ": ") + advice);
    }
    if (const auto next_try = find<uint64_t>(json, "/next_try"); next_try && !is_over()) {
        texts.push_back("it is tried again in " + base::duration_words(*next_try - std::min(*next_try, now())));
    }
    if (const uint64_t others = number_at(json, "/ahead/messages"); others != 0) {
        texts.push_back(fmt::format("behind {}, {}", counted(others, "message"),
                                    counted(number_at(json, "/ahead/datagrams"), "datagram")));
    }
    if (std::string what = text_at(json, "/waits_for"); !what.empty()) {
        texts.push_back(std::move(what));
    }
    if (const auto estimate = find<uint64_t>(json, "/estimate"); estimate && *estimate != 0) {
        texts.push_back("sent in about " + base::duration_words(*estimate));
    }
    return fmt::format("{}", fmt::join(texts, "; "));
}

std::optional<outbox_card_t> read_message(const ordered_json& json) {
    const auto id = find<uint64_t>(json, "/id");
    auto state = find<std::string>(json, "/state");
    if (!id || !state) {
        return std::nullopt;
    }
    outbox_card_t message;
    message.json = json;
    message.id = *id;
    message.version = number_at(json, "/version");
    message.state = std::move(*state);
    message.number = text_at(json, "/number");
    message.file = find<std::string>(json, "/file").value_or("");
    message.total = number_at(json, "/datagrams/total");
    message.sent = number_at(json, "/datagrams/sent");
    message.driver_message = find<uint32_t>(json, "/driver_message");
    return message;
}

answer_t<outbox_card_t> read_message(const answer_t<std::string>& answer) {
    if (!answer) {
        return answer.failure();
    }
    auto message = read_message(ordered_json::parse(*answer, nullptr, false));
    return message ? answer_t<outbox_card_t>(std::move(*message)) : not_understood();
}

answer_t<std::vector<outbox_card_t>> list_outbox(client::service_t& service, bool all) {
    std::vector<outbox_card_t> messages;
    for (bool more = true; more;) {
        const auto answer = service.outbox_list(messages.empty() ? 0 : messages.back().id, all);
        if (!answer) {
            return answer.failure();
        }
        const auto list = ordered_json::parse(*answer, nullptr, false);
        if (!list.is_object() || !list.contains("messages")) {
            return not_understood();
        }
        for (const ordered_json& one : list["messages"]) {
            auto message = read_message(one);
            if (!message) {
                return not_understood();
            }
            messages.push_back(std::move(*message));
        }
        more = list.value("more", false) && !list["messages"].empty();
    }
    return messages;
}

std::string as_arguments(const std::vector<uint64_t>& ids) {
    return fmt::format("{}", fmt::join(ids, " "));
}

std::string messages_words(const std::vector<uint64_t>& ids) {
    if (ids.size() == 1) {
        return fmt::format("message {}", ids[0]);
    }
    return fmt::format("messages {} and {}", fmt::join(ids.begin(), ids.end() - 1, ", "), ids.back());
}
