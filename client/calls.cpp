#include "base/text.h"
#include "client/client.h"
#include "client/replies.h"
#include "com/zpd/zpd_ioctl.h"
#include "device/device_socket.h"

namespace client {

namespace {

using base::reader_t;
using base::writer_t;

constexpr uint8_t query = 0;
constexpr uint8_t set = 1;

failure_t not_understood() {
    return {0, "the service's answer does not have the form of this request's"};
}

template <typename value_t>
answer_t<value_t> value_or_not_understood(std::optional<value_t> value) {
    if (!value) {
        return not_understood();
    }
    return std::move(*value);
}

std::vector<std::string> split_names(const std::string& joined) {
    std::vector<std::string> names;
    for (size_t begin = 0; begin < joined.size();) {
        const size_t end = std::min(joined.find(';', begin), joined.size());
        names.push_back(joined.substr(begin, end - begin));
        begin = end + 1;
    }
    return names;
}

writer_t encode_card(const outgoing_card_t& card) {
    writer_t writer;
    writer.string(card.octets).flag(card.is_utf8).flag(card.long_reference);
    return writer;
}

}  // namespace

answer_t<octets_t> client_t::call(uint32_t code, const writer_t& input) {
    auto reply = ioctl(code, input.octets(), device::max_output);
    if (!reply) {
        return reply.failure();
    }
    return output_of(code, std::move(*reply));
}

answer_t<done_t> client_t::command(uint32_t code, const writer_t& input) {
    const auto output = call(code, input);
    if (!output) {
        return output.failure();
    }
    return done_t{};
}

answer_t<uint32_t> client_t::call_u32(uint32_t code, const writer_t& input) {
    const auto output = call(code, input);
    if (!output) {
        return output.failure();
    }
    return value_or_not_understood(reader_t(*output).u32());
}

answer_t<uint32_t> client_t::version() {
    return call_u32(ZPD_IOCTL_VERSION, {});
}

answer_t<bool> client_t::activation() {
    const auto output = call(ZPD_IOCTL_ACTIVATION, writer_t().octet(query));
    if (!output) {
        return output.failure();
    }
    const auto active = reader_t(*output).octet();
    return active ? answer_t<bool>(*active != 0) : not_understood();
}

answer_t<bool> client_t::set_activation(bool active) {
    const auto output = call(ZPD_IOCTL_ACTIVATION, writer_t().octet(set).flag(active));
    if (!output) {
        return output.failure();
    }
    const auto now_active = reader_t(*output).octet();
    return now_active ? answer_t<bool>(*now_active != 0) : not_understood();
}

answer_t<std::vector<std::string>> client_t::applications() {
    const auto output = call(ZPD_IOCTL_APPLICATION, writer_t().octet(ZPD_APPLICATION_LIST));
    if (!output) {
        return output.failure();
    }
    const auto joined = reader_t(*output).string();
    if (!joined) {
        return not_understood();
    }
    return split_names(*joined);
}

answer_t<done_t> client_t::register_application(std::string_view name) {
    return command(ZPD_IOCTL_APPLICATION, writer_t().octet(ZPD_APPLICATION_REGISTER).string(name));
}

answer_t<done_t> client_t::clear_applications() {
    return command(ZPD_IOCTL_APPLICATION, writer_t().octet(ZPD_APPLICATION_CLEAR));
}

answer_t<done_t> client_t::launch(std::string_view uri) {
    return command(ZPD_IOCTL_LAUNCH_APP, writer_t().string16(base::to_utf16(uri)));
}

answer_t<uint32_t> client_t::send(const outgoing_card_t& card, std::string_view number) {
    const writer_t input = encode_card(card).string16(base::to_utf16(number));
    const auto reply = ioctl(ZPD_IOCTL_SEND_MESSAGE, input.octets(), 4);
    if (!reply) {
        return reply.failure();
    }
    const auto id = reader_t(reply->output).u32();
    // The message got the id 0 and is being sent; see the control code.
    if (!reply->result && reply->last_error == ZPD_ERROR_DEVICE_NOT_AVAILABLE && id == ZPD_MESSAGE_ID_ZERO) {
        return 0U;
    }
    if (!reply->result) {
        return refused(reply->last_error);
    }
    return value_or_not_understood(id);
}

answer_t<uint32_t> client_t::count(const outgoing_card_t& card) {
    return call_u32(ZPD_IOCTL_COUNT_DATAGRAMS, encode_card(card));
}

answer_t<message_list_t> client_t::list() {
    const auto output = call(ZPD_IOCTL_MESSAGE_LIST, {});
    if (!output) {
        return output.failure();
    }
    reader_t reader(*output);
    const auto total = reader.u32();
    const auto following = reader.u32();
    if (!total || !following) {
        return not_understood();
    }
    message_list_t list{*total, {}};
    while (const auto id = reader.u32()) {
        list.ids.push_back(*id);
    }
    return list.ids.size() == *following ? answer_t<message_list_t>(std::move(list)) : not_understood();
}

answer_t<std::vector<uint32_t>> client_t::status(uint32_t id) {
    const auto output = call(ZPD_IOCTL_MESSAGE_STATUS, writer_t().u32(id));
    if (!output) {
        return output.failure();
    }
    reader_t reader(*output);
    const auto count = reader.u32();
    std::vector<uint32_t> statuses;
    while (const auto status = reader.u32()) {
        statuses.push_back(*status);
        if (!reader.u32()) {
            return not_understood();
        }
    }
    if (count != statuses.size()) {
        return not_understood();
    }
    return statuses;
}

answer_t<done_t> client_t::close(uint32_t id) {
    return command(ZPD_IOCTL_MESSAGE_CLOSE, writer_t().u32(id));
}

answer_t<log_options_t> client_t::log_options(std::optional<log_options_t> options) {
    writer_t input;
    input.octet(options ? set : query);
    if (options) {
        input.octet(options->enabled).octet(options->output_level).octet(options->file_level);
    }
    const auto output = call(ZPD_IOCTL_LOG_OPTIONS, input);
    if (!output) {
        return output.failure();
    }
    reader_t reader(*output);
    const auto enabled = reader.octet();
    const auto output_level = reader.octet();
    const auto file_level = reader.octet();
    if (!enabled || !output_level || !file_level) {
        return not_understood();
    }
    return log_options_t{*enabled, *output_level, *file_level};
}

answer_t<uint8_t> client_t::capacity(std::optional<uint8_t> capacity) {
    writer_t input;
    input.octet(capacity ? set : query);
    if (capacity) {
        input.octet(*capacity);
    }
    const auto output = call(ZPD_IOCTL_RIL_CAPACITY, input);
    if (!output) {
        return output.failure();
    }
    return value_or_not_understood(reader_t(*output).octet());
}

answer_t<uint32_t> client_t::incoming_dir_size(std::optional<uint32_t> files) {
    writer_t input;
    input.octet(files ? set : query);
    if (files) {
        input.u32(*files);
    }
    return call_u32(ZPD_IOCTL_INCOMING_DIR_SIZE, input);
}

answer_t<contacts_value_t> client_t::contacts_setting(std::string_view name) {
    const auto output = call(ZPD_IOCTL_PIM_CONTACTS_VAR, writer_t().string16(base::to_utf16(name)));
    if (!output) {
        return output.failure();
    }
    reader_t reader(*output);
    const auto type = reader.u32();
    auto octets = reader.string();
    if (!type || !octets) {
        return not_understood();
    }
    return contacts_value_t{*type, std::move(*octets)};
}

}  // namespace client
