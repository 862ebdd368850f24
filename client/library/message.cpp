#include "client/library/message.h"

#include <algorithm>
#include <array>

namespace {

struct state_words_t {
    int state;
    const char* words;
};
constexpr auto states = std::to_array<state_words_t>({
    {ZPD_MESSAGE_WAITING, "waiting"},
    {ZPD_MESSAGE_SENDING, "sending"},
    {ZPD_MESSAGE_SENT, "sent"},
    {ZPD_MESSAGE_CANCELLING, "cancelling"},
    {ZPD_MESSAGE_CANCELLED, "cancelled"},
    {ZPD_MESSAGE_SET_ASIDE, "set aside"},
});

int state_of(const std::string& words) {
    const auto* const row = std::ranges::find(states, words, &state_words_t::words);
    return row == states.end() ? ZPD_MESSAGE_OTHER : row->state;
}

}  // namespace

namespace library {

zpd_message message_of(const json_t& object) {
    zpd_message message;
    message.id = number_at(object, "/id");
    message.version = number_at(object, "/version");
    message.state_text = text_at(object, "/state");
    message.state = state_of(message.state_text);
    message.number = text_at(object, "/number");
    message.file = text_at(object, "/file");
    message.size = number_at(object, "/octets");
    message.datagrams = static_cast<uint32_t>(number_at(object, "/datagrams/total"));
    message.sent = static_cast<uint32_t>(number_at(object, "/datagrams/sent"));
    message.handed_in = number_at(object, "/handed_in");
    message.expires = number_at(object, "/expires");
    message.next_try = number_at(object, "/next_try");
    message.reason = text_at(object, "/reason/text");
    message.advice = text_at(object, "/reason/advice");
    message.waits_for = text_at(object, "/waits_for");
    message.json = text_of(object);
    return message;
}

client::answer_t<message_t> read_message(const client::answer_t<std::string>& answer) {
    if (!answer) {
        return answer.failure();
    }
    const auto object = read_object(*answer);
    if (!object) {
        return object.failure();
    }
    return std::make_unique<zpd_message>(message_of(*object));
}

}  // namespace library

uint64_t zpd_message_id(const zpd_message_t* message) {
    return message != nullptr ? message->id : 0;
}
int zpd_message_state(const zpd_message_t* message) {
    return message != nullptr ? message->state : ZPD_MESSAGE_OTHER;
}
const char* zpd_message_state_text(const zpd_message_t* message) {
    return message != nullptr ? message->state_text.c_str() : "";
}
int zpd_message_is_over(const zpd_message_t* message) {
    return message != nullptr && message->is_over() ? 1 : 0;
}
uint64_t zpd_message_version(const zpd_message_t* message) {
    return message != nullptr ? message->version : 0;
}
const char* zpd_message_number(const zpd_message_t* message) {
    return message != nullptr ? message->number.c_str() : "";
}
const char* zpd_message_file(const zpd_message_t* message) {
    return message != nullptr ? message->file.c_str() : "";
}
uint64_t zpd_message_size(const zpd_message_t* message) {
    return message != nullptr ? message->size : 0;
}
uint32_t zpd_message_datagrams(const zpd_message_t* message) {
    return message != nullptr ? message->datagrams : 0;
}
uint32_t zpd_message_sent(const zpd_message_t* message) {
    return message != nullptr ? message->sent : 0;
}
uint64_t zpd_message_handed_in(const zpd_message_t* message) {
    return message != nullptr ? message->handed_in : 0;
}
uint64_t zpd_message_expires(const zpd_message_t* message) {
    return message != nullptr ? message->expires : 0;
}
uint64_t zpd_message_next_try(const zpd_message_t* message) {
    return message != nullptr ? message->next_try : 0;
}
const char* zpd_message_reason(const zpd_message_t* message) {
    return message != nullptr ? message->reason.c_str() : "";
}
const char* zpd_message_advice(const zpd_message_t* message) {
    return message != nullptr ? message->advice.c_str() : "";
}
const char* zpd_message_waits_for(const zpd_message_t* message) {
    return message != nullptr ? message->waits_for.c_str() : "";
}
const char* zpd_message_json(const zpd_message_t* message) {
    return message != nullptr ? message->json.c_str() : "";
}
void zpd_message_free(zpd_message_t* message) {
    delete message;
}

size_t zpd_messages_count(const zpd_messages_t* messages) {
    return messages != nullptr ? messages->items.size() : 0;
}
const zpd_message_t* zpd_messages_at(const zpd_messages_t* messages, size_t index) {
    return index < zpd_messages_count(messages) ? &messages->items[index] : nullptr;
}
void zpd_messages_free(zpd_messages_t* messages) {
    delete messages;
}
