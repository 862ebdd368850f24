#include "client/library/event.h"

#include <algorithm>
#include <array>

namespace {

struct kind_words_t {
    int kind;
    const char* words;
};
constexpr auto kinds = std::to_array<kind_words_t>({
    {ZPD_EVENT_STORED, "stored"},
    {ZPD_EVENT_DROPPED, "dropped"},
    {ZPD_EVENT_MODEM, "modem"},
    {ZPD_EVENT_QUEUED, "queued"},
    {ZPD_EVENT_SENT, "sent"},
    {ZPD_EVENT_SET_ASIDE, "set aside"},
    {ZPD_EVENT_CANCELLED, "cancelled"},
    {ZPD_EVENT_SERVICE, "service"},
});

int kind_of(const std::string& words) {
    const auto* const row = std::ranges::find(kinds, words, &kind_words_t::words);
    return row == kinds.end() ? ZPD_EVENT_OTHER : row->kind;
}

/// A message has it as its number, a card that was stored or dropped as its sender.
std::string other_side_of(const library::json_t& object) {
    std::string number;
    for (const char* path : {"/message/number", "/card/sender", "/sender"}) {
        if (number.empty()) {
            number = library::text_at(object, path);
        }
    }
    return number;
}

}  // namespace

namespace library {

zpd_event event_of(const json_t& object) {
    zpd_event event;
    event.id = number_at(object, "/id");
    event.time = number_at(object, "/time");
    event.kind_text = text_at(object, "/kind");
    event.kind = kind_of(event.kind_text);
    event.text = text_at(object, "/text");
    event.message = number_at(object, "/message/id");
    event.card = number_at(object, "/card/number");
    event.number = other_side_of(object);
    event.json = text_of(object);
    return event;
}

}  // namespace library

uint64_t zpd_event_id(const zpd_event_t* event) {
    return event != nullptr ? event->id : 0;
}
uint64_t zpd_event_time(const zpd_event_t* event) {
    return event != nullptr ? event->time : 0;
}
int zpd_event_kind(const zpd_event_t* event) {
    return event != nullptr ? event->kind : ZPD_EVENT_OTHER;
}
const char* zpd_event_kind_text(const zpd_event_t* event) {
    return event != nullptr ? event->kind_text.c_str() : "";
}
const char* zpd_event_text(const zpd_event_t* event) {
    return event != nullptr ? event->text.c_str() : "";
}
uint64_t zpd_event_message(const zpd_event_t* event) {
    return event != nullptr ? event->message : 0;
}
uint64_t zpd_event_card(const zpd_event_t* event) {
    return event != nullptr ? event->card : 0;
}
const char* zpd_event_number(const zpd_event_t* event) {
    return event != nullptr ? event->number.c_str() : "";
}
const char* zpd_event_json(const zpd_event_t* event) {
    return event != nullptr ? event->json.c_str() : "";
}
void zpd_event_free(zpd_event_t* event) {
    delete event;
}
