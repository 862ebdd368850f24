// Which of the two kinds of message it is, and the fields that both have.
#include "radio/ril_message.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>

#include "base/hex.h"
#include "base/text.h"
#include "radio/ril_message_fields.h"

namespace radio {

namespace {

DWORD address_type(air::number_type_t type) {
    switch (type) {
        case air::number_type_t::international:
            return RIL_ADDRTYPE_INTERNATIONAL;
        case air::number_type_t::national:
            return RIL_ADDRTYPE_NATIONAL;
        case air::number_type_t::alphanumeric:
            return RIL_ADDRTYPE_ALPHANUM;
        default:
            return RIL_ADDRTYPE_UNKNOWN;
    }
}

}  // namespace

std::optional<air::address_t> destination_of(const RILADDRESS& address) {
    char number[1 + air::max_address_digits + 1];  // "+", and one digit too many
    size_t size = 0;
    for (; size < sizeof number && address.wszAddress[size] != 0; ++size) {
        const WCHAR unit = address.wszAddress[size];
        number[size] = unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    std::optional<air::address_t> destination = air::address_from_number({number, size});
    const bool international = (address.dwParams & RIL_PARAM_A_TYPE) && address.dwType == RIL_ADDRTYPE_INTERNATIONAL;
    if (destination && international) {
        destination->type = air::number_type_t::international;
    }
    return destination;
}

void set_origin(const air::address_t& originator, RILADDRESS& address) {
    address.cbSize = sizeof address;
    address.dwParams = RIL_PARAM_A_TYPE | RIL_PARAM_A_NUMPLAN | RIL_PARAM_A_ADDRESS;
    address.dwType = address_type(originator.type);
    address.dwNumPlan = originator.numbering_plan == 1 ? RIL_NUMPLAN_TELEPHONE : RIL_NUMPLAN_UNKNOWN;
    const std::string number = air::number_from_address(originator);
    const bool is_ascii = std::ranges::all_of(number, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (is_ascii) {
        std::copy_n(number.begin(), std::min<size_t>(number.size(), MAXLENGTH_ADDRESS - 1), address.wszAddress);
        return;
    }
    const std::u16string text = base::to_utf16(number);
    std::copy_n(text.begin(), std::min<size_t>(text.size(), MAXLENGTH_ADDRESS - 1), address.wszAddress);
}

void begin_card_message(DWORD type, DWORD params, size_t member, RILMESSAGE& message) {
    memset(&message, 0, offsetof(RILMESSAGE, msgInDeliver) + member);
    message.cbSize = sizeof message;
    message.dwParams = params;
    message.dwType = type;
    message.dwFlags = RIL_MSGFLAG_HEADER;
}

std::string sender_of(const air::address_t& originator) {
    return fmt::format("{}:{}", static_cast<int>(originator.type), originator.text);
}

std::optional<int64_t> seconds_of(const air::timestamp_t& stamp) {
    using namespace std::chrono;
    const year_month_day date = year(2000 + stamp.year) / month(stamp.month) / day(stamp.day);
    if (!date.ok() || stamp.hour > 23 || stamp.minute > 59 || stamp.second > 59) {
        return std::nullopt;
    }
    const sys_seconds utc = sys_days(date) + hours(stamp.hour) + minutes(stamp.minute) + seconds(stamp.second) -
                            minutes(15 * stamp.quarters_east);
    return utc.time_since_epoch().count();
}

void set_time(int64_t seconds_since_1970, SYSTEMTIME& time) {
    using namespace std::chrono;
    const sys_seconds utc{seconds(seconds_since_1970)};
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
}

std::optional<air::user_data_parts_t> card_parts(air::octets_view_t user_data) {
    const std::optional<air::user_data_parts_t> parts = air::split_user_data(user_data);
    return parts && air::destination_port(parts->header) == card_port ? parts : std::nullopt;
}

std::optional<submission_t> submission_of(const RILMESSAGE& message) {
    if (message.cbSize != sizeof message) {
        return std::nullopt;
    }
    switch (message.dwType) {
        case RIL_MSGTYPE_OUT_SUBMIT:
            return gsm_submission_of(message);
        case RIL_MSGTYPE_OUT_CDMASUBMIT:
            return cdma_submission_of(message);
        default:
            return std::nullopt;
    }
}

std::optional<entry_t> entry_of(const submission_t& submission, uint16_t reference, bool reject_duplicates) {
    constexpr std::string_view stored_service_centre = "00";
    const auto* const submit = std::get_if<air::submit_t>(&submission.message);
    std::optional<air::octets_t> message =
        submit ? air::encode(*submit) : air::cdma::encode(std::get<air::cdma::message_t>(submission.message));
    if (!message) {
        return std::nullopt;
    }
    std::optional<entry_t> entry({message->size(), {}});
    entry->digits.reserve(stored_service_centre.size() + 2 * message->size());
    if (submit) {
        air::set_reference(*message, static_cast<uint8_t>(reference), reject_duplicates);
        entry->digits = stored_service_centre;
    }
    base::append_hex(entry->digits, *message);
    return entry;
}

bool names_card_port(air::octets_view_t octets) {
    constexpr uint32_t element = 0x05040000 | card_port;  // 3GPP TS 23.040 9.2.3.24.4
    uint64_t last = 0;
    for (const uint8_t octet : octets) {
        last = last << 8 | octet;
        for (unsigned shift = 0; shift < 8; ++shift) {
            if (static_cast<uint32_t>(last >> shift) == element) {
                return true;
            }
        }
    }
    return false;
}

std::optional<card_datagram_t> card_datagram_of(technology_t technology, air::octets_view_t octets) {
    return technology == technology_t::gsm ? gsm_card_datagram_of(octets) : cdma_card_datagram_of(octets);
}

bool fill_card_message(technology_t technology, air::octets_view_t octets, RILMESSAGE& message) {
    return technology == technology_t::gsm ? fill_gsm_card_message(octets, message)
                                           : fill_cdma_card_message(octets, message);
}

}  // namespace radio
