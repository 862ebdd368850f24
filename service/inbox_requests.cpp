#include "service/inbox_requests.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "com/zpd/zpd_ioctl.h"
#include "device/service_requests.h"
#include "service/card_json.h"
#include "service/replies.h"

namespace {

using device::octets_view_t;
using device::reply_t;
using nlohmann::ordered_json;

constexpr size_t longest_reason = 1000;  // octets of JSON
constexpr size_t most_errors = 3;

reply_t no_card(uint64_t number) {
    return refused(device::error_not_found, fmt::format("there is no card {}", number));
}

std::string text_of(const ordered_json& value) {
    return value.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

/// As a member of an object that goes on; nothing where it would not be short.
std::string member_of(const char* name, const ordered_json& value) {
    const std::string text = fmt::format(",\"{}\":{}", name, text_of(value));
    return value.empty() || text.size() > longest_reason ? std::string() : text;
}

reply_t list(inbox_t& inbox, uint64_t after, uint32_t capacity) {
    constexpr std::string_view begin = "{\"cards\":[";
    constexpr std::string_view end = "],\"more\":false}";
    const size_t most = capacity - std::min<size_t>(capacity, end.size() + 2 * longest_reason);
    std::string text(begin);
    bool more = false;
    std::vector<std::string> errors = inbox.list(after, [&](const inbox_t::numbered_card_t& one) {
        const std::string card = text_of(card_json(one.number, inbox.folder().file(one.card.name), one.card));
        more = text.size() + card.size() + 1 > most;
        if (!more) {
            text += (text.size() > begin.size() ? "," : "") + card;
        }
        return !more;
    });
    if (most < begin.size() || (more && text.size() == begin.size())) {
        return refused(ZPD_ERROR_INSUFFICIENT_BUFFER, "the output has no room for a card");
    }
    text += fmt::format("],\"more\":{}", more);
    const std::string problem = inbox.problem();
    text += member_of("unnumbered", problem.empty() ? ordered_json() : ordered_json(problem));
    errors.resize(std::min(errors.size(), most_errors));
    text += member_of("errors", ordered_json(errors)) + "}";
    return {.result = true, .last_error = 0, .output = {text.begin(), text.end()}};
}

reply_t octets(inbox_t& inbox, uint64_t number, uint32_t offset, uint32_t capacity) {
    const auto file = inbox.file_of(number);
    if (!file) {
        return no_card(number);
    }
    std::string error;
    const auto card = inbox.folder().load(*file, &error);
    if (!card) {
        return refused(device::error_not_found, error);
    }
    if (offset > card->octets.size() || capacity < sizeof(uint32_t)) {
        return refused(device::error_value, "the card ends before that");
    }
    const auto size = static_cast<uint32_t>(card->octets.size());
    const std::string_view rest = std::string_view(card->octets).substr(offset, capacity - sizeof size);
    base::writer_t output;
    output.u32(size).raw({reinterpret_cast<const uint8_t*>(rest.data()), rest.size()});  // NOLINT: octets as octets
    return {.result = true, .last_error = 0, .output = output.octets()};
}

reply_t remove(inbox_t& inbox, uint64_t number) {
    const auto file = inbox.file_of(number);
    if (!file) {
        return no_card(number);
    }
    if (const std::string error = inbox.remove(*file); !error.empty()) {
        return refused(inbox.folder().has(*file) ? device::error_not_written : device::error_not_found, error);
    }
    return {.result = true, .last_error = 0, .output = {}};
}

}  // namespace

reply_t answer_inbox_request(inbox_t& inbox, uint32_t code, octets_view_t input, uint32_t capacity) {
    base::reader_t reader(input);
    const auto number = reader.u64();
    const auto offset = code == device::inbox_octets ? reader.u32() : 0;
    if (!number || !offset || !reader.at_end()) {
        return refused(device::error_input, "the request's input does not have its form");
    }
    switch (code) {
        case device::inbox_list:
            return list(inbox, *number, capacity);
        case device::inbox_octets:
            return octets(inbox, *number, *offset, capacity);
        default:
            return remove(inbox, *number);
    }
}
