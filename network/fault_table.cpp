#include "network/fault_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

#include "base/clock.h"
#include "network/phone.h"

namespace network {

namespace {

constexpr unsigned highest_code = 65'535;  // of an error
constexpr uint64_t longest = 86'400'000;   // a day in milliseconds

struct word_t {
    std::string_view word;
    unsigned value;
};

constexpr word_t technologies[] = {{"gsm", 0}, {"umts", 2}, {"edge", 3},  {"hspa", 6},
                                   {"lte", 7}, {"nr", 11},  {"cdma", 100}};

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

using values_t = std::vector<std::string>;

/// The first that means it.
values_t word_for(unsigned value, std::span<const word_t> words) {
    const auto known = std::ranges::find(words, value, &word_t::value);
    return known == words.end() ? values_t() : values_t{std::string(known->word)};
}

constexpr word_t registrations[] = {{"none", 0},   {"home", 1},    {"searching", 2},
                                    {"denied", 3}, {"unknown", 4}, {"roaming", 5}};
constexpr word_t silences[] = {{"off", 0}, {"", 1}, {"on", 1}, {"opened", 2}};
constexpr word_t pdu_forms[] = {{"usual", 0},  {"spare-bits", 1},  {"even-address", 2}, {"no-clock", 3},
                                {"padded", 4}, {"length-over", 5}, {"length-under", 6}};
constexpr word_t echoes[] = {{"as-asked", 0}, {"always", 1}, {"off", 2}};
constexpr word_t error_forms[] = {{"plain", 0}, {"numeric", 1}, {"verbose", 2}};

/// "A" and "B" of "A:B"; without the separator no "B".
struct pair_t {
    std::string_view first;
    std::optional<std::string_view> second;
};
pair_t split(std::string_view text, char separator) {
    const size_t at = text.find(separator);
    return at == std::string_view::npos ? pair_t{text, std::nullopt} : pair_t{text.substr(0, at), text.substr(at + 1)};
}

// Beside each setter stands what tells the values that are in force; none are where nothing is wrong.

values_t nothing_to_tell(const phone_t&) {
    return {};
}

template <auto member>
bool set_flag(phone_t* phone, std::string_view value) {
    const bool good = value.empty() || value == "on" || value == "off";
    if (good && phone != nullptr) {
        phone->modem().faults().*member = value != "off";
    }
    return good;
}

template <auto member>
values_t tell_flag(const phone_t& phone) {
    return phone.modem().faults().*member ? values_t{""} : values_t();
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

template <auto member>
values_t tell_number(const phone_t& phone) {
    const auto value = phone.modem().faults().*member;
    return value == faults_t().*member ? values_t() : values_t{std::to_string(value)};
}

template <auto member, const auto& words>
bool set_word(phone_t* phone, std::string_view value) {
    using target_t = std::remove_reference_t<decltype(faults_t().*member)>;
    const auto meaning = meaning_of(value, words);
    if (meaning && phone != nullptr) {
        phone->modem().faults().*member = static_cast<target_t>(*meaning);
    }
    return meaning.has_value();
}

template <auto member, const auto& words>
values_t tell_word(const phone_t& phone) {
    const auto value = phone.modem().faults().*member;
    return value == faults_t().*member ? values_t() : word_for(static_cast<unsigned>(value), words);
}

template <auto member>
values_t tell_text(const phone_t& phone) {
    const std::string& text = phone.modem().faults().*member;
    return text == faults_t().*member ? values_t() : values_t{text};
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

values_t tell_refusals(const phone_t& phone) {
    const faults_t& faults = phone.modem().faults();
    return faults.refusals == 0 ? values_t() : values_t{fmt::format("{}x{}", faults.refusal_code, faults.refusals)};
}

bool refuse_number(phone_t* phone, std::string_view value) {
    const pair_t parts = split(value, ':');
    const auto code = number(parts.second.value_or(""), highest_code);
    if (code && phone != nullptr) {
        phone->modem().faults().refused_numbers[std::string(parts.first)] = static_cast<unsigned>(*code);
    }
    return code && air::address_from_number(parts.first);
}

values_t tell_refused_numbers(const phone_t& phone) {
    values_t values;
    for (const auto& [refused, code] : phone.modem().faults().refused_numbers) {
        values.push_back(fmt::format("{}:{}", refused, code));
    }
    return values;
}

bool set_storage(phone_t* phone, std::string_view value) {
    constexpr uint64_t most = 1000;
    const auto places = number(value, most);
    if (places && phone != nullptr) {
        phone->modem().messages().memories().set_places(*places);
    }
    return places.has_value();
}

values_t tell_storage(const phone_t& phone) {
    const std::optional<size_t> places = phone.modem().messages().memories().unusual_places();
    return places ? values_t{std::to_string(*places)} : values_t();
}

bool set_registration(phone_t* phone, std::string_view value) {
    const auto state = meaning_of(value, registrations);
    if (state && phone != nullptr) {
        coverage_t coverage = phone->modem().offered_coverage();
        coverage.registration = static_cast<registration_t>(*state);
        phone->modem().set_coverage(coverage);
    }
    return state.has_value();
}

values_t tell_registration(const phone_t& phone) {
    const registration_t state = phone.modem().offered_coverage().registration;
    return state == registration_t::home ? values_t() : word_for(static_cast<unsigned>(state), registrations);
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

values_t tell_technology(const phone_t& phone) {
    const access_technology_t technology = phone.modem().offered_coverage().technology;
    return technology == phone.modem().own_technology() ? values_t()
                                                        : word_for(static_cast<unsigned>(technology), technologies);
}

/// Until then, on base::tick64.
std::string milliseconds_until(uint64_t then) {
    return std::to_string(then - std::min(then, base::tick64()));
}

bool hang_up(phone_t* phone, std::string_view value) {
    const auto time = number(value, longest);
    if ((value.empty() || time) && phone != nullptr) {
        phone->hang_up(time);
    }
    return value.empty() || time;
}

values_t tell_absence(const phone_t& phone) {
    const std::optional<uint64_t> until = phone.returns_at();
    return phone.plugged_in() ? values_t() : values_t{until ? milliseconds_until(*until) : ""};
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

values_t tell_restart(const phone_t& phone) {
    const auto& start = phone.starting();
    return !start ? values_t()
                  : values_t{milliseconds_until(start->at) + (start->line.empty() ? "" : ":") + start->line};
}

bool set_text_mode(phone_t* phone, std::string_view value) {
    const bool good = set_flag<&faults_t::text_at_start>(phone, value);
    if (good && phone != nullptr) {
        phone->modem().reset_settings();
    }
    return good;
}

bool set_echo(phone_t* phone, std::string_view value) {
    const bool good = set_word<&faults_t::echo, echoes>(phone, value);
    if (good && phone != nullptr) {
        phone->modem().dialogue().reset_settings();
    }
    return good;
}

bool set_numeric(phone_t* phone, std::string_view value) {
    const bool good = set_flag<&faults_t::numeric_at_start>(phone, value);
    if (good && phone != nullptr) {
        phone->modem().dialogue().reset_settings();
    }
    return good;
}

struct prompt_t {
    std::string_view name;
    std::string_view text;
};
constexpr prompt_t prompts[] = {
    {"usual", "\r\n> "},           {"bare", ">"}, {"same-line", "> "}, {"no-space", "\r\n>"}, {"own-line", "\r\n>\r\n"},
    {"spaced-line", "\r\n> \r\n"},
};

bool set_prompt(phone_t* phone, std::string_view value) {
    const auto* const form = std::ranges::find(prompts, value, &prompt_t::name);
    if (form != std::end(prompts) && phone != nullptr) {
        phone->modem().faults().prompt = form->text;
    }
    return form != std::end(prompts);
}

values_t tell_prompt(const phone_t& phone) {
    const std::string_view text = phone.modem().faults().prompt;
    return text == faults_t().prompt ? values_t()
                                     : values_t{std::string(std::ranges::find(prompts, text, &prompt_t::text)->name)};
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
    const auto form = meaning_of(value, error_forms);
    const bool good = form || value == "as-asked";
    if (good && phone != nullptr) {
        phone->modem().faults().errors = form ? std::optional(static_cast<error_form_t>(*form)) : std::nullopt;
    }
    return good;
}

values_t tell_errors(const phone_t& phone) {
    const std::optional<error_form_t> form = phone.modem().faults().errors;
    return form ? word_for(static_cast<unsigned>(*form), error_forms) : values_t();
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

values_t tell_offers(const phone_t& phone) {
    const capabilities_t* offers = phone.modem().faults().offers;
    return offers->name == full_capabilities.name ? values_t() : values_t{std::string(offers->name)};
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

values_t tell_sim_busy(const phone_t& phone) {
    const sim_t::busy_t& busy = phone.modem().sim().busy_at_start();
    return busy.milliseconds == 0 ? values_t() : values_t{fmt::format("{}:{}", busy.milliseconds, busy.code)};
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

values_t tell_pin(const phone_t& phone) {
    const std::string& pin = phone.modem().sim().pin();
    return pin.empty() ? values_t() : values_t{pin};
}

bool clear(phone_t* phone, std::string_view value) {
    if (phone == nullptr) {
        return value.empty();
    }
    modem_t& modem = phone->modem();
    phone->end_restart();
    modem.faults() = {};
    modem.messages().memories().set_default_places();
    modem.sim() = {};
    modem.set_coverage({.technology = modem.own_technology()});
    return come_back(phone, value);
}

template <auto set, auto in_force>
constexpr fault_t::access_t by = {set, in_force};
template <auto member>
constexpr fault_t::access_t flag = {set_flag<member>, tell_flag<member>};
template <auto member>
constexpr fault_t::access_t number_of = {set_number<member>, tell_number<member>};
template <auto member, const auto& words>
constexpr fault_t::access_t word_of = {set_word<member, words>, tell_word<member, words>};

constexpr fault_t table[] = {
    {"refuse", "CODE[xN]", "refuse the next N submissions (1) with +CMS ERROR: CODE", by<refuse, tell_refusals>},
    {"refuse-to", "NUMBER:CODE", "refuse every submission to NUMBER with +CMS ERROR: CODE",
     by<refuse_number, tell_refused_numbers>},
    {"lose-results", "N", "take the next N submissions, and never answer them", number_of<&faults_t::lost_results>},
    {"late-results", "MS", "answer submissions MS milliseconds late", number_of<&faults_t::late_results>},
    {"late-prompt", "MS", "prompt for the PDU MS milliseconds late", number_of<&faults_t::late_prompt>},
    {"delay", "MS", "deliver MS milliseconds after the submission", number_of<&faults_t::delay>},
    {"delivery-gap", "MS", "wait MS milliseconds (2) from one delivery to the next",
     number_of<&faults_t::delivery_gap>},
    {"duplicate", "[on|off]", "deliver everything twice", flag<&faults_t::duplicates>},
    {"reorder", "N", "hold deliveries back until N wait, then pass them in reverse", number_of<&faults_t::reordered>},
    {"both-ways", "[on|off]", "store what comes, and hand it over by +CMT too", flag<&faults_t::both_ways>},
    {"unannounced", "[on|off]", "store what comes without +CMTI", flag<&faults_t::unannounced>},
    {"wrong-index", "[on|off]", "tell the index -1 in +CMTI", flag<&faults_t::wrong_index>},
    {"fail-deletes", "N", "refuse the next N deletes of a message", number_of<&faults_t::failing_deletes>},
    {"pdu", "FORM", "deliveries with spare-bits, even-address, no-clock, padded, length-over or length-under; or usual",
     word_of<&faults_t::pdu_form, pdu_forms>},
    {"memory-full", "[LINE]", "say LINE when a message finds no place",
     by<set_full_line, tell_text<&faults_t::full_line>>},
    {"full", "[on|off]", "have no place left for messages", flag<&faults_t::full>},
    {"storage", "N", "N places in each message memory; what lies beyond is lost", by<set_storage, tell_storage>},
    {"registration", "STATE", "home, roaming, searching, denied, unknown or none",
     by<set_registration, tell_registration>},
    {"technology", "NAME", "gsm, edge, umts, hspa, lte, nr or cdma", by<set_technology, tell_technology>},
    {"ussd", "TEXT", "what the network answers to every service code (AT+CUSD)",
     by<set_service_answer, tell_text<&faults_t::service_answer>>},
    {"hang-up", "[MS]", "go away, and come back after MS milliseconds on another tty", by<hang_up, tell_absence>},
    {"return", "", "come back after a hang-up", by<come_back, nothing_to_tell>},
    {"restart", "MS[:LINE]", "start anew on the same tty: hear nothing for MS milliseconds, then say LINE",
     by<restart, tell_restart>},
    {"silent", "[on|off|opened]", "take everything and say nothing; opened: until the tty is closed",
     word_of<&faults_t::silent, silences>},
    {"late-answers", "MS", "take up each command and PDU MS milliseconds late, one after the other",
     number_of<&faults_t::late_answers>},
    {"single-octets", "[on|off]", "write each octet by itself", flag<&faults_t::single_octets>},
    {"echo", "HOW", "as-asked (on at the start), always, or off at the start",
     by<set_echo, tell_word<&faults_t::echo, echoes>>},
    {"numeric-results", "[on|off]", "begin with ATV0", by<set_numeric, tell_flag<&faults_t::numeric_at_start>>},
    {"text-mode", "[on|off]", "begin with AT+CMGF=1", by<set_text_mode, tell_flag<&faults_t::text_at_start>>},
    {"prompt", "FORM", "usual, bare, same-line, no-space, own-line or spaced-line", by<set_prompt, tell_prompt>},
    {"chatter", "[LINE]", "say LINE between any two lines of a response",
     by<set_chatter, tell_text<&faults_t::chatter>>},
    {"errors", "FORM", "plain, numeric or verbose, whatever +CMEE asks for, or as-asked", by<set_errors, tell_errors>},
    {"offers", "TABLE", "what +CSMS, +CPMS, +CNMI, +CMMS offer: full, stored, direct, one, short or none",
     by<set_offers, tell_offers>},
    {"sim-busy", "MS[:CODE]", "SIM busy (+CMS ERROR: CODE, 314) so long from now and from power-on",
     by<set_sim_busy, tell_sim_busy>},
    {"pin", "DIGITS", "ask for this PIN, now and after each power-on; off: for none", by<set_pin, tell_pin>},
    {"clear", "", "all of this undone; settings of the dialogue stay until it begins anew", by<clear, nothing_to_tell>},
};

}  // namespace

std::optional<access_technology_t> technology_named(std::string_view word) {
    const auto technology = meaning_of(word, technologies);
    return technology ? std::optional(static_cast<access_technology_t>(*technology)) : std::nullopt;
}

std::string_view name_of(access_technology_t technology) {
    const auto* const known = std::ranges::find(technologies, static_cast<unsigned>(technology), &word_t::value);
    return known == std::end(technologies) ? "" : known->word;
}

std::string_view name_of(registration_t registration) {
    return std::ranges::find(registrations, static_cast<unsigned>(registration), &word_t::value)->word;
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
                          fault.access.set(phone, parts.second.value_or(""));
        const std::string form = fault.value.empty()            ? ""
                                 : fault.value.starts_with('[') ? fmt::format("[={}", fault.value.substr(1))
                                                                : fmt::format("={}", fault.value);
        return good ? "" : fmt::format("\"{}\" is no {}{}: {}", order, fault.name, form, fault.meaning);
    }
    return fmt::format("there is no fault \"{}\"; 'zpd fault --list' has all", parts.first);
}

std::vector<std::string> faults_in_force(const phone_t& phone) {
    std::vector<std::string> orders;
    for (const fault_t& fault : table) {
        const bool may_be_bare = fault.value.starts_with('[');
        for (const std::string& value : fault.access.in_force(phone)) {
            orders.push_back(may_be_bare && value.empty() ? std::string(fault.name)
                                                          : fmt::format("{}={}", fault.name, value));
        }
    }
    return orders;
}

}  // namespace network
