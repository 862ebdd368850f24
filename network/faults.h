/// What can be done to one modem of the emulated network on demand: where it is registered, how it misbehaves, and its
/// manner of speaking. Plain values; fault_table.h gives them the names that people write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "network/capabilities.h"
#include "network/result_codes.h"

namespace network {

/// <stat> of +CREG, 3GPP TS 27.007 7.2.
enum class registration_t : uint8_t { idle = 0, home = 1, searching = 2, denied = 3, unknown = 4, roaming = 5 };

/// <AcT> of +CREG and +COPS, 3GPP TS 27.007 7.2.
enum class access_technology_t : uint8_t {
    gsm = 0,
    utran = 2,
    gsm_egprs = 3,
    utran_hsdpa = 4,
    utran_hsupa = 5,
    utran_hspa = 6,
    e_utran = 7,
    new_radio = 11,
    last = 13,
    cdma = 100,  // none of them
};

/// What the modem has of the network. Without a registration at home or roaming it neither sends nor receives.
struct coverage_t {
    registration_t registration = registration_t::home;
    access_technology_t technology = access_technology_t::gsm;

    bool on_cdma() const { return technology == access_technology_t::cdma; }
    bool in_service() const { return registration == registration_t::home || registration == registration_t::roaming; }
};

/// How a delivery's PDU is written, where modems and service centres are at odds with 3GPP TS 23.040 and 27.005.
enum class pdu_form_t {
    usual,
    spare_bits,    // the bit of the first octet that means nothing is set (TS 23.040 9.2.2.1)
    even_address,  // the originator's length counts the filler, too (9.1.2.5)
    no_clock,      // seconds and time zone are no decimal digits (9.2.3.11)
    padded,        // octets follow that mean nothing, as in a record of a SIM
    length_over,   // <length> counts one octet too many (TS 27.005 3.1)
    length_under,  // one too few
};

enum class silence_t { none, until_told, until_opened };

enum class echo_t { as_asked, always, off_at_start };

/// Few enough that no card takes noticeably longer, and enough for a host to see one datagram after the other.
inline constexpr uint64_t default_delivery_gap = 2;

/// Times are in milliseconds of base::tick64.
struct faults_t {
    // Submissions.
    unsigned refusals = 0;  // so many of the next are refused with this +CMS ERROR (3GPP TS 27.005 3.2.5)
    unsigned refusal_code = 500;
    std::map<std::string, unsigned> refused_numbers;  // with the code that each submission to them is refused with
    unsigned lost_results = 0;  // so many of the next reach the network, but their result never reaches the host
    uint64_t late_results = 0;  // results come so much later; meanwhile the modem takes other commands
    uint64_t late_prompt = 0;   // the prompt comes so much later; meanwhile the modem takes nothing

    // Deliveries.
    uint64_t delivery_gap = default_delivery_gap;  // the next comes no sooner after one
    uint64_t delay = 0;                            // what has been submitted less long ago is not delivered yet
    bool duplicates = false;                       // each comes twice
    size_t reordered = 0;                          // held back until so many wait, then passed in reverse
    bool both_ways = false;                        // stored, and handed over without a wait for an acknowledgement
    bool unannounced = false;                      // stored without +CMTI
    bool wrong_index = false;                      // +CMTI tells -1
    pdu_form_t pdu_form = pdu_form_t::usual;

    // The message memories.
    unsigned failing_deletes = 0;  // so many of the next AT+CMGD fail
    bool full = false;             // nothing finds a place
    std::string full_line;         // told when a message finds no place; empty: nothing is

    // What the network answers to each service code (+CUSD), in UTF-8.
    std::string service_answer = "An emulated network: nothing is charged.";

    // The manner of speaking.
    silence_t silent = silence_t::none;  // the modem takes everything and says nothing at all
    uint64_t late_answers = 0;           // each command line and text is taken up so much later, one after the other
    bool single_octets = false;          // each octet to the host is written by itself
    echo_t echo = echo_t::as_asked;
    bool numeric_at_start = false;  // ATV0
    bool text_at_start = false;     // AT+CMGF=1
    std::string_view prompt = "\r\n> ";
    std::string chatter;                 // an unsolicited line between any two lines of a response; empty: none
    std::optional<error_form_t> errors;  // whatever +CMEE asks for
    const capabilities_t* offers = &full_capabilities;
};

}  // namespace network
