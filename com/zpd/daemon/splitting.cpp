// From a card to an outgoing message: counting, cutting, and the datagrams with their headers.
#include <utility>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"
#include "com/zpd/daemon/datagram_coding.h"

namespace {

constexpr uint32_t single_header_size = 7;

}  // namespace

datagram_header_t::datagram_header_t(uint32_t message_id, size_t datagrams, bool use_long_ie)
    : id(message_id), amount(static_cast<uint32_t>(datagrams)) {
    if (amount > 1) {
        auto element = sms_udh_ie_concat_t::make(use_long_ie);
        concatenation = element.get();
        header.ies.push_back(std::move(element));
    }
    auto element = std::make_unique<sms_udh_ie_appport16_t>();
    port = element.get();
    header.ies.push_back(std::move(element));
}

octet_string_t datagram_header_t::encoded(size_t index) {
    if (concatenation != nullptr) {
        concatenation->set_amount(amount);
        concatenation->set_ordinal(static_cast<uint32_t>(index + 1));
        concatenation->set_id(id);
    }
    port->set_dst(ZPD_SERVICE_PORT);
    if (octets.empty()) {
        octets = header.str();
    } else if (concatenation != nullptr) {
        octets[2 + concatenation->payload_length()] = static_cast<char>(concatenation->ordinal());
    }
    return octets;
}

void daemon_t::send_or_count_datagrams(request_t& request, bool count_only) {
    octet_string_t vcard;
    uint8_t is_utf8 = 0;
    uint8_t use_long_ie = 0;
    wide_string_t phone = TEXT("<none>");
    input_r_buffer_t& input = request.input;
    const bool read = input.get_string(vcard) && input.get_byte(is_utf8) && input.get_byte(use_long_ie) &&
                      (count_only || input.get_string16(phone));
    if (!read || input.unread() != 0) {
        QM_ERROR("can't read input parameters: 'vcard', 'is_utf8', 'use_long_ie'%s", count_only ? "" : ", 'phone'");
        if (input.unread() != 0) {
            QM_ERROR("trailing bytes: %d", input.unread());
        }
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    QM_DEBUG("vcard: %d bytes, is_utf8: '%s', use_long_ie: '%s', phone: '%s'", static_cast<uint32_t>(vcard.size()),
             yes_or_no(is_utf8 != 0), yes_or_no(use_long_ie != 0), narrow(phone).c_str());
    std::vector<uint32_t> chunks;
    if (!sms_split_chunks(vcard, is_utf8 != 0, use_long_ie != 0, single_header_size, chunks)) {
        return request.fail(chunks.size() > max_datagrams ? ZPD_ERROR_TOO_MANY_DATAGRAMS : ZPD_ERROR_OUT_OF_RANGE);
    }
    if (count_only) {
        request.output.put_uint32(static_cast<uint32_t>(chunks.size()));
    } else {
        send(request, std::move(phone), std::move(vcard), use_long_ie != 0, chunks);
    }
}

void daemon_t::send(request_t& request, wide_string_t phone, octet_string_t vcard, bool use_long_ie,
                    const std::vector<uint32_t>& chunks) {
    if (request.output.room() < 4) {
        return request.fail(ZPD_ERROR_INSUFFICIENT_BUFFER);
    }
    if (!ensure_ril_session()) {
        request.fail(ZPD_ERROR_DEVICE_NOT_AVAILABLE);
        request.output.put_uint32(ril_start_result);
        return;
    }
    const uint32_t id = enqueue_multi_part_sms(std::move(phone), std::move(vcard), use_long_ie, chunks);
    if (id == 0) {
        // The message is sent like any other, yet its client is told of a failure: deliberate.
        request.fail(ZPD_ERROR_DEVICE_NOT_AVAILABLE);
        request.output.put_uint32(ZPD_MESSAGE_ID_ZERO);
        return;
    }
    request.output.put_uint32(id);
}

uint32_t daemon_t::enqueue_multi_part_sms(wide_string_t phone, octet_string_t vcard, bool use_long_ie,
                                          const std::vector<uint32_t>& chunks) {
    const uint32_t id = take_message_id();
    message_t* const message = create_message(id, std::move(phone), std::move(vcard));
    message->datagrams.reserve(chunks.size());
    datagram_header_t header(id, chunks.size(), use_long_ie);
    uint32_t offset = 0;
    for (uint32_t i = 0; i < chunks.size(); ++i) {
        const uint32_t size = chunks[i];
        octet_string_t udh = header.encoded(i);
        QM_INFO("enqueue chunk %d[%d] of %d bytes [%d:%d]", id, i, size, offset, offset + size);
        auto* datagram = new datagram_t(*message, static_cast<uint8_t>(i), std::move(udh),
                                        octet_view_t(message->card).substr(offset, size), message->phone);
        ZPD_DUMP_STATES(*machine);
        machine->enqueue_datagram(datagram);
        ZPD_DUMP_STATES(*machine);
        offset += size;
    }
    QM_DEBUG("");
    return id;
}

/// Ids run to 65535 and start again at 0, across restarts too.
uint32_t daemon_t::take_message_id() {
    const uint32_t id = next_message_id;
    next_message_id = id + 1 > ZPD_MESSAGE_ID_MAX ? 0 : id + 1;
    (void)settings->set_uint32("next_message_id", next_message_id);
    return id;
}

message_t* daemon_t::create_message(uint32_t id, wide_string_t phone, octet_string_t vcard) {
    auto fresh = std::make_unique<message_t>(id, std::move(phone), std::move(vcard));
    std::unique_ptr<message_t>& record = messages[id];
    if (record != nullptr) {
        displaced_messages.push_back(std::move(record));
    }
    record = std::move(fresh);
    return record.get();
}
