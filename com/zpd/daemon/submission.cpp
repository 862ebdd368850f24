// Handing a datagram to the radio as a GSM or a CDMA message, and what its result means.
#include <algorithm>
#include <cstring>
#include <exception>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"
#include "com/zpd/daemon/datagram_coding.h"
#include "com/zpd/daemon/ril_requests.h"

namespace {

constexpr uint32_t max_user_data = 140;  // octets of TP user data, 3GPP TS 23.040 9.2.3.24

// The members that each kind of message fills in. The bits of the second have other meanings than those of the first.
constexpr uint32_t gsm_params = RIL_PARAM_M_TYPE | RIL_PARAM_M_FLAGS | RIL_PARAM_M_DESTADDRESS |
                                RIL_PARAM_M_PROTOCOLID | RIL_PARAM_M_DATACODING | RIL_PARAM_M_VPFORMAT |
                                RIL_PARAM_M_VP | RIL_PARAM_M_HDRLENGTH | RIL_PARAM_M_MSGLENGTH | RIL_PARAM_M_HDR |
                                RIL_PARAM_M_MSG;
static_assert(gsm_params == 0x0D80CA26);
// It marks the times of a deferred delivery, which stay zero, and not the validity that is filled in: deliberately.
constexpr uint32_t cdma_params = 0x2F81CE26;

// A CDMA number is limited more strictly than a GSM one.
constexpr size_t max_gsm_number = MAXLENGTH_ADDRESS - 1;
constexpr size_t max_cdma_number = 127;

/// The flag of more to come is set when the ordinal, which counts from 0, is less than the number of datagrams: always,
/// for the last one too. Deliberate.
uint32_t message_flags(const datagram_t& datagram) {
    const bool more = datagram.ordinal < datagram.message->datagrams.size();
    return RIL_MSGFLAG_HEADER | (more ? RIL_MSGFLAG_MORETOSEND : 0);
}

bool fill_address(RILADDRESS& address, wide_view_t number, size_t max_length, uint32_t params) {
    if (number.size() > max_length) {
        QM_ERROR("the phone number is too long");
        return false;
    }
    address.cbSize = sizeof address;
    address.dwParams = params;
    address.dwType = RIL_ADDRTYPE_UNKNOWN;
    address.dwNumPlan = RIL_NUMPLAN_TELEPHONE;
    std::copy(number.begin(), number.end(), address.wszAddress);
    address.wszAddress[number.size()] = 0;
    return true;
}

/// The header without its length octet, and the body; `out` is the submit member of either kind.
template <class submit_t>
bool fill_user_data(submit_t& out, const datagram_t& datagram) {
    const auto udhl = static_cast<uint32_t>(datagram.udh.size());
    const auto udl = static_cast<uint32_t>(datagram.data.size());
    if (udhl + udl > max_user_data) {
        QM_ERROR("datagram is too long: UDHL=%d + UDL=%d = %d > 140", udhl, udl, udhl + udl);
        return false;
    }
    out.cbHdrLength = udhl - 1;
    memcpy(out.rgbHdr, datagram.udh.data() + 1, udhl - 1);
    out.cbBodyLength = udl;
    memcpy(out.rgbMsg, datagram.data.data(), udl);
    return true;
}

}  // namespace

bool fill_gsm_message(const datagram_t& datagram, RILMESSAGE& message) {
    memset(&message, 0, sizeof message);  // {} need not clear the longest member of the union
    message.cbSize = sizeof message;
    message.dwParams = gsm_params;
    message.dwType = RIL_MSGTYPE_OUT_SUBMIT;
    message.dwFlags = message_flags(datagram);
    RIL_OUT_SUBMIT& out = message.msgOutSubmit;
    if (!fill_address(out.raDestAddress, datagram.phone, max_gsm_number,
                      RIL_PARAM_A_TYPE | RIL_PARAM_A_NUMPLAN | RIL_PARAM_A_ADDRESS)) {
        return false;
    }
    out.dwProtocolID = RIL_MSGPROTOCOL_SMETOSME;
    out.rmdDataCoding = {.cbSize = sizeof out.rmdDataCoding,
                         .dwParams = RIL_PARAM_MDCS_TYPE | RIL_PARAM_MDCS_ALPHABET,
                         .dwType = RIL_DCSTYPE_GENERAL,
                         .dwFlags = 0,
                         .dwMsgClass = 0,
                         .dwAlphabet = RIL_DCSALPHABET_8BIT,
                         .dwIndication = 0,
                         .dwLanguage = 0};
    out.dwVPFormat = RIL_MSGVP_RELATIVE;
    GetSystemTime(&out.stVP);  // the current time, deliberately; the radio layer makes a period of validity of it
    return fill_user_data(out, datagram);
}

