#include "com/sms/sms_udh.h"

#include <cstdio>

#include "com/qmlog/api2.h"

namespace {

/// The low octet of a value, as one octet.
octet_string_t octet(uint32_t value) {
    return {static_cast<char>(value & 0xFF)};
}

octet_string_t two_octets(uint32_t value) {
    return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}

uint32_t octet_at(octet_view_t octets, size_t index) {
    return static_cast<uint8_t>(octets[index]);
}

/// A reference or port of one or two octets at `index`.
uint32_t number_at(octet_view_t octets, size_t index, bool wide) {
    return wide ? octet_at(octets, index) << 8 | octet_at(octets, index + 1) : octet_at(octets, index);
}

/// The fields of an element whose payload has the right length.
void fill(sms_udh_ie_concat_t& ie, octet_view_t payload, bool wide) {
    const size_t width = wide ? 2 : 1;
    ie.set_id(number_at(payload, 0, wide));
    ie.set_amount(octet_at(payload, width));
    ie.set_ordinal(octet_at(payload, width + 1));
}

void fill(sms_udh_ie_appport_t& ie, octet_view_t payload, bool wide) {
    ie.set_dst(number_at(payload, 0, wide));
    ie.set_src(number_at(payload, wide ? 2 : 1, wide));
}

template <class ie_t>
std::unique_ptr<sms_udh_ie_t> parsed(octet_view_t payload, bool wide) {
    auto ie = std::make_unique<ie_t>();
    if (payload.size() != ie->payload_length()) {
        return nullptr;
    }
    fill(*ie, payload, wide);
    return ie;
}

std::unique_ptr<sms_udh_ie_t> parse_payload(uint32_t type, octet_view_t payload) {
    switch (type) {
        case udh_ie_concat8:
            return parsed<sms_udh_ie_concat8_t>(payload, false);
        case udh_ie_concat16:
            return parsed<sms_udh_ie_concat16_t>(payload, true);
        case udh_ie_appport8:
            return parsed<sms_udh_ie_appport8_t>(payload, false);
        case udh_ie_appport16:
            return parsed<sms_udh_ie_appport16_t>(payload, true);
        default:
            return std::make_unique<sms_udh_ie_unknown_t>(type, payload);
    }
}

}  // namespace

std::unique_ptr<sms_udh_ie_t> sms_udh_t::parse_udh_ie(octet_view_t octets) {
    const auto remaining = static_cast<uint32_t>(octets.size());
    if (remaining < 2) {
        QM_ERROR("invalid sms udh ie length %u<2", remaining);
        return nullptr;
    }
    const uint32_t type = octet_at(octets, 0);
    const uint32_t length = octet_at(octets, 1);
    if (remaining < length + 2) {
        QM_ERROR("invalid sms udh ie payload length %u in sms udh ie of length %u", length, remaining);
        return nullptr;
    }
    std::unique_ptr<sms_udh_ie_t> ie = parse_payload(type, octets.substr(2, length));
    if (ie == nullptr) {
        QM_ERROR("Invalid payload length %d of ie=0x%02X", length, type);
    }
    return ie;
}

bool sms_udh_t::parse_udh(octet_view_t octets) {
    size_t offset = 0;
    ies.reserve(2);  // where the message goes, and which part of it
    while (offset < octets.size()) {
        std::unique_ptr<sms_udh_ie_t> ie = parse_udh_ie(octets.substr(offset));
        if (ie == nullptr) {
            valid = false;
            QM_ERROR("invalid sms udh ie at offset %d", static_cast<uint32_t>(offset));
            break;
        }
        offset += ie->payload_length() + 2;
        ies.push_back(std::move(ie));
    }
    return valid;
}

octet_string_t sms_udh_t::str() const {
    uint32_t total = 0;
    for (const auto& ie : ies) {
        total += ie->payload_length() + 2;
    }
    if (total == 0) {
        return {};
    }
    total += 1;
    octet_string_t header = octet(total);
    for (const auto& ie : ies) {
        header += ie->str();
    }
    if (header.size() != total) {
        QM_ERROR("length mismatch: %d bytes instead of expected %d", static_cast<uint32_t>(header.size()), total);
    }
    return header;
}

octet_string_t sms_udh_ie_t::str() const {
    const uint32_t expected = payload_length() + 2;
    octet_string_t element = {static_cast<char>(ie_type()), static_cast<char>(payload_length())};
    element += payload();
    if (element.size() != expected) {
        QM_ERROR("length mismatch: %d bytes instead of expected %d", static_cast<uint32_t>(element.size()), expected);
    }
    return element;
}

