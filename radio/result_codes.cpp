#include "radio/result_codes.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <span>

namespace radio {

namespace {

constexpr int unknown_cms_error = 500;
constexpr int unknown_cme_error = 100;
constexpr int initialising = 515;  // of several makers, with either prefix

struct row_t {
    int code;
    meaning_t meaning;
};

constexpr std::string_view check_number = "check the number";
constexpr std::string_view ask_operator = "ask the operator whether the subscription includes short messages";
constexpr std::string_view check_sim = "check that a SIM is in the modem, the right way round";
constexpr std::string_view give_pin = "name a file with the SIM's PIN by --pin-file";
constexpr std::string_view use_phone = "put the SIM in a phone and unlock it there";
constexpr std::string_view free_memory = "delete messages from the modem";
constexpr std::string_view check_centre = "set the service centre's number (AT+CSCA)";
constexpr std::string_view check_network = "check the antenna and the reception";

using enum retry_t;

// 1 to 127: 3GPP TS 24.011 E.2; 128 to 255: TP-FCS, 3GPP TS 23.040 9.2.3.22; from 300 on 3GPP TS 27.005 3.2.5.
constexpr row_t cms_rows[] = {
    {1, {"unassigned number", never, check_number}},
    {8, {"operator determined barring", never, ask_operator}},
    {10, {"call barred", never, ask_operator}},
    {21, {"short message transfer rejected", later, ask_operator}},
    {22, {"memory capacity exceeded", later, "the receiver's memory is full"}},
    {27, {"destination out of service", later, "the receiver cannot be reached"}},
    {28, {"unidentified subscriber", never, ask_operator}},
    {29, {"facility rejected", never, ask_operator}},
    {30, {"unknown subscriber", never, check_number}},
    {38, {"network out of order", after_network, ""}},
    {41, {"temporary failure", now, ""}},
    {42, {"congestion", later, ""}},
    {47, {"resources unavailable", later, ""}},
    {50, {"requested facility not subscribed", never, ask_operator}},
    {69, {"requested facility not implemented", never, ask_operator}},
    {81, {"invalid short message transfer reference value", now, ""}},
    {95, {"semantically incorrect message", never, ""}},
    {96, {"invalid mandatory information", never, check_centre}},
    {97, {"message type non-existent or not implemented", never, ""}},
    {98, {"message not compatible with short message protocol state", now, ""}},
    {99, {"information element non-existent or not implemented", never, ""}},
    {111, {"protocol error", now, ""}},
    {127, {"interworking", later, ""}},
    {128, {"telematic interworking not supported", never, ""}},
    {143, {"unspecified TP-PID error", never, ""}},
    {144, {"data coding scheme (alphabet) not supported", never, ""}},
    {145, {"message class not supported", never, ""}},
    {159, {"unspecified TP-DCS error", never, ""}},
    {175, {"unspecified TP-command error", never, ""}},
    {176, {"TPDU not supported", never, ""}},
    {192, {"SC busy", later, ""}},
    {193, {"no SC subscription", never, ask_operator}},
    {194, {"SC system failure", later, ""}},
    {195, {"invalid SME address", never, check_number}},
    {196, {"destination SME barred", never, ask_operator}},
    {197, {"SM rejected-duplicate SM", never, ""}},
    {198, {"TP-VPF not supported", never, ""}},
    {199, {"TP-VP not supported", never, ""}},
    {208, {"SIM SMS storage full", later, free_memory}},
    {209, {"no SMS storage capability in SIM", never, ""}},
    {210, {"error in MS", later, ""}},
    {211, {"memory capacity exceeded", later, free_memory}},
    {212, {"SIM application toolkit busy", now, ""}},
    {213, {"SIM data download error", later, ""}},
    {255, {"unspecified error cause", later, ""}},
    {300, {"ME failure", later, "switch the modem off and on"}},
    {301, {"SMS service of ME reserved", later, "another program uses the modem: stop it"}},
    {302, {"operation not allowed", later, ""}},
    {303, {"operation not supported", never, ""}},
    {304, {"invalid PDU mode parameter", never, ""}},
    {305, {"invalid text mode parameter", never, ""}},
    {310, {"SIM not inserted", never, check_sim}},
    {311, {"SIM PIN required", never, give_pin}},
    {312, {"PH-SIM PIN required", never, use_phone}},
    {313, {"SIM failure", later, check_sim}},
    {314, {"SIM busy", now, ""}},
    {315, {"SIM wrong", never, "the modem takes the SIMs of one operator only"}},
    {316, {"SIM PUK required", never, use_phone}},
    {317, {"SIM PIN2 required", never, use_phone}},
    {318, {"SIM PUK2 required", never, use_phone}},
    {320, {"memory failure", later, ""}},
    {321, {"invalid memory index", never, ""}},
    {322, {"memory full", later, free_memory}},
    {330, {"SMSC address unknown", never, check_centre}},
    {331, {"no network service", after_network, check_network}},
    {332, {"network timeout", after_network, check_network}},
    {340, {"no +CNMA acknowledgement expected", never, ""}},
    {unknown_cms_error, {"unknown error", later, ""}},
    {initialising, {"please wait, init or command processing in progress", now, ""}},
};

// 3GPP TS 27.007 9.2.1.
constexpr row_t cme_rows[] = {
    {0, {"phone failure", later, "switch the modem off and on"}},
    {1, {"no connection to phone", later, ""}},
    {3, {"operation not allowed", later, ""}},
    {4, {"operation not supported", never, ""}},
    {5, {"PH-SIM PIN required", never, use_phone}},
    {10, {"SIM not inserted", never, check_sim}},
    {11, {"SIM PIN required", never, give_pin}},
    {12, {"SIM PUK required", never, use_phone}},
    {13, {"SIM failure", later, check_sim}},
    {14, {"SIM busy", now, ""}},
    {15, {"SIM wrong", never, "the modem takes the SIMs of one operator only"}},
    {16, {"incorrect password", never, "correct the PIN"}},
    {17, {"SIM PIN2 required", never, use_phone}},
    {18, {"SIM PUK2 required", never, use_phone}},
    {20, {"memory full", later, free_memory}},
    {21, {"invalid index", never, ""}},
    {22, {"not found", never, ""}},
    {23, {"memory failure", later, ""}},
    {30, {"no network service", after_network, check_network}},
    {31, {"network timeout", after_network, check_network}},
    {32, {"network not allowed - emergency calls only", after_network, ask_operator}},
    {40, {"network personalization PIN required", never, "the modem takes the SIMs of one operator only"}},
    {50, {"incorrect parameters", never, ""}},
    {unknown_cme_error, {"unknown", later, ""}},
    {initialising, {"please wait, init or command processing in progress", now, ""}},
};

std::span<const row_t> rows_of(final_result_t::kind_t kind) {
    return kind == final_result_t::kind_t::cms_error ? std::span<const row_t>(cms_rows) : cme_rows;
}

// Words as modems vary them: "(U)SIM", capitals, "Please wait, init or…" cut short.
std::string folded(std::string_view text) {
    std::string lower;
    for (const char c : text) {
        lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    const size_t universal = lower.find("(u)");
    if (universal != std::string::npos) {
        lower.erase(universal, 3);
    }
    return lower;
}

int error_code(std::string_view text, final_result_t::kind_t kind, int unknown) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    int code = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
    if (error == std::errc{} && end == text.data() + text.size() && code >= 0) {
        return code;
    }
    const std::string words = folded(text);
    for (const row_t& row : rows_of(kind)) {
        if (folded(row.meaning.text) == words) {
            return row.code;
        }
    }
    return words.starts_with("please wait") ? initialising : unknown;
}

}  // namespace

std::optional<final_result_t> final_result(std::string_view line) {
    using enum final_result_t::kind_t;
    constexpr std::string_view cms = "+CMS ERROR:";
    constexpr std::string_view cme = "+CME ERROR:";
    if (line == "OK") {
        return final_result_t{ok, 0};
    }
    if (line.starts_with(cms)) {
        return final_result_t{cms_error, error_code(line.substr(cms.size()), cms_error, unknown_cms_error)};
    }
    if (line.starts_with(cme)) {
        return final_result_t{cme_error, error_code(line.substr(cme.size()), cme_error, unknown_cme_error)};
    }
    // The last two come from modems of one maker in place of ERROR. NO CARRIER is no result of ours, who never dial: it
    // tells of an incoming call that was given up.
    for (const std::string_view text : {"ERROR", "COMMAND NOT SUPPORT", "TOO MANY PARAMETERS"}) {
        if (line == text) {
            return final_result_t{error, 0};
        }
    }
    return std::nullopt;
}

std::optional<final_result_t> numeric_result(std::string_view line) {
    if (line == "0") {
        return final_result_t{};
    }
    return line == "4" ? std::optional(final_result_t{final_result_t::kind_t::error, 0}) : std::nullopt;
}

meaning_t meaning_of(const final_result_t& result) {
    using enum final_result_t::kind_t;
    if (result.kind == cms_error || result.kind == cme_error) {
        for (const row_t& row : rows_of(result.kind)) {
            if (row.code == result.code) {
                return row.meaning;
            }
        }
        return {"unknown to the standard", later, "the modem's manual has the code"};
    }
    return result.kind == ok ? meaning_t{"done", now, ""} : meaning_t{"refused without a reason", later, ""};
}

std::string described(const final_result_t& result) {
    using enum final_result_t::kind_t;
    const meaning_t meaning = meaning_of(result);
    std::string text(meaning.text);
    if (result.kind == cms_error || result.kind == cme_error) {
        text += fmt::format(" (+{} ERROR: {})", result.kind == cms_error ? "CMS" : "CME", result.code);
    }
    return meaning.advice.empty() ? text : fmt::format("{}: {}", text, meaning.advice);
}

bool not_ready_yet(const final_result_t& result) {
    using enum final_result_t::kind_t;
    constexpr int cms_sim_busy = 314;
    constexpr int cme_sim_busy = 14;
    return (result.kind == cms_error && (result.code == cms_sim_busy || result.code == initialising)) ||
           (result.kind == cme_error && (result.code == cme_sim_busy || result.code == initialising));
}

bool lacks_sim(const final_result_t& result) {
    using enum final_result_t::kind_t;
    constexpr std::array cms = {310, 313, 315};  // not inserted, failure, wrong
    constexpr std::array cme = {10, 13, 15};
    return (result.kind == cms_error && std::ranges::find(cms, result.code) != cms.end()) ||
           (result.kind == cme_error && std::ranges::find(cme, result.code) != cme.end());
}

bool is_duplicate(const final_result_t& result) {
    constexpr int duplicate = 197;
    return result.kind == final_result_t::kind_t::cms_error && result.code == duplicate;
}

bool tells_no_reason(const final_result_t& result) {
    using enum final_result_t::kind_t;
    return result.kind == error || (result.kind == cms_error && result.code == unknown_cms_error) ||
           (result.kind == cme_error && result.code == unknown_cme_error);
}

bool leaves_open(const final_result_t& result) {
    using enum final_result_t::kind_t;
    constexpr int cms_network_timeout = 332;
    constexpr int cme_network_timeout = 31;
    return (result.kind == cms_error && result.code == cms_network_timeout) ||
           (result.kind == cme_error && result.code == cme_network_timeout);
}

}  // namespace radio
