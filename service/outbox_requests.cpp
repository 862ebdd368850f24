#include "service/outbox_requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "base/clock.h"
#include "com/zpd/zpd_ioctl.h"
#include "device/service_requests.h"
#include "radio/findings.h"
#include "service/card_json.h"
#include "service/outbox_json.h"
#include "service/replies.h"

using device::reply_t;
using nlohmann::ordered_json;

namespace {

reply_t not_read() {
    return refused(device::error_input, "the request is not of its form");
}

bool is_lease(uint32_t seconds) {
    return seconds >= 1 && seconds <= device::longest_lease;
}

reply_t no_lease() {
    return refused(device::error_value, fmt::format("a lease holds for 1 to {} seconds", device::longest_lease));
}

bool is_number(std::string_view text) {
    constexpr size_t most_digits = 20;
    const std::string_view digits = text.substr(text.starts_with('+') ? 1 : 0);
    return !digits.empty() && digits.size() <= most_digits &&
           digits.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string card_problem(uint32_t error) {
    switch (error) {
        case ZPD_ERROR_TOO_MANY_DATAGRAMS:
            return "the card needs more than 255 datagrams";
        case ZPD_ERROR_OUT_OF_RANGE:
            return "the card cannot be cut into datagrams between characters; send it as any octets";
        default:
            return fmt::format("the driver does not take the card (error {})", error);
    }
}

}  // namespace

outbox_requests_t::outbox_requests_t(outbox_t& outbox, feeder_t& feeder, const loaded_driver_t& driver)
    : outbox_(outbox), feeder_(feeder), driver_(driver), begun_(base::tick64()) {}

std::optional<reply_t> outbox_requests_t::answer(const device::request_t& request) const {
    const input_t input(request.input);
    switch (request.code) {
        case device::outbox_add:
            return add(input);
        case device::outbox_renew:
            return renew(input);
        case device::outbox_list:
            return list(input, request.output_capacity);
        case device::outbox_watch:
            return watch(input);
        case device::outbox_cancel:
            return cancel(input);
        case device::outbox_retry:
            return retry(input);
        case device::event_list:
            return events(input, request.output_capacity);
        default:
            return std::nullopt;
    }
}

reply_t outbox_requests_t::add(input_t input) const {
    constexpr size_t most_octets = 255;  // of the texts
    outbox_message_t message;
    const auto octets = input.string();
    const auto is_utf8 = input.octet();
    const auto long_reference = input.octet();
    const auto number = input.string();
    const auto file = input.string();
    const auto expires = input.u64();
    const auto token = input.string();
    const bool has_lease = !input.at_end();
    const auto lease = has_lease ? input.u32() : 0;
    if (!token || !lease || !input.at_end() || token->size() > most_octets || file->size() > most_octets) {
        return not_read();
    }
    if (!is_number(*number)) {
        return refused(device::error_value,
                       "the phone number is none: 1 to 20 digits, with + before an international one");
    }
    if (octets->empty() || *expires > INT64_MAX) {
        return refused(device::error_value, octets->empty() ? "the card is empty" : "the time of expiry is none");
    }
    if (has_lease && !is_lease(*lease)) {
        return no_lease();
    }
    const loaded_driver_t::answer_t count = driver_.count({*octets, *is_utf8 != 0, *long_reference != 0});
    if (count.error != ERROR_SUCCESS) {
        return refused(device::error_value, card_problem(count.error));
    }
    message.number = *number;
    message.file = *file;
    message.contacts = contacts_json(*octets).dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    message.is_utf8 = *is_utf8 != 0;
    message.long_reference = *long_reference != 0;
    message.size = static_cast<int64_t>(octets->size());
    message.datagrams = count.value;
    message.expires = static_cast<int64_t>(*expires);
    message.token = *token;
    message.octets = *octets;
    problem_t problem;
    const auto view = outbox_.add(std::move(message), *lease, &problem);
    feeder_.wake();
    return reply(view, problem);
}

reply_t outbox_requests_t::renew(input_t input) const {
    const auto seconds = input.u32();
    std::vector<int64_t> ids;
    while (!input.at_end() && ids.size() <= device::most_renewed) {
        const auto id = input.u64();
        if (!id || *id > INT64_MAX) {
            return not_read();
        }
        ids.push_back(static_cast<int64_t>(*id));
    }
    if (!seconds || ids.size() > device::most_renewed) {
        return not_read();
    }
    if (!is_lease(*seconds)) {
        return no_lease();
    }
    const std::vector<int64_t> gone = outbox_.renew(*seconds, ids);
    feeder_.wake();  // a lease may end earlier now
    return json_reply({{"gone", gone}});
}

reply_t outbox_requests_t::list(input_t input, size_t room) const {
    constexpr size_t most = 100;
    const auto after = input.u64();
    const auto all = input.octet();
    if (!all || !input.at_end() || *after > INT64_MAX) {
        return not_read();
    }
    const auto views = outbox_.list(static_cast<int64_t>(*after), *all != 0, most);
    ordered_json messages = ordered_json::array();
    bool more = views.size() == most;
    size_t used = 64;
    for (const outbox_t::view_t& view : views) {
        ordered_json message = json(view);
        used += message.dump(-1, ' ', false, ordered_json::error_handler_t::replace).size() + 1;
        if (used > room) {
            more = true;
            break;
        }
        messages.push_back(std::move(message));
    }
    return json_reply({{"messages", messages}, {"more", more}});
}

reply_t outbox_requests_t::watch(input_t input) const {
    const auto id = input.u64();
    const auto version = input.u64();
    const auto milliseconds = input.u32();
    if (!milliseconds || !input.at_end() || *id > INT64_MAX) {
        return not_read();
    }
    problem_t problem;
    const auto view = outbox_.watch(static_cast<int64_t>(*id), *version, *milliseconds, &problem);
    return reply(view, problem);
}

reply_t outbox_requests_t::cancel(input_t input) const {
    const auto id = input.u64();
    if (!id || !input.at_end() || *id > INT64_MAX) {
        return not_read();
    }
    problem_t problem;
    const auto view = outbox_.cancel(static_cast<int64_t>(*id), &problem);
    if (view && view->message.state == outbox_state_t::cancelling) {
        feeder_.cancel(view->message.id);
    }
    return reply(view, problem);
}

reply_t outbox_requests_t::retry(input_t input) const {
    const auto id = input.u64();
    const auto expires = input.u64();
    if (!expires || !input.at_end() || *id > INT64_MAX || *expires > INT64_MAX) {
        return not_read();
    }
    problem_t problem;
    const auto view = outbox_.retry(static_cast<int64_t>(*id), static_cast<int64_t>(*expires), &problem);
    feeder_.wake();
    return reply(view, problem);
}

reply_t outbox_requests_t::events(input_t input, size_t room) const {
    const auto after = input.u64();
    const auto since = input.u64();
    const auto milliseconds = input.u32();
    if (!milliseconds || !input.at_end() || *after > INT64_MAX || *since > INT64_MAX) {
        return not_read();
    }
    return json_reply(
        outbox_.events(static_cast<int64_t>(*after), static_cast<int64_t>(*since), *milliseconds, room / 2));
}

reply_t outbox_requests_t::reply(const std::optional<outbox_t::view_t>& view, const problem_t& problem) const {
    return view ? json_reply(json(*view)) : refused(problem.error, problem.text);
}

// The pace is that of the last datagrams; nothing is foretold while something stands in the way.
ordered_json outbox_requests_t::json(const outbox_t::view_t& view) const {
    ordered_json json = message_json(view);
    const bool waits = view.message.state == outbox_state_t::waiting && !view.hold;
    const bool goes = waits || view.message.state == outbox_state_t::sending;
    const bool is_told = !view.message.reason.text.empty();
    const std::string hindrance = view.hold ? (is_told ? "" : "its number was refused: " + view.hold->reason)
                                  : goes    ? what_hinders()
                                            : std::string();
    json["waits_for"] = hindrance.empty() ? ordered_json(nullptr) : ordered_json(hindrance);
    const auto pace = feeder_.in_flight().pace();
    const int64_t left = view.message.datagrams - view.message.sent + (view.ahead ? view.ahead->datagrams : 0);
    json["estimate"] = goes && pace ? ordered_json(static_cast<int64_t>(std::ceil(*pace * static_cast<double>(left))))
                                    : ordered_json(nullptr);
    return json;
}

std::string outbox_requests_t::what_hinders() const {
    constexpr uint64_t first_look = 12'000;  // milliseconds
    const std::optional<radio::modem_state_t> state = radio::modem_state();
    if (!state) {
        return "the service is ending";
    }
    for (const radio::finding_t& finding : radio::findings_of(*state)) {
        if (finding.hinders) {
            return finding.advice.empty() ? finding.text : fmt::format("{} ({})", finding.text, finding.advice);
        }
    }
    if (state->owed) {
        return state->owed->words();
    }
    return !feeder_.in_flight().pace() && base::tick64() - begun_ < first_look
               ? "the driver looks at the network up to 10 s after its start"
               : std::string();
}
