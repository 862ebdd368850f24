/// <zpd/client.h> for C++17 and later: what it gives are values, and handles free themselves. Only headers; a program
/// links libzpd-client all the same.
///
/// Nothing here throws but what the standard library throws for want of memory, and it works with -fno-exceptions: a
/// call gives an answer_t, which has a value or a failure. Waiting, threads and forks are as in <zpd/client.h>.
#ifndef ZPD_CLIENT_HPP
#define ZPD_CLIENT_HPP

#include <zpd/client.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zpd {

/// Why a call failed: one of the results of <zpd/client.h>, and words for it.
struct failure_t {
    int result = ZPD_OK;
    std::string text;
};

/// What a call gives. Only one that has a value may be asked for it.
template <typename value_t>
class [[nodiscard]] answer_t {
  public:
    answer_t(value_t value) : value_(std::move(value)) {}          // NOLINT: a value is an answer
    answer_t(failure_t failure) : failure_(std::move(failure)) {}  // NOLINT: so is a failure

    explicit operator bool() const { return value_.has_value(); }
    value_t& operator*() { return *value_; }
    const value_t& operator*() const { return *value_; }
    value_t* operator->() { return &*value_; }
    const value_t* operator->() const { return &*value_; }
    const failure_t& failure() const { return failure_; }

  private:
    std::optional<value_t> value_;
    failure_t failure_;
};

/// The value of a call that gives none.
struct done_t {};

enum class state_t {
    other = ZPD_MESSAGE_OTHER,
    waiting = ZPD_MESSAGE_WAITING,
    sending = ZPD_MESSAGE_SENDING,
    sent = ZPD_MESSAGE_SENT,
    cancelling = ZPD_MESSAGE_CANCELLING,
    cancelled = ZPD_MESSAGE_CANCELLED,
    set_aside = ZPD_MESSAGE_SET_ASIDE,
};

enum class kind_t {
    other = ZPD_EVENT_OTHER,
    stored = ZPD_EVENT_STORED,
    dropped = ZPD_EVENT_DROPPED,
    modem = ZPD_EVENT_MODEM,
    queued = ZPD_EVENT_QUEUED,
    sent = ZPD_EVENT_SENT,
    set_aside = ZPD_EVENT_SET_ASIDE,
    cancelled = ZPD_EVENT_CANCELLED,
    service = ZPD_EVENT_SERVICE,
};

/// What the accessors of the same names tell.
struct message_t {
    std::uint64_t id = 0;
    std::uint64_t version = 0;
    state_t state = state_t::other;
    std::string state_text;
    bool is_over = false;
    std::string number;
    std::string file;
    std::uint64_t size = 0;
    std::uint32_t datagrams = 0;
    std::uint32_t sent = 0;
    std::uint64_t handed_in = 0;
    std::uint64_t expires = 0;
    std::uint64_t next_try = 0;
    std::string reason;
    std::string advice;
    std::string waits_for;
    std::string json;
};

struct card_t {
    std::uint64_t number = 0;
    std::string name;
    std::string sender;
    std::uint64_t received = 0;
    std::uint64_t size = 0;
    std::string json;
};

struct event_t {
    std::uint64_t id = 0;
    std::uint64_t time = 0;
    kind_t kind = kind_t::other;
    std::string kind_text;
    std::string text;
    std::uint64_t message = 0;
    std::uint64_t card = 0;
    std::string number;
    std::string json;
};

/// See zpd_options_t.
struct options_t {
    std::uint64_t expires = 0;
    std::string token;
    std::string file;
    bool long_reference = false;
};

