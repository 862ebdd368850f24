// What the radio notifies: an incoming short message, checked, filtered and filed; a change of the system type.
#include <algorithm>
#include <cstring>
#include <exception>
#include <iterator>
#include <utility>

#include "com/qmlog/api2.h"
#include "com/qmlog/hex_dump.h"
#include "com/zpd/daemon/daemon.h"

namespace {

std::string address_text(const RILADDRESS& address) {
    const WCHAR* const end = std::find(std::begin(address.wszAddress), std::end(address.wszAddress), WCHAR{});
    return narrow({address.wszAddress, static_cast<size_t>(end - address.wszAddress)});
}

template <size_t capacity>
octet_view_t first_octets(const BYTE (&octets)[capacity], uint32_t count) {
    return {reinterpret_cast<const char*>(octets), std::min<size_t>(count, capacity)};
}

/// Whether the data coding, as far as it is told, is 8-bit.
bool is_8bit(const RILMESSAGE& message) {
    if ((message.dwParams & RIL_PARAM_M_DATACODING) == 0) {
        return true;
    }
    QM_INFO("RIL_PARAM_M_DATACODING flag is present: now checking encoding");
    const RILMSGDCS& coding = message.msgInDeliver.rmdDataCoding;
    if ((coding.dwParams & RIL_PARAM_MDCS_ALPHABET) == 0) {
        QM_INFO("flag RIL_PARAM_MDCS_ALPHABET not set in msgInDeliver.rmdDataCoding.dwParams: assuming 8bit data");
        return true;
    }
    QM_INFO("flag RIL_PARAM_MDCS_ALPHABET set in msgInDeliver.rmdDataCoding.dwParams");
    if (coding.dwAlphabet != RIL_DCSALPHABET_8BIT) {
        QM_ERROR("msgInDeliver.rmdDataCoding.dwAlphabet=%d, which is not RIL_DCSALPHABET_8BIT",
                 static_cast<uint32_t>(coding.dwAlphabet));
        return false;
    }
    QM_INFO("msgInDeliver.rmdDataCoding.dwAlphabet=RIL_DCSALPHABET_8BIT");
    return true;
}

bool has_user_data(const RILMESSAGE& message) {
    const struct {
        uint32_t flag;
        const char* name;
    } needed[] = {{RIL_PARAM_M_HDRLENGTH, "RIL_PARAM_M_HDRLENGTH"},
                  {RIL_PARAM_M_MSGLENGTH, "RIL_PARAM_M_MSGLENGTH"},
                  {RIL_PARAM_M_HDR, "RIL_PARAM_M_HDR"},
                  {RIL_PARAM_M_MSG, "RIL_PARAM_M_MSG"}};
    for (const auto& [flag, name] : needed) {
        if ((message.dwParams & flag) == 0) {
            QM_ERROR("flag %s is not set in dwParams; skipping message", name);
            return false;
        }
        QM_INFO("flag %s set in dwParams", name);
    }
    return true;
}

/// A message reduced to what filing needs.
struct received_t {
    std::string address;
    octet_view_t header;
    octet_view_t user_data;

    void set_address(std::string text) {
        address = text.empty() ? "empty" : std::move(text);
        QM_INFO("incoming message address '%s'", address.c_str());
    }
    template <class deliver_t>
    void set_user_data(const deliver_t& in) {
        header = first_octets(in.rgbHdr, in.cbHdrLength);
        user_data = first_octets(in.rgbMsg, in.cchMsgLength);
    }
};

bool reduce_gsm(const RILMESSAGE& message, received_t& received) {
    QM_INFO("incoming GSM message: dwType=RIL_MSGTYPE_IN_DELIVER");
    const RIL_IN_DELIVER& in = message.msgInDeliver;
    if (!is_8bit(message)) {
        return false;
    }
    const bool has_address = (in.raOrigAddress.dwParams & RIL_PARAM_A_ADDRESS) != 0;
    received.set_address(has_address ? address_text(in.raOrigAddress) : "unknown");
    if (!has_user_data(message)) {
        return false;
    }
    received.set_user_data(in);
    return true;
}

/// Neither the coding nor the flags of a CDMA message are looked at: deliberately.
void reduce_cdma(const RILMESSAGE& message, received_t& received) {
    QM_INFO("incoming CDMA message: dwType=RIL_MSGTYPE_IN_CDMADELIVER");
    received.set_address(address_text(message.msgInCDMADeliver.raOrigAddress));
    received.set_user_data(message.msgInCDMADeliver);
}

/// False when the message is of no kind that is received, or lacks something.
bool reduce(const RILMESSAGE& message, received_t& received) {
    if ((message.dwParams & RIL_PARAM_M_TYPE) == 0) {
        QM_ERROR("dwParams=0x%08X, RIL_PARAM_M_TYPE bit not set, skipping message",
                 static_cast<uint32_t>(message.dwParams));
        return false;
    }
    if (message.dwType == RIL_MSGTYPE_IN_DELIVER) {
        return reduce_gsm(message, received);
    }
    if (message.dwType == RIL_MSGTYPE_IN_CDMADELIVER) {
        reduce_cdma(message, received);
        return true;
    }
    return false;
}

}  // namespace

