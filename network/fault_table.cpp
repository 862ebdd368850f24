#include "network/fault_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

#include "network/phone.h"

namespace network {

namespace {

constexpr unsigned highest_code = 65'535;  // of an error
constexpr uint64_t longest = 86'400'000;   // a day in milliseconds

struct word_t {
    std::string_view word;
    unsigned value;
};

std::optional<uint64_t> number(std::string_view text, uint64_t highest) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool good = error == std::errc() && end == text.data() + text.size() && value <= highest;
    return good ? std::optional(value) : std::nullopt;
}

bool is_control(char c) {
    return static_cast<unsigned char>(c) < 0x20;
}

std::optional<unsigned> meaning_of(std::string_view text, std::span<const word_t> words) {
    const auto known = std::ranges::find(words, text, &word_t::word);
    return known == words.end() ? std::nullopt : std::optional(known->value);
}

/// "A" and "B" of "A:B"; without the separator no "B".
struct pair_t {
    std::string_view first;
    std::optional<std::string_view> second;
};
pair_t split(std::string_view text, char separator) {
    const size_t at = text.find(separator);
    return at == std::string_view::npos ? pair_t{text, std::nullopt} : pair_t{text.substr(0, at), text.substr(at + 1)};
}

template <auto member>
bool set_flag(phone_t* phone, std::string_view value) {
    const bool good = value.empty() || value == "on" || value == "off";
    if (good && phone != nullptr) {
        phone->modem().faults().*member = value != "off";
    }
    return good;
}

/// A count, or a time in milliseconds.
template <auto member>
bool set_number(phone_t* phone, std::string_view value) {
    using target_t = std::remove_reference_t<decltype(faults_t().*member)>;
    const auto given = number(value, std::min<uint64_t>(longest, std::numeric_limits<target_t>::max()));
    if (given && phone != nullptr) {
        phone->modem().faults().*member = static_cast<target_t>(*given);
    }
    return given.has_value();
}

bool refuse(phone_t* phone, std::string_view value) {
    const pair_t parts = split(value, 'x');
    const auto code = number(parts.first, highest_code);
    const auto times = number(parts.second.value_or("1"), std::numeric_limits<unsigned>::max());
    if (code && times && phone != nullptr) {
        phone->modem().faults().refusal_code = static_cast<unsigned>(*code);
        phone->modem().faults().refusals = static_cast<unsigned>(*times);
    }
    return code && times;
}

bool refuse_number(phone_t* phone, std::string_view value) {
    const pair_t parts = split(value, ':');
    const auto code = number(parts.second.value_or(""), highest_code);
    if (code && phone != nullptr) {
        phone->modem().faults().refused_numbers[std::string(parts.first)] = static_cast<unsigned>(*code);
    }
    return code && air::address_from_number(parts.first);
}

bool set_storage(phone_t* phone, std::string_view value) {
    constexpr uint64_t most = 1000;
    const auto places = number(value, most);
    if (places && phone != nullptr) {
        phone->modem().messages().memories().set_places(*places);
    }
    return places.has_value();
}

bool set_registration(phone_t* phone, std::string_view value) {
    constexpr word_t words[] = {{"none", 0},   {"home", 1},    {"searching", 2},
                                {"denied", 3}, {"unknown", 4}, {"roaming", 5}};
    const auto state = meaning_of(value, words);
    if (state && phone != nullptr) {
        coverage_t coverage = phone->modem().offered_coverage();
        coverage.registration = static_cast<registration_t>(*state);
        phone->modem().set_coverage(coverage);
    }
    return state.has_value();
}

bool set_technology(phone_t* phone, std::string_view value) {
    const auto technology = technology_named(value);
    if (technology && phone != nullptr) {
        coverage_t coverage = phone->modem().offered_coverage();
        coverage.technology = *technology;
        phone->modem().set_coverage(coverage);
    }
    return technology.has_value();
}

bool hang_up(phone_t* phone, std::string_view value) {
    const auto time = number(value, longest);
    if ((value.empty() || time) && phone != nullptr) {
        phone->hang_up(time);
    }
    return value.empty() || time;
}

bool come_back(phone_t* phone, std::string_view value) {
    std::string error;
    return value.empty() && (phone == nullptr || phone->plugged_in() || phone->plug_in(&error));
}

bool restart(phone_t* phone, std::string_view value) {
    const pair_t parts = split(value, ':');
    const std::string_view line = parts.second.value_or("");
    const auto time = number(parts.first, longest);
    const bool good = time && std::ranges::none_of(line, is_control);
    if (good && phone != nullptr) {
        phone->restart(*time, std::string(line));
    }
    return good;
}

bool set_silent(phone_t* phone, std::string_view value) {
    constexpr word_t words[] = {{"off", 0}, {"", 1}, {"on", 1}, {"opened", 2}};
    const auto silence = meaning_of(value, words);
    if (silence && phone != nullptr) {
        phone->modem().faults().silent = static_cast<silence_t>(*silence);
    }
    return silence.has_value();
}

bool set_text_mode(phone_t* phone, std::string_view value) {
    const bool good = set_flag<&faults_t::text_at_start>(phone, value);
    if (good && phone != nullptr) {
        phone->modem().reset_settings();
    }
    return good;
}

bool set_pdu(phone_t* phone, std::string_view value) {
    constexpr word_t words[] = {{"usual", 0},  {"spare-bits", 1},  {"even-address", 2}, {"no-clock", 3},
                                {"padded", 4}, {"length-over", 5}, {"length-under", 6}};
    const auto form = meaning_of(value, words);
    if (form && phone != nullptr) {
        phone->modem().faults().pdu_form = static_cast<pdu_form_t>(*form);
    }
    return form.has_value();
}

bool set_echo(phone_t* phone, std::string_view value) {
    constexpr word_t words[] = {{"as-asked", 0}, {"always", 1}, {"off", 2}};
    const auto echo = meaning_of(value, words);
    if (echo && phone != nullptr) {
        phone->modem().faults().echo = static_cast<echo_t>(*echo);
        phone->modem().dialogue().reset_settings();
    }
    return echo.has_value();
}

bool set_numeric(phone_t* phone, std::string_view value) {
    const bool good = set_flag<&faults_t::numeric_at_start>(phone, value);
    if (good && phone != nullptr) {
        phone->modem().dialogue().reset_settings();
    }
    return good;
}

bool set_prompt(phone_t* phone, std::string_view value) {
    constexpr std::string_view forms[][2] = {
        {"usual", "\r\n> "},       {"bare", ">"},
        {"same-line", "> "},       {"no-space", "\r\n>"},
        {"own-line", "\r\n>\r\n"}, {"spaced-line", "\r\n> \r\n"},
    };
    const auto* const form =
        std::ranges::find_if(forms, [&](const std::string_view* named) { return named[0] == value; });
    if (form != std::end(forms) && phone != nullptr) {
        phone->modem().faults().prompt = (*form)[1];
    }
    return form != std::end(forms);
}

/// A line that the modem then says: the one that goes without saying, another, or with "off" none.
bool set_line(std::string* line, std::string_view value, std::string_view usual) {
    const bool good = std::ranges::none_of(value, is_control);
    if (good && line != nullptr) {
        *line = value.empty() ? usual : value == "off" ? "" : value;
    }
    return good;
}

bool set_chatter(phone_t* phone, std::string_view value) {
    return set_line(phone == nullptr ? nullptr : &phone->modem().faults().chatter, value, "^RSSI: 21");
}

bool set_full_line(phone_t* phone, std::string_view value) {
    return set_line(phone == nullptr ? nullptr : &phone->modem().faults().full_line, value, R"(^SMMEMFULL: "ME")");
}

bool set_service_answer(phone_t* phone, std::string_view value) {
    const bool good = std::ranges::none_of(value, [](char c) { return is_control(c) || c == '"'; });
    if (good && phone != nullptr) {
        phone->modem().faults().service_answer = value;
    }
    return good;
}

bool set_errors(phone_t* phone, std::string_view value) {
    constexpr word_t words[] = {{"plain", 0}, {"numeric", 1}, {"verbose", 2}};
    const auto form = meaning_of(value, words);
    const bool good = form || value == "as-asked";
    if (good && phone != nullptr) {
        phone->modem().faults().errors = form ? std::optional(static_cast<error_form_t>(*form)) : std::nullopt;
    }
    return good;
}

bool set_offers(phone_t* phone, std::string_view value) {
    const auto tables = capability_tables();
    const auto table = std::ranges::find(tables, value, &capabilities_t::name);
    if (table != tables.end() && phone != nullptr) {
        phone->modem().faults().offers = &*table;
        phone->modem().reset_settings();
    }
    return table != tables.end();
}

bool set_sim_busy(phone_t* phone, std::string_view value) {
    const pair_t parts = split(value, ':');
    const auto time = number(parts.first, longest);
    const auto code = number(parts.second.value_or("314"), highest_code);
    if (time && code && phone != nullptr) {
        phone->modem().sim().set_busy(*time, static_cast<unsigned>(*code));
    }
    return time && code;
}

bool set_pin(phone_t* phone, std::string_view value) {
    const bool digits = std::ranges::all_of(value, [](char c) { return c >= '0' && c <= '9'; });
    const bool good = value == "off" || (digits && value.size() >= 4 && value.size() <= 8);
    if (good && phone != nullptr) {
        phone->modem().sim().set_pin(value == "off" ? "" : std::string(value));
        phone->modem().update_coverage();
    }
    return good;
}

bool clear(phone_t* phone, std::string_view value) {
    if (phone == nullptr) {
        return value.empty();
    }
    modem_t& modem = phone->modem();
    modem.faults() = {};
    modem.messages().memories().set_default_places();
    modem.sim() = {};
    modem.set_coverage({.technology = modem.own_technology()});
    return come_back(phone, value);
}

constexpr fault_t table[] = {
    {"refuse", "CODE[xN]", "refuse the next N submissions (1) with +CMS ERROR: CODE", refuse},
    {"refuse-to", "NUMBER:CODE", "refuse every submission to NUMBER with +CMS ERROR: CODE", refuse_number},
    {"lose-results", "N", "take the next N submissions, and never answer them", set_number<&faults_t::lost_results>},
    {"late-results", "MS", "answer submissions MS milliseconds late", set_number<&faults_t::late_results>},
    {"late-prompt", "MS", "prompt for the PDU MS milliseconds late", set_number<&faults_t::late_prompt>},
    {"delay", "MS", "deliver MS milliseconds after the submission", set_number<&faults_t::delay>},
    {"delivery-gap", "MS", "wait MS milliseconds (2) from one delivery to the next",
     set_number<&faults_t::delivery_gap>},
    {"duplicate", "[on|off]", "deliver everything twice", set_flag<&faults_t::duplicates>},
    {"reorder", "N", "hold deliveries back until N wait, then pass them in reverse", set_number<&faults_t::reordered>},
    {"both-ways", "[on|off]", "store what comes, and hand it over by +CMT too", set_flag<&faults_t::both_ways>},
    {"unannounced", "[on|off]", "store what comes without +CMTI", set_flag<&faults_t::unannounced>},
    {"wrong-index", "[on|off]", "tell the index -1 in +CMTI", set_flag<&faults_t::wrong_index>},
    {"fail-deletes", "N", "refuse the next N deletes of a message", set_number<&faults_t::failing_deletes>},
    {"pdu", "FORM", "deliveries with spare-bits, even-address, no-clock, padded, length-over or length-under; or usual",
     set_pdu},
    {"memory-full", "[LINE]", "say LINE when a message finds no place", set_full_line},
    {"storage", "N", "N places in each message memory; what lies beyond is lost", set_storage},
    {"registration", "STATE", "home, roaming, searching, denied, unknown or none", set_registration},
    {"technology", "NAME", "gsm, edge, umts, hspa, lte, nr or cdma", set_technology},
    {"ussd", "TEXT", "what the network answers to every service code (AT+CUSD)", set_service_answer},
    {"hang-up", "[MS]", "go away, and come back after MS milliseconds on another tty", hang_up},
    {"return", "", "come back after a hang-up", come_back},
    {"restart", "MS[:LINE]", "start anew on the same tty: hear nothing for MS milliseconds, then say LINE", restart},
    {"silent", "[on|off|opened]", "take everything and say nothing; opened: until the tty is closed", set_silent},
    {"late-answers", "MS", "take up each command and PDU MS milliseconds late, one after the other",
     set_number<&faults_t::late_answers>},
    {"single-octets", "[on|off]", "write each octet by itself", set_flag<&faults_t::single_octets>},
    {"echo", "HOW", "as-asked (on at the start), always, or off at the start", set_echo},
    {"numeric-results", "[on|off]", "begin with ATV0", set_numeric},
    {"text-mode", "[on|off]", "begin with AT+CMGF=1", set_text_mode},
    {"prompt", "FORM", "usual, bare, same-line, no-space, own-line or spaced-line", set_prompt},
    {"chatter", "[LINE]", "say LINE between any two lines of a response", set_chatter},
    {"errors", "FORM", "plain, numeric or verbose, whatever +CMEE asks for, or as-asked", set_errors},
    {"offers", "TABLE", "what +CSMS, +CPMS, +CNMI, +CMMS offer: full, stored, direct, one, short or none", set_offers},
    {"sim-busy", "MS[:CODE]", "SIM busy (+CMS ERROR: CODE, 314) so long from now and from power-on", set_sim_busy},
    {"pin", "DIGITS", "ask for this PIN, now and after each power-on; off: for none", set_pin},
    {"clear", "", "all of this undone; settings of the dialogue stay until it begins anew", clear},
};

}  // namespace