namespace detail {

template <typename object_t, void (*release)(object_t*)>
struct free_t {
    void operator()(object_t* object) const { release(object); }
};
template <typename object_t, void (*release)(object_t*)>
using owned_t = std::unique_ptr<object_t, free_t<object_t, release>>;

inline message_t value_of(const zpd_message_t* message) {
    return {zpd_message_id(message),         zpd_message_version(message),      state_t(zpd_message_state(message)),
            zpd_message_state_text(message), zpd_message_is_over(message) != 0, zpd_message_number(message),
            zpd_message_file(message),       zpd_message_size(message),         zpd_message_datagrams(message),
            zpd_message_sent(message),       zpd_message_handed_in(message),    zpd_message_expires(message),
            zpd_message_next_try(message),   zpd_message_reason(message),       zpd_message_advice(message),
            zpd_message_waits_for(message),  zpd_message_json(message)};
}

inline card_t value_of(const zpd_card_t* card) {
    return {zpd_card_number(card),   zpd_card_name(card), zpd_card_sender(card),
            zpd_card_received(card), zpd_card_size(card), zpd_card_json(card)};
}

inline event_t value_of(const zpd_event_t* event) {
    return {zpd_event_id(event),        zpd_event_time(event),   kind_t(zpd_event_kind(event)),
            zpd_event_kind_text(event), zpd_event_text(event),   zpd_event_message(event),
            zpd_event_card(event),      zpd_event_number(event), zpd_event_json(event)};
}

inline std::uint32_t milliseconds_of(std::chrono::milliseconds time) {
    constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(time.count() < 0 ? 0 : time.count() > most ? most : time.count());
}

inline zpd_options_t options_of(const options_t& options) {
    zpd_options_t all = ZPD_OPTIONS_INIT;
    all.expires = options.expires;
    all.token = options.token.c_str();
    all.file = options.file.c_str();
    all.long_reference = options.long_reference ? 1 : 0;
    return all;
}

}  // namespace detail

/// Moves; one that was moved from must not be used.
class client_t {
  public:
    /// Of a device, by its name or its socket's path. Nothing is connected yet.
    client_t() : handle_(zpd_client_new(nullptr)) {}
    explicit client_t(const std::string& device) : handle_(zpd_client_new(device.c_str())) {}

    answer_t<std::uint32_t> driver_version() {
        std::uint32_t version = 0;
        const int result = zpd_driver_version(handle(), &version);
        return answer(result, version);
    }
    /// A JSON object.
    answer_t<std::string> status() {
        const char* json = nullptr;
        const int result = zpd_status(handle(), &json);
        return answer(result, std::string(json != nullptr ? json : ""));
    }
    answer_t<bool> activation() {
        int active = 0;
        const int result = zpd_activation(handle(), &active);
        return answer(result, active != 0);
    }
    answer_t<done_t> set_activation(bool active) { return done(zpd_set_activation(handle(), active ? 1 : 0)); }

    answer_t<std::uint32_t> count(std::string_view card, const options_t& options = {}) {
        const zpd_options_t all = detail::options_of(options);
        std::uint32_t datagrams = 0;
        const int result = zpd_count(handle(), card.data(), card.size(), &all, &datagrams);
        return answer(result, datagrams);
    }
    /// The message's id.
    answer_t<std::uint64_t> send(std::string_view card, const std::string& number, const options_t& options = {}) {
        const zpd_options_t all = detail::options_of(options);
        std::uint64_t id = 0;
        const int result = zpd_send(handle(), card.data(), card.size(), number.c_str(), &all, &id);
        return answer(result, id);
    }
    answer_t<message_t> find(std::uint64_t id) {
        return message([&](zpd_message_t** message) { return zpd_outbox_find(handle(), id, message); });
    }
    answer_t<message_t> watch(std::uint64_t id, std::uint64_t version, std::chrono::milliseconds time) {
        return message([&](zpd_message_t** message) {
            return zpd_watch(handle(), id, version, detail::milliseconds_of(time), message);
        });
    }
    answer_t<message_t> wait(std::uint64_t id, std::chrono::milliseconds time) {
        return message(
            [&](zpd_message_t** message) { return zpd_wait(handle(), id, detail::milliseconds_of(time), message); });
    }
    answer_t<message_t> cancel(std::uint64_t id) {
        return message([&](zpd_message_t** message) { return zpd_cancel(handle(), id, message); });
    }
    answer_t<message_t> retry(std::uint64_t id, std::uint64_t expires = 0) {
        return message([&](zpd_message_t** message) { return zpd_retry(handle(), id, expires, message); });
    }
    answer_t<std::vector<message_t>> outbox(bool all = false) {
        zpd_messages_t* list = nullptr;
        const int result = zpd_outbox(handle(), all ? 1 : 0, &list);
        const detail::owned_t<zpd_messages_t, zpd_messages_free> owned(list);
        std::vector<message_t> messages;
        for (std::size_t i = 0; i < zpd_messages_count(list); ++i) {
            messages.push_back(detail::value_of(zpd_messages_at(list, i)));
        }
        return answer(result, std::move(messages));
    }