std::unique_ptr<sms_udh_ie_concat_t> sms_udh_ie_concat_t::make(bool wide) {
    if (wide) {
        return std::make_unique<sms_udh_ie_concat16_t>();
    }
    return std::make_unique<sms_udh_ie_concat8_t>();
}

octet_string_t sms_udh_ie_concat_t::payload() const {
    octet_string_t octets = id_payload();
    octets.append({static_cast<char>(amount_), static_cast<char>(ordinal_)});
    if (octets.size() != payload_length()) {
        QM_ERROR("length mismatch: %d bytes instead of expected %d", static_cast<uint32_t>(octets.size()),
                 payload_length());
    }
    return octets;
}

std::string sms_udh_ie_concat_t::text() const {
    char line[96];
    (void)snprintf(line, sizeof line, "{ie:CONCAT%d,msg:%d,len:%d,id=0x%X}", max_id() > 255 ? 16 : 8, ordinal_, amount_,
                   id_);
    return line;
}

void sms_udh_ie_concat_t::set_id(uint32_t value) {
    const uint32_t most = max_id();
    id_ = value & most;
    if (value > most) {
        QM_WARNING("invalid message id %d > %d in concatenation header is replaced by %d", value, most, id_);
    }
}

void sms_udh_ie_concat_t::set_amount(uint32_t value) {
    amount_ = value;
    if (value > 255) {
        QM_ERROR("invalid datagram amount field '%d' in concatenation header ie replaced by 255", value);
        amount_ = 255;
    }
}

void sms_udh_ie_concat_t::set_ordinal(uint32_t value) {
    ordinal_ = value;
    if (value == 0 || value > 255) {
        ordinal_ = value == 0 ? 1 : 255;
        QM_ERROR("invalid ordinal datagram number '%d' in concatenation header ie replaced by %d", value, ordinal_);
    }
}

octet_string_t sms_udh_ie_concat8_t::id_payload() const {
    return octet(id());
}

octet_string_t sms_udh_ie_concat16_t::id_payload() const {
    return two_octets(id());
}

octet_string_t sms_udh_ie_appport_t::payload() const {
    octet_string_t octets = port_payload(dst_);
    octets += port_payload(src_);
    if (octets.size() != payload_length()) {
        QM_ERROR("length mismatch: %d bytes instead of expected %d", static_cast<uint32_t>(octets.size()),
                 payload_length());
    }
    return octets;
}

std::string sms_udh_ie_appport_t::text() const {
    char line[96];
    (void)snprintf(line, sizeof line, "{ie:APPPORT%d,src:0x%X,dst:0x%X}", max_port_id() < 256 ? 8 : 16, src_, dst_);
    return line;
}

void sms_udh_ie_appport_t::set_dst(uint32_t value) {
    QM_DEBUG("");
    const uint32_t most = max_port_id();
    QM_DEBUG("mx=%d", most);
    dst_ = value;
    if (value > most) {
        QM_ERROR("invalid destination port id 0x%X replaced by maximal available id=0x%X", value, most);
        dst_ = most;
    }
}

void sms_udh_ie_appport_t::set_src(uint32_t value) {
    const uint32_t most = max_port_id();
    src_ = value;
    if (value > most) {
        QM_ERROR("invalid source port id 0x%X replaced by maximal available id=0x%X", value, most);
        src_ = most;
    }
}

uint32_t sms_udh_ie_appport8_t::max_port_id() const {
    QM_DEBUG("");
    return 255;
}

octet_string_t sms_udh_ie_appport8_t::port_payload(uint32_t port) const {
    return octet(port);
}

uint32_t sms_udh_ie_appport16_t::max_port_id() const {
    QM_DEBUG("");
    return 65535;
}

octet_string_t sms_udh_ie_appport16_t::port_payload(uint32_t port) const {
    return two_octets(port);
}

std::string sms_udh_ie_unknown_t::text() const {
    char piece[48];
    (void)snprintf(piece, sizeof piece, "{ie:unknown,type:%02x,payload:", type_);
    std::string line = piece;
    for (const char octet : data_) {
        (void)snprintf(piece, sizeof piece, "%02x", static_cast<uint8_t>(octet));
        line += piece;
    }
    return line + "}";
}
