/// The lines of the AT dialogue as values: replies and unsolicited lines of 3GPP TS 27.005 and 27.007 read,
/// command lines built. Pure functions. Readers take a whole line and return none for one that they cannot make sense
/// of.
#pragma once

#include <ril.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "air/tpdu.h"
#include "radio/result_codes.h"

namespace radio {

/// The one way into a command line: none for a text with a character that a command line must not hold (CR, LF, Ctrl-Z,
/// ESC, anything else outside printable ASCII).
std::optional<std::string> command_line(std::string_view text);
/// A text in quotation marks, as a parameter; none also for one that holds a quotation mark.
std::optional<std::string> quoted_text(std::string_view text);

/// A parameter of a line: unquoted text, or the text between quotation marks or brackets.
struct value_t {
    std::string text;
    bool is_quoted = false;

    bool operator==(const value_t&) const = default;
};
/// The values after the first ":" of a line, between commas.
std::vector<value_t> values_of(std::string_view line);

/// +CREG, +CEREG: the reply to the query and the unsolicited line alike.
struct registration_t {
    int status = 0;
    std::optional<int> access;  // <AcT>

    [[nodiscard]] bool registered() const;
    bool operator==(const registration_t&) const = default;
};
std::optional<registration_t> registration(std::string_view line);
/// The <AcT> of +COPS, where there is one.
std::optional<int> operator_access(std::string_view line);
/// RIL_SYSTEMTYPE_* bits of an <AcT> (3GPP TS 27.007 7.3). LTE and later, which the bits do not know, count as UMTS.
DWORD system_type_of_access(int access);

/// The kinds of network that +GCAP tells (V.250 6.1.9): +CGSM for GSM and what came after it, +CIS707 for CDMA (3GPP2
/// C.S0017).
struct capabilities_t {
    bool gsm = false;
    bool cdma = false;
};
capabilities_t capabilities(std::string_view line);
/// The <rssi> of +CSQ (3GPP TS 27.007 8.5), in dBm.
std::optional<int> signal_strength(std::string_view line);
/// The <service> of +CAD, 3GPP2 C.S0017: 0 none, 1 CDMA.
std::optional<int> cdma_service(std::string_view line);
/// +CSS of the same, which ends with the identification of the serving system: whether there is one.
bool has_serving_system(std::string_view line);

/// +CMTI: where a new message lies. None for an odd one (an index of -1 has been seen).
struct location_t {
    std::string memory;
    int index = 0;

    bool operator==(const location_t&) const = default;
    bool operator<(const location_t& other) const {
        return std::tie(memory, index) < std::tie(other.memory, other.index);
    }
};
std::optional<location_t> new_message(std::string_view line);

/// What makers say, unasked, of a message memory that has no room.
bool announces_full_memory(std::string_view line);

/// +CMGR and +CMGL in PDU mode.
struct stored_message_t {
    int index = 0;  // +CMGL only
    bool received = false;
    size_t length = 0;  // octets of the TPDU

    bool operator==(const stored_message_t&) const = default;
};
std::optional<stored_message_t> read_message(std::string_view line);
std::optional<stored_message_t> listed_message(std::string_view line);
/// The <length> of +CMT.
std::optional<size_t> delivered_length(std::string_view line);
/// What may be the TPDU in a PDU line with the length that its header line told: all of it, where the modem leaves the
/// service centre address away, and what stands behind such an address. A length that is one off, or counts the
/// address, is understood. None of them when it is no PDU, or octets of it were lost.
std::vector<air::octets_t> tpdus_of_line(std::string_view pdu, size_t length);

/// The first value of +CPMS=?: the memories that messages can be read from.
std::vector<std::string> readable_memories(std::string_view line);
/// The third memory of +CPMS?: where new messages go. Empty when there is none.
std::string receiving_memory(std::string_view line);
/// Those of the readable memories that are searched for messages, the receiving one first.
std::vector<std::string> memories_to_read(const std::vector<std::string>& readable, const std::string& receiving);
/// The reply to a selection, +CPMS=: how full the selected memory is.
struct memory_level_t {
    int used = 0;
    int total = 0;
};
std::optional<memory_level_t> memory_level(std::string_view line);
/// The memories of +CPMS?, for reading, for writing and for what is received, as far as told.
struct memory_use_t {
    std::string name;
    memory_level_t level;
};
std::vector<memory_use_t> memories_in_use(std::string_view line);

/// The message reference of +CMGS; that of a CDMA modem has 16 bits.
std::optional<uint16_t> message_reference(std::string_view line);

/// The numbers that each parameter of a "=?" reply offers: lists and ranges, "(0-2),(0,1,3),2".
std::vector<std::vector<int>> offered_numbers(std::string_view line);

/// How new messages are announced: the parameters of AT+CNMI by our preference, of what +CNMI=? offers.
struct announcement_t {
    enum class way_t { stored, direct, none };
    way_t way = way_t::none;
    std::string parameters;

    bool operator==(const announcement_t&) const = default;
};
/// `direct_too`: direct delivery is better than none.
announcement_t choose_announcement(const std::vector<std::vector<int>>& offered, bool direct_too);
/// The same of parameters that somebody else chose; none when they are not numbers between commas.
std::optional<announcement_t> announcement_of(std::string_view parameters);

}  // namespace radio