    answer_t<std::vector<card_t>> inbox(std::uint64_t after = 0) {
        zpd_cards_t* list = nullptr;
        const int result = zpd_inbox(handle(), after, &list);
        const detail::owned_t<zpd_cards_t, zpd_cards_free> owned(list);
        std::vector<card_t> cards;
        for (std::size_t i = 0; i < zpd_cards_count(list); ++i) {
            cards.push_back(detail::value_of(zpd_cards_at(list, i)));
        }
        return answer(result, std::move(cards));
    }
    answer_t<std::string> octets(std::uint64_t number) {
        const void* octets = nullptr;
        std::size_t size = 0;
        const int result = zpd_card_octets(handle(), number, &octets, &size);
        return answer(result, octets != nullptr ? std::string(static_cast<const char*>(octets), size) : std::string());
    }
    answer_t<done_t> remove(std::uint64_t number) { return done(zpd_card_remove(handle(), number)); }

  private:
    zpd_client_t* handle() const { return handle_.get(); }

    failure_t failure(int result) const {
        const std::string text = zpd_client_error(handle());
        return handle_ ? failure_t{result, text} : failure_t{ZPD_NO_MEMORY, zpd_result_text(ZPD_NO_MEMORY)};
    }
    template <typename value_t>
    answer_t<value_t> answer(int result, value_t value) const {
        return result == ZPD_OK ? answer_t<value_t>(std::move(value)) : answer_t<value_t>(failure(result));
    }
    answer_t<done_t> done(int result) const { return answer(result, done_t{}); }
    template <typename call_t>
    answer_t<message_t> message(const call_t& call) const {
        zpd_message_t* given = nullptr;
        const int result = call(&given);
        const detail::owned_t<zpd_message_t, zpd_message_free> owned(given);
        return answer(result, detail::value_of(given));
    }

    detail::owned_t<zpd_client_t, zpd_client_free> handle_;
};

/// What happens; see zpd_events_t. Moves like a client.
class events_t {
  public:
    explicit events_t(const std::string& device, std::uint64_t after = 0, std::uint64_t since = 0)
        : handle_(zpd_events_new(device.c_str(), after, since)) {}

    /// To be waited for; -1 when there was no memory or no descriptor.
    int descriptor() const { return zpd_events_descriptor(handle_.get()); }

    /// The next one, or none now. Never waits. After a failure the service is asked again by itself.
    answer_t<std::optional<event_t>> next() {
        zpd_event_t* event = nullptr;
        const int result = handle_ ? zpd_events_next(handle_.get(), &event) : ZPD_NO_MEMORY;
        const detail::owned_t<zpd_event_t, zpd_event_free> owned(event);
        if (result != ZPD_OK) {
            return failure_t{result, handle_ ? zpd_events_error(handle_.get()) : zpd_result_text(result)};
        }
        return event != nullptr ? std::optional<event_t>(detail::value_of(event)) : std::nullopt;
    }

  private:
    detail::owned_t<zpd_events_t, zpd_events_free> handle_;
};

}  // namespace zpd

#endif