void CALLBACK daemon_t::ril_notify_cb(DWORD code, const void* data, DWORD data_size, DWORD /*parameter*/) try {
    QM_DEBUG("");
    if (code == RIL_NOTIFY_MESSAGE) {
        QM_INFO("Incoming message, dwCode=RIL_NOTIFY_MESSAGE");
        if (data == nullptr || data_size < sizeof(RILMESSAGE)) {
            QM_ERROR("message of %d bytes is too short, skipping message", static_cast<uint32_t>(data_size));
            return;
        }
        received_t received;
        if (reduce(*static_cast<const RILMESSAGE*>(data), received)) {
            process_gsm_or_cdma_message(received.address, received.header, received.user_data);
        }
    } else if (code == RIL_NOTIFY_SYSTEMCHANGED) {
        QM_DEBUG("dwCode=RIL_NOTIFY_SYSTEMCHANGED; lpData=%p, cbData=%d", data, static_cast<uint32_t>(data_size));
        uint32_t system_type;
        if (data == nullptr || data_size != sizeof system_type) {
            return;
        }
        memcpy(&system_type, data, sizeof system_type);
        QM_DEBUG("dwCode=RIL_NOTIFY_SYSTEMCHANGED; system_type=0x%08X", system_type);
        const daemon_visit_t daemon;
        if (!daemon) {
            QM_ERROR("can't process system change notification: no daemon object");
            return;
        }
        const control_guard_t guard(*daemon.get(), "ril_notify_cb_system_changed");
        daemon->update_system_type(system_type);
    }
} catch (const std::exception& error) {
    QM_CRITICAL_ERROR("notification 0x%08X lost: %s", static_cast<uint32_t>(code), error.what());
}

void daemon_t::process_gsm_or_cdma_message(const std::string& address, octet_view_t header, octet_view_t user_data) {
    QM_INFO("processing gsm/cdma incoming message");
    QM_INFO("incoming sms datagram: address='%s' UDHL=%d", address.c_str(), static_cast<uint32_t>(header.size()));
    QM_HEX_DUMP(qmlog::level_info, header);
    QM_INFO("user data length, UDL=%d", static_cast<uint32_t>(user_data.size()));
    QM_HEX_DUMP(qmlog::level_info, user_data);
    if (header.empty()) {
        QM_ERROR("no user data header present => ignoring the message");
        return;
    }
    sms_udh_t parsed;
    if (!parsed.parse_udh(header)) {
        QM_ERROR("invalid datagram header => ignoring the message");
        return;
    }
    for (size_t i = 0; i < parsed.ies.size(); ++i) {
        QM_INFO("udh ie %d out of %d: '%s'", static_cast<uint32_t>(i + 1), static_cast<uint32_t>(parsed.ies.size()),
                parsed.ies[i]->text().c_str());
    }
    const sms_udh_ie_appport_t* port_element = parsed.application_port();
    const int port = port_element != nullptr ? static_cast<int>(port_element->dst()) : -1;
    if (port != static_cast<int>(ZPD_SERVICE_PORT)) {
        QM_ERROR("destination port (%d) is not equal to 0x23F4 => ignoring the message", port);
        return;
    }
    auto record = std::make_unique<incoming_datagram>();
    record->data = user_data;
    record->address = address;
    record->header = std::move(parsed);
    const daemon_visit_t daemon;
    if (!daemon) {
        QM_ERROR("can't process datagram: no daemon object");
        return;
    }
    const control_guard_t guard(*daemon.get(), "process_gsm_or_cdma_message");
    ZPD_DUMP_STATES(*daemon->machine);
    if (!daemon->process_incoming_sms_datagram(record)) {
        QM_ERROR("datagram processing failed, dropping it");
    }
    ZPD_DUMP_STATES(*daemon->machine);
}

/// Takes the record when it succeeds. A message is in the table from its first accepted datagram until it is complete.
bool daemon_t::process_incoming_sms_datagram(std::unique_ptr<incoming_datagram>& record) {
    const std::string key = message_key(*record);
    if (key.empty()) {
        sms_message_t message;
        if (!message.add_datagram(record)) {
            QM_ERROR("can't add a datagram to an empty message");
            return false;
        }
        save_complete_message(message);
        return true;
    }
    const auto [entry, fresh] = incoming_messages.try_emplace(key);
    sms_message_t& message = entry->second;
    if (!message.add_datagram(record)) {
        QM_ERROR("adding of a diagram failed");
        if (fresh) {
            incoming_messages.erase(entry);
        }
        return false;
    }
    if (message.is_complete()) {
        save_complete_message(message);
        incoming_messages.erase(entry);
    }
    return true;
}
