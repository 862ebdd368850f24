// Handing in cards, and following them.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <string_view>
#include <thread>

#include "base/text.h"
#include "client/library/handle.h"
#include "client/library/message.h"
#include "com/zpd/zpd_ioctl.h"
#include "device/service_requests.h"

namespace {

using client::answer_t;
using client::client_t;
using client::failure_t;
using client::obstacle_t;
using library::answer;
using library::bad_argument;
using library::message_t;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds patience{15};  // a service that restarts sets its modem up first
constexpr milliseconds between_tries{200};

/// Those that the program knows; the others are 0.
zpd_options_t known_options(const zpd_options_t* options) {
    zpd_options_t known = ZPD_OPTIONS_INIT;
    if (options != nullptr) {
        std::memcpy(&known, options, std::min(options->size, sizeof known));
    }
    return known;
}

/// As the service takes it.
uint64_t expiry_of(uint64_t expires) {
    constexpr uint64_t two_days = uint64_t{2} * 24 * 60 * 60;  // as zpd send
    return expires == ZPD_NEVER ? 0 : expires != 0 ? expires : static_cast<uint64_t>(std::time(nullptr)) + two_days;
}

std::optional<failure_t> problem_of(const void* card, size_t size, const zpd_options_t* options) {
    if (card == nullptr || size == 0) {
        return bad_argument("the card is empty");
    }
    if (size > ZPD_CARD_MAX_SHORT_REFERENCE) {
        return bad_argument(
            fmt::format("the card has {} octets; 255 datagrams hold {}", size, ZPD_CARD_MAX_SHORT_REFERENCE));
    }
    if (options != nullptr && options->size < sizeof options->size) {
        return bad_argument("the options have no size");
    }
    return std::nullopt;
}

client::outgoing_card_t outgoing(const void* card, size_t size, const zpd_options_t& options) {
    const std::string_view octets(static_cast<const char*>(card), size);
    return {.octets = octets, .is_utf8 = base::is_utf8(octets), .long_reference = options.long_reference != 0};
}

answer_t<uint64_t> hand_in(zpd_client_t* client, const client::outgoing_card_t& card, std::string_view number,
                           const zpd_options_t& options) {
    const std::string file = library::text_of(options.file);
    const std::string token = library::text_of(options.token);
    const client::handed_in_card_t handed_in{card, number, file, expiry_of(options.expires), token};
    const auto message =
        client->ask([&](client_t& device) { return library::read_message(device.outbox_add(handed_in)); });
    if (!message) {
        return message.failure();
    }
    return (*message)->id;
}

bool is_away(const failure_t& failure) {
    return failure.obstacle == obstacle_t::no_service || failure.obstacle == obstacle_t::no_answer;
}

/// Looks at a message again and again, over a service that starts again.
class watch_t {
  public:
    watch_t(zpd_client_t* client, uint64_t id, uint32_t wait)
        : client_(client), id_(id), end_(now() + milliseconds(wait)) {}

    answer_t<message_t> until_another(uint64_t version) {
        return until([version](const zpd_message& message) { return message.version != version; }, version);
    }
    answer_t<message_t> until_over() {
        return until([](const zpd_message& message) { return message.is_over(); }, 0);
    }

  private:
    static steady_clock::time_point now() { return steady_clock::now(); }

    template <typename wanted_t>
    answer_t<message_t> until(const wanted_t& is_wanted, uint64_t version) {
        auto patient_until = now() + patience;
        for (;;) {
            const auto begun = now();
            auto message = look(version);
            if (message) {
                if (is_wanted(**message) || now() >= end_) {
                    return message;
                }
                patient_until = now() + patience;
                version = (*message)->version;
            } else if (!is_away(message.failure()) || now() >= std::min(end_, patient_until)) {
                return message;
            } else {
                version = 0;  // the next service counts anew
            }
            if (now() < begun + between_tries) {
                std::this_thread::sleep_for(std::min<steady_clock::duration>(between_tries, end_ - now()));
            }
        }
    }

    answer_t<message_t> look(uint64_t version) {
        const auto left = std::chrono::ceil<milliseconds>(end_ - now()).count();
        const auto wait = static_cast<uint32_t>(std::clamp<int64_t>(left, 0, device::longest_wait));
        return client_->ask(
            [&](client_t& device) { return library::read_message(device.outbox_watch(id_, version, wait)); });
    }

    zpd_client_t* const client_;
    const uint64_t id_;
    const steady_clock::time_point end_;
};

answer_t<std::unique_ptr<zpd_messages>> list_outbox(client_t& device, bool all) {
    auto messages = std::make_unique<zpd_messages>();
    uint64_t after = 0;
    for (bool more = true; more;) {
        const auto text = device.outbox_list(after, all);
        if (!text) {
            return text.failure();
        }
        const auto list = library::read_object(*text);
        if (!list) {
            return list.failure();
        }
        const uint64_t before = after;
        for (const library::json_t& one : library::list_at(*list, "messages")) {
            messages->items.push_back(library::message_of(one));
            after = std::max(after, messages->items.back().id);
        }
        more = list->value("more", library::json_t()) == true && after > before;
    }
    return messages;
}

}  // namespace

int zpd_count(zpd_client_t* client, const void* card, size_t size, const zpd_options_t* options, uint32_t* datagrams) {
    return answer(client, datagrams, [&]() -> answer_t<uint32_t> {
        if (auto problem = problem_of(card, size, options)) {
            return *std::move(problem);
        }
        const auto one = outgoing(card, size, known_options(options));
        return client->ask([&](client_t& device) { return device.count(one); });
    });
}

int zpd_send(zpd_client_t* client, const void* card, size_t size, const char* number, const zpd_options_t* options,
             uint64_t* id) {
    return answer(client, id, [&]() -> answer_t<uint64_t> {
        if (auto problem = problem_of(card, size, options)) {
            return *std::move(problem);
        }
        const zpd_options_t known = known_options(options);
        return hand_in(client, outgoing(card, size, known), library::text_of(number), known);
    });
}

int zpd_outbox_find(zpd_client_t* client, uint64_t id, zpd_message_t** message) {
    return answer(client, message, [&] {
        return client->ask([&](client_t& device) { return library::read_message(device.outbox_watch(id, 0, 0)); });
    });
}

int zpd_watch(zpd_client_t* client, uint64_t id, uint64_t version, uint32_t milliseconds, zpd_message_t** message) {
    return answer(client, message, [&] { return watch_t(client, id, milliseconds).until_another(version); });
}

int zpd_wait(zpd_client_t* client, uint64_t id, uint32_t milliseconds, zpd_message_t** message) {
    return answer(client, message, [&] { return watch_t(client, id, milliseconds).until_over(); });
}

int zpd_cancel(zpd_client_t* client, uint64_t id, zpd_message_t** message) {
    return answer(client, message, [&] {
        return client->ask([&](client_t& device) { return library::read_message(device.outbox_cancel(id)); });
    });
}

int zpd_retry(zpd_client_t* client, uint64_t id, uint64_t expires, zpd_message_t** message) {
    return answer(client, message, [&] {
        return client->ask(
            [&](client_t& device) { return library::read_message(device.outbox_retry(id, expiry_of(expires))); });
    });
}

int zpd_outbox(zpd_client_t* client, int all, zpd_messages_t** messages) {
    return answer(client, messages,
                  [&] { return client->ask([&](client_t& device) { return list_outbox(device, all != 0); }); });
}
