/// The final result codes of a command line: V.250 5.7.1, +CME ERROR of 3GPP TS 27.007 9.2 and +CMS ERROR of 3GPP TS
/// 27.005 3.2.5.
#pragma once

#include <string>

namespace network {

/// What a command, and with it the line, ends with.
struct at_result_t {
    enum class kind_t {
        ok,
        error,
        cme_error,    // of the equipment; plain ERROR unless +CMEE asks for more
        cms_error,    // of the message service
        enter_text,   // no end yet: the host enters text up to Ctrl-Z
        enter_lines,  // the same of several lines, each of which is prompted for
        nothing,      // the answer never comes
    };
    kind_t kind = kind_t::ok;
    unsigned code = 0;
};

inline constexpr at_result_t at_ok{at_result_t::kind_t::ok};
inline constexpr at_result_t at_error{at_result_t::kind_t::error};
inline constexpr at_result_t at_enter_text{at_result_t::kind_t::enter_text};
inline constexpr at_result_t at_enter_lines{at_result_t::kind_t::enter_lines};
inline constexpr at_result_t at_nothing{at_result_t::kind_t::nothing};

inline constexpr at_result_t cme_not_allowed{at_result_t::kind_t::cme_error, 3};
inline constexpr at_result_t cme_puk_required{at_result_t::kind_t::cme_error, 12};
inline constexpr at_result_t cme_sim_busy{at_result_t::kind_t::cme_error, 14};
inline constexpr at_result_t cme_incorrect_password{at_result_t::kind_t::cme_error, 16};
inline constexpr at_result_t cme_no_network_service{at_result_t::kind_t::cme_error, 30};
inline constexpr at_result_t cme_incorrect_parameters{at_result_t::kind_t::cme_error, 50};

constexpr at_result_t cms_error(unsigned code) {
    return {at_result_t::kind_t::cms_error, code};
}
inline constexpr at_result_t cms_not_supported = cms_error(303);
inline constexpr at_result_t cms_invalid_pdu_parameter = cms_error(304);
inline constexpr at_result_t cms_invalid_text_parameter = cms_error(305);
inline constexpr at_result_t cms_pin_required = cms_error(311);
inline constexpr at_result_t cms_puk_required = cms_error(316);
inline constexpr at_result_t cms_memory_failure = cms_error(320);
inline constexpr at_result_t cms_invalid_index = cms_error(321);
inline constexpr at_result_t cms_memory_full = cms_error(322);
inline constexpr at_result_t cms_no_network_service = cms_error(331);
inline constexpr at_result_t cms_no_acknowledgement_expected = cms_error(340);

/// RP-causes, 3GPP TS 24.011 E-2, which +CMS ERROR passes on.
inline constexpr unsigned cause_unidentified_subscriber = 28;
inline constexpr unsigned cause_congestion = 42;
inline constexpr unsigned cause_facility_not_subscribed = 50;
inline constexpr unsigned cause_invalid_message = 95;
/// TP-FCS, 3GPP TS 23.040 9.2.3.22: SM rejected - duplicate SM.
inline constexpr unsigned cause_duplicate = 0xC5;

/// +CMEE, 3GPP TS 27.007 9.1.
enum class error_form_t : unsigned { plain = 0, numeric = 1, verbose = 2 };

/// The result as text without its framing; `numeric` is V0. What is no end has none.
std::string result_text(at_result_t result, error_form_t form, bool numeric);

}  // namespace network