bool daemon_t::request_ril(datagram_t* datagram) try {
    if (gsm_available) {
        return send_datagram_request_gsm(datagram);
    }
    if (cdma_available) {
        return send_datagram_request_cdma(datagram);
    }
    QM_CRITICAL_ERROR("EPIC FAIL: no network, can't send datagram :-(");
    return false;
} catch (const std::exception& error) {
    QM_CRITICAL_ERROR("can't send datagram %d of message %d: %s", datagram->ordinal, datagram->message->id,
                      error.what());
    return false;
}

bool daemon_t::send_datagram_request_gsm(datagram_t* datagram) {
    if (!ensure_ril_session()) {
        return false;
    }
    RILMESSAGE message;
    return fill_gsm_message(*datagram, message) && submit(message, datagram);
}

bool daemon_t::send_datagram_request_cdma(datagram_t* datagram) {
    if (!ensure_ril_session()) {
        return false;
    }
    RILMESSAGE message;
    memset(&message, 0, sizeof message);
    message.cbSize = sizeof message;
    message.dwParams = cdma_params;
    QM_DEBUG("msg->dwParams(=0x%08X) & nao_flags = nao_flags", static_cast<uint32_t>(message.dwParams));
    message.dwType = RIL_MSGTYPE_OUT_CDMASUBMIT;
    message.dwFlags = message_flags(*datagram);
    RIL_OUT_CDMASUBMIT& out = message.msgOutCDMASubmit;
    if (!fill_address(out.raDestAddress, datagram->phone, max_cdma_number, RIL_PARAM_A_ADDRESS)) {
        return false;
    }
    out.rsaDestSubaddr.cbSize = sizeof out.rsaDestSubaddr;
    GetSystemTime(&out.stValidityPeriodAbs);
    out.stValidityPeriodAbs.wYear += 1;
    out.stValidityPeriodRel = out.stValidityPeriodAbs;
    out.dwMsgDisplayMode = RIL_MSGDISPLAYMODE_USERDEFAULT;
    out.raCallBackNumber.cbSize = sizeof out.raCallBackNumber;
    out.dwMsgPriority = RIL_MSGPRIORITY_NORMAL;
    out.dwMsgPrivacy = RIL_MSGPRIVACYCLASS_NOTRESTRICTED;
    out.dwTeleservice = RIL_MSGTELESERVICE_MESSAGING;
    out.dwMsgID = datagram->message->id & 0xFFFF;
    out.dwMsgEncoding = RIL_MSGCODING_7BITASCII;
    QM_DEBUG("cdma->dwMsgEncoding = RIL_MSGCODING_7BITASCII");
    return fill_user_data(out, *datagram) && submit(message, datagram);
}

bool daemon_t::submit(const RILMESSAGE& message, datagram_t* datagram) {
    const DWORD options = machine->state_queued->elements.empty() ? 0 : RIL_SENDOPT_PERSISTLINK;
    const HRESULT result = RIL_SendMsg(hril, &message, options);
    const auto reference = static_cast<uint32_t>(result);
    if (result < 0) {
        QM_ERROR("can't start RIL_SendMsg request for datagram %d of message %d: error=0x%08X", datagram->ordinal,
                 datagram->message->id, reference);
        return false;
    }
    QM_NOTICE("rilled datagram %d of message %d: ref=0x%X", datagram->ordinal, datagram->message->id, reference);
    new ril_request_send_message_t(this, reference, datagram);  // registers itself, and is found by its result
    return true;
}

daemon_t::ril_request_send_message_t::ril_request_send_message_t(daemon_t* owner, uint32_t id, datagram_t* sent)
    : abstract_ril_request_t(owner, id), datagram(sent) {
    QM_DEBUG("req_id=0x%X, datagram_t *d=0x%X", req_id, identity(datagram));
}

void daemon_t::ril_request_send_message_t::process_result() {
    log_result();
    daemon->machine->state_rilled->process_ril_result(datagram, error_of_result());
}

/// 0 for a success. All three lines are errors, the one of a success too: deliberately.
uint32_t daemon_t::ril_request_send_message_t::error_of_result() const {
    constexpr uint32_t unknown_error = 0xFFFFFFFF;
    if (ril_result_code == RIL_RESULT_OK) {
        QM_ERROR("ril_result_code=RIL_RESULT_OK=0x%X => error=0", ril_result_code);
        return 0;
    }
    if (ril_result_code == RIL_RESULT_ERROR) {
        const uint32_t error = data.size() >= sizeof data32 ? data32 : unknown_error;
        QM_ERROR("ril_result_code=RIL_RESULT_ERROR=0x%X => error=0x%X", ril_result_code, error);
        return error;
    }
    const uint32_t error = ril_result_code != 0 ? ril_result_code : unknown_error;
    QM_ERROR("ril_result_code=0x%X => error=0x%X", ril_result_code, error);
    return error;
}