std::optional<access_technology_t> technology_named(std::string_view word) {
    constexpr word_t words[] = {{"gsm", 0}, {"umts", 2}, {"edge", 3},  {"hspa", 6},
                                {"lte", 7}, {"nr", 11},  {"cdma", 100}};
    const auto technology = meaning_of(word, words);
    return technology ? std::optional(static_cast<access_technology_t>(*technology)) : std::nullopt;
}

std::span<const fault_t> fault_table() {
    return table;
}

std::string set_fault(phone_t* phone, std::string_view order) {
    const pair_t parts = split(order, '=');
    for (const fault_t& fault : table) {
        if (fault.name != parts.first) {
            continue;
        }
        const bool good = (fault.value.empty() ? !parts.second : fault.value.starts_with('[') || parts.second) &&
                          fault.set(phone, parts.second.value_or(""));
        const std::string form = fault.value.empty()            ? ""
                                 : fault.value.starts_with('[') ? fmt::format("[={}", fault.value.substr(1))
                                                                : fmt::format("={}", fault.value);
        return good ? "" : fmt::format("\"{}\" is no {}{}: {}", order, fault.name, form, fault.meaning);
    }
    return fmt::format("there is no fault \"{}\"; 'zpd fault --list' has all", parts.first);
}

}  // namespace network
