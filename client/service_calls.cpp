// The requests that the service answers itself.
#include <algorithm>
#include <deque>
#include <nlohmann/json.hpp>

#include "client/client.h"
#include "client/replies.h"
#include "device/service_requests.h"

namespace client {

using base::reader_t;
using base::writer_t;

answer_t<std::string> client_t::call_text(uint32_t code, const writer_t& input) {
    const auto output = call(code, input);
    if (!output) {
        return output.failure();
    }
    return std::string(output->begin(), output->end());
}

answer_t<std::string> client_t::service_status() {
    return call_text(device::service_status, {});
}

namespace {

writer_t input_of(const handed_in_card_t& card) {
    writer_t input;
    input.string(card.card.octets)
        .flag(card.card.is_utf8)
        .flag(card.card.long_reference)
        .string(card.number)
        .string(card.file)
        .u64(card.expires)
        .string(card.token);
    if (card.lease != 0) {
        input.u32(card.lease);
    }
    return input;
}

}  // namespace

answer_t<std::string> client_t::outbox_add(const handed_in_card_t& card) {
    if (!card.from.empty()) {
        return failure_t{error_value, "the service has one phone, which sends all cards; a phone is chosen of a fleet",
                         obstacle_t::request};
    }
    return call_text(device::outbox_add, input_of(card));
}

// So few requests are on their way that the socket has room for them: else each side might wait for the other to read.
answer_t<std::vector<answer_t<std::string>>> client_t::outbox_add_all(const std::vector<handed_in_card_t>& cards) {
    constexpr size_t most_on_the_way = 16;
    constexpr size_t room = 65'536;  // octets
    std::vector<answer_t<std::string>> answers;
    std::deque<size_t> on_the_way;  // their octets
    size_t octets = 0;
    for (size_t sent = 0; answers.size() < cards.size();) {
        if (sent < cards.size() && on_the_way.size() < most_on_the_way && octets < room) {
            const writer_t input = input_of(cards[sent++]);
            if (const auto asked = send_request(device::outbox_add, input.octets(), device::max_output); !asked) {
                return asked.failure();
            }
            octets += on_the_way.emplace_back(input.octets().size());
            continue;
        }
        auto reply = receive_reply();
        if (!reply) {
            return reply.failure();
        }
        octets -= on_the_way.front();
        on_the_way.pop_front();
        const auto output = output_of(device::outbox_add, std::move(*reply));
        answers.push_back(output ? answer_t<std::string>(std::string(output->begin(), output->end()))
                                 : output.failure());
    }
    return answers;
}

answer_t<std::vector<uint64_t>> client_t::outbox_renew(uint32_t seconds, const std::vector<uint64_t>& ids) {
    std::vector<uint64_t> gone;
    for (size_t first = 0; first < ids.size(); first += device::most_renewed) {
        writer_t input;
        input.u32(seconds);
        for (size_t i = first; i < std::min<size_t>(ids.size(), first + device::most_renewed); ++i) {
            input.u64(ids[i]);
        }
        const auto answer = call_text(device::outbox_renew, input);
        if (!answer) {
            return answer.failure();
        }
        const auto json = nlohmann::json::parse(*answer, nullptr, false);
        if (!json.is_object() || !json.contains("gone")) {
            return failure_t{0, "the service's answer does not have the form of this request's"};
        }
        for (const auto& id : json["gone"]) {
            gone.push_back(id.is_number_unsigned() ? id.get<uint64_t>() : 0);
        }
    }
    return gone;
}

answer_t<std::string> client_t::outbox_list(uint64_t after, bool all) {
    return call_text(device::outbox_list, writer_t().u64(after).flag(all));
}

answer_t<std::string> client_t::outbox_watch(uint64_t id, uint64_t version, uint32_t milliseconds) {
    return call_text(device::outbox_watch, writer_t().u64(id).u64(version).u32(milliseconds));
}

answer_t<std::string> client_t::outbox_cancel(uint64_t id) {
    return call_text(device::outbox_cancel, writer_t().u64(id));
}

answer_t<std::string> client_t::outbox_retry(uint64_t id, uint64_t expires) {
    return call_text(device::outbox_retry, writer_t().u64(id).u64(expires));
}

answer_t<std::string> client_t::events(uint64_t after, uint64_t since, uint32_t milliseconds) {
    return call_text(device::event_list, writer_t().u64(after).u64(since).u32(milliseconds));
}

answer_t<std::string> client_t::inbox_list(uint64_t after) {
    return call_text(device::inbox_list, writer_t().u64(after));
}

// A card may be larger than an answer.
answer_t<std::string> client_t::inbox_octets(uint64_t number) {
    std::string octets;
    for (;;) {
        const auto output =
            call(device::inbox_octets, writer_t().u64(number).u32(static_cast<uint32_t>(octets.size())));
        if (!output) {
            return output.failure();
        }
        reader_t reader(*output);
        const auto size = reader.u32();
        const octets_view_t more = reader.rest();
        octets.append(more.begin(), more.end());
        if (!size || octets.size() >= *size || more.empty()) {
            return octets;
        }
    }
}

answer_t<done_t> client_t::inbox_remove(uint64_t number) {
    return command(device::inbox_remove, writer_t().u64(number));
}

}  // namespace client
