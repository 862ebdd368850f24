#include "radio/ril_message.h"

#include <fmt/format.h>
#include <platform/linux/text.h>

#include <algorithm>
#include <chrono>

namespace radio {

namespace {

constexpr uint8_t data_coding_ucs2 = 0x08;

std::optional<tpdu::address_t> destination_of(const RILADDRESS& address) {
    const WCHAR* const end = std::find(address.wszAddress, address.wszAddress + MAXLENGTH_ADDRESS, WCHAR{0});
    const std::u16string_view number(address.wszAddress, end);
    if (number.size() == MAXLENGTH_ADDRESS) {
        return std::nullopt;
    }
    std::optional<tpdu::address_t> destination = tpdu::address_from_number(platform::to_utf8(number));
    const bool international = (address.dwParams & RIL_PARAM_A_TYPE) && address.dwType == RIL_ADDRTYPE_INTERNATIONAL;
    if (destination && international) {
        destination->type = tpdu::number_type_t::international;
    }
    return destination;
}

// Without a valid alphabet the octets go out as what they are.
std::optional<uint8_t> data_coding_of(const RILMESSAGE& message) {
    const RILMSGDCS& coding = message.msgOutSubmit.rmdDataCoding;
    const bool valid = (message.dwParams & RIL_PARAM_M_DATACODING) && (coding.dwParams & RIL_PARAM_MDCS_ALPHABET);
    if (!valid || coding.dwAlphabet == RIL_DCSALPHABET_8BIT) {
        return tpdu::data_coding_8bit;
    }
    return coding.dwAlphabet == RIL_DCSALPHABET_UCS2 ? std::optional(data_coding_ucs2) : std::nullopt;
}

bool set_user_data(const RILMESSAGE& message, tpdu::submit_t& submit) {
    const RIL_OUT_SUBMIT& out = message.msgOutSubmit;
    if (out.cbHdrLength > MAXLENGTH_HDR || out.cbBodyLength > tpdu::max_user_data) {
        return false;
    }
    const tpdu::octets_view_t body(out.rgbMsg, out.cbBodyLength);
    submit.header_indicator = (message.dwFlags & RIL_MSGFLAG_HEADER) && out.cbHdrLength > 0;
    if (submit.header_indicator) {
        std::optional<tpdu::octets_t> joined = tpdu::join_user_data({out.rgbHdr, out.cbHdrLength}, body);
        if (!joined) {
            return false;
        }
        submit.user_data = std::move(*joined);
    } else {
        submit.user_data.assign(body.begin(), body.end());
    }
    submit.user_data_length = static_cast<uint8_t>(submit.user_data.size());
    return true;
}

template <size_t size>
void copy_octets(tpdu::octets_view_t from, BYTE (&to)[size], DWORD& length) {
    length = static_cast<DWORD>(std::min(from.size(), size));
    std::copy_n(from.begin(), length, to);
}

DWORD address_type(tpdu::number_type_t type) {
    switch (type) {
        case tpdu::number_type_t::international:
            return RIL_ADDRTYPE_INTERNATIONAL;
        case tpdu::number_type_t::national:
            return RIL_ADDRTYPE_NATIONAL;
        case tpdu::number_type_t::alphanumeric:
            return RIL_ADDRTYPE_ALPHANUM;
        default:
            return RIL_ADDRTYPE_UNKNOWN;
    }
}

void set_origin(const tpdu::address_t& originator, RILADDRESS& address) {
    address.cbSize = sizeof address;
    address.dwParams = RIL_PARAM_A_TYPE | RIL_PARAM_A_NUMPLAN | RIL_PARAM_A_ADDRESS;
    address.dwType = address_type(originator.type);
    address.dwNumPlan = originator.numbering_plan == 1 ? RIL_NUMPLAN_TELEPHONE : RIL_NUMPLAN_UNKNOWN;
    const std::u16string number = platform::to_utf16(tpdu::number_from_address(originator));
    std::copy_n(number.begin(), std::min<size_t>(number.size(), MAXLENGTH_ADDRESS - 1), address.wszAddress);
}

std::string sender_of(const tpdu::address_t& originator) {
    return fmt::format("{}:{}", static_cast<int>(originator.type), originator.text);
}

// The service centre's local time as UTC, in this century.
bool set_time(const tpdu::timestamp_t& stamp, SYSTEMTIME& time) {
    using namespace std::chrono;
    const year_month_day date = year(2000 + stamp.year) / month(stamp.month) / day(stamp.day);
    if (!date.ok() || stamp.hour > 23 || stamp.minute > 59 || stamp.second > 59) {
        return false;
    }
    const sys_seconds utc = sys_days(date) + hours(stamp.hour) + minutes(stamp.minute) + seconds(stamp.second) -
                            minutes(15 * stamp.quarters_east);
    const sys_days utc_day = floor<days>(utc);
    const year_month_day utc_date(utc_day);
    const hh_mm_ss clock(utc - utc_day);
    time.wYear = static_cast<WORD>(static_cast<int>(utc_date.year()));
    time.wMonth = static_cast<WORD>(static_cast<unsigned>(utc_date.month()));
    time.wDay = static_cast<WORD>(static_cast<unsigned>(utc_date.day()));
    time.wDayOfWeek = static_cast<WORD>(weekday(utc_day).c_encoding());
    time.wHour = static_cast<WORD>(clock.hours().count());
    time.wMinute = static_cast<WORD>(clock.minutes().count());
    time.wSecond = static_cast<WORD>(clock.seconds().count());
    return true;
}

RILMESSAGE message_of(const tpdu::deliver_t& deliver, const tpdu::user_data_parts_t& parts) {
    RILMESSAGE message{};
    message.cbSize = sizeof message;
    message.dwParams = RIL_PARAM_M_TYPE | RIL_PARAM_M_FLAGS | RIL_PARAM_M_ORIGADDRESS | RIL_PARAM_M_PROTOCOLID |
                       RIL_PARAM_M_DATACODING | RIL_PARAM_M_HDRLENGTH | RIL_PARAM_M_MSGLENGTH | RIL_PARAM_M_HDR |
                       RIL_PARAM_M_MSG;
    message.dwType = RIL_MSGTYPE_IN_DELIVER;
    message.dwFlags = RIL_MSGFLAG_HEADER;
    RIL_IN_DELIVER in{};
    set_origin(deliver.originator, in.raOrigAddress);
    in.dwProtocolID = deliver.protocol_identifier == 0 ? RIL_MSGPROTOCOL_SMETOSME : 0;
    in.rmdDataCoding.cbSize = sizeof in.rmdDataCoding;
    in.rmdDataCoding.dwParams = RIL_PARAM_MDCS_TYPE | RIL_PARAM_MDCS_ALPHABET;
    in.rmdDataCoding.dwType = RIL_DCSTYPE_GENERAL;
    in.rmdDataCoding.dwAlphabet = RIL_DCSALPHABET_8BIT;
    if (set_time(deliver.service_centre_time, in.stSCReceiveTime)) {
        message.dwParams |= RIL_PARAM_M_SCRECEIVETIME;
    }
    copy_octets(parts.header, in.rgbHdr, in.cbHdrLength);
    copy_octets(parts.body, in.rgbMsg, in.cchMsgLength);
    message.msgInDeliver = in;
    return message;
}

// The bit that more messages wait differs between copies of one message.
tpdu::octets_t identity_of(tpdu::deliver_t deliver) {
    deliver.more_messages = false;
    return tpdu::encode(deliver).value_or(tpdu::octets_t());
}

}  // namespace

std::optional<submission_t> submission_of(const RILMESSAGE& message) {
    if (message.cbSize != sizeof message || message.dwType != RIL_MSGTYPE_OUT_SUBMIT) {
        return std::nullopt;
    }
    const std::optional<tpdu::address_t> destination = destination_of(message.msgOutSubmit.raDestAddress);
    const std::optional<uint8_t> data_coding = data_coding_of(message);
    tpdu::submit_t submit;
    if (!destination || !data_coding || !set_user_data(message, submit)) {
        return std::nullopt;
    }
    submit.destination = *destination;
    submit.data_coding = *data_coding;
    submit.validity_period = validity_seven_days;
    std::optional<tpdu::octets_t> octets = tpdu::encode(submit);
    return octets ? std::optional(submission_t{technology_t::gsm, std::move(*octets)}) : std::nullopt;
}

std::optional<card_datagram_t> card_datagram_of(technology_t technology, tpdu::octets_view_t octets) {
    if (technology != technology_t::gsm) {
        return std::nullopt;
    }
    const std::optional<tpdu::deliver_t> deliver = tpdu::decode_deliver(octets);
    if (!deliver || !deliver->header_indicator ||
        tpdu::alphabet_of(deliver->data_coding) != tpdu::alphabet_t::octets8) {
        return std::nullopt;
    }
    const std::optional<tpdu::user_data_parts_t> parts = tpdu::split_user_data(deliver->user_data);
    if (!parts || tpdu::destination_port(parts->header) != card_port) {
        return std::nullopt;
    }
    return card_datagram_t{.message = message_of(*deliver, *parts),
                           .sender = sender_of(deliver->originator),
                           .header = {parts->header.begin(), parts->header.end()},
                           .body = {parts->body.begin(), parts->body.end()},
                           .identity = identity_of(*deliver)};
}

}  // namespace radio
