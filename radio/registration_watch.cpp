#include "radio/registration_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "radio/diagnosis_words.h"
#include "radio/warning.h"

namespace radio {

namespace {

// <AcT>, 3GPP TS 27.007 7.3
constexpr int access_gsm = 0;
constexpr int access_lte = 7;
constexpr int access_nr = 11;

constexpr int on_cdma = 1;  // +CAD

}  // namespace

// Only a modem that does not tell GSM alone is asked what a GSM modem would not know.
std::optional<networks_t> ask_networks(inquiry_t& inquiry) {
    const std::optional<reply_t> told = inquiry.ask("AT+GCAP", "+GCAP:");
    if (!told) {
        return std::nullopt;
    }
    networks_t networks{capabilities(told->first()), std::nullopt};
    if (networks.capabilities.cdma || !networks.capabilities.gsm) {
        const std::optional<reply_t> service = inquiry.ask("AT+CAD?", "+CAD:");
        if (!service) {
            return std::nullopt;
        }
        networks.cdma_service = cdma_service(service->first());
    }
    return networks;
}

registration_watch_t::registration_watch_t(modem_link_t& link, job_queue_t& jobs, modem_board_t& board,
                                           std::function<void(DWORD)> changed)
    : link_(link),
      jobs_(jobs),
      board_(board),
      changed_(std::move(changed)),
      domains_{{{"+CREG", access_gsm}, {"+CEREG", access_lte}, {"+C5GREG", access_nr}}} {}

bool registration_watch_t::domain_t::owns(std::string_view line) const {
    return line.starts_with(name) && line.substr(name.size()).starts_with(':');
}

void registration_watch_t::forget() {
    for (domain_t& domain : domains_) {
        domain.now = {};
    }
}

bool registration_watch_t::set_up_technology(setup_inquiry_t& inquiry) {
    const std::optional<networks_t> networks = ask_networks(inquiry);
    if (networks) {
        only_cdma_ = networks->only_cdma();
        technology_ = only_cdma_ ? technology_t::cdma : technology_t::gsm;
        tells_service_ = networks->cdma_service.has_value();
    }
    return networks.has_value();
}

bool registration_watch_t::set_up(setup_inquiry_t& inquiry) {
    for (domain_t& domain : domains_) {
        if (!ask_to_be_told(inquiry, domain)) {
            return false;
        }
    }
    query();
    return link_.is_open() || inquiry.fail_modem("hung up while it was asked for its registration");
}

// 2 adds the access technology, 1 only tells changes; a CDMA modem may still answer when it is asked.
bool registration_watch_t::ask_to_be_told(setup_inquiry_t& inquiry, domain_t& domain) const {
    domain.tells = false;
    for (const int detail : {2, 1}) {
        const std::optional<reply_t> reply = inquiry.ask(fmt::format("AT{}={}", domain.name, detail));
        if (!reply || reply->ok()) {
            domain.tells = reply.has_value();
            return reply.has_value();
        }
    }
    if (&domain != &circuit_ || !only_cdma_) {
        return true;
    }
    const std::optional<reply_t> reply = inquiry.ask("AT+CREG?", "+CREG:");
    domain.tells = reply && reply->ok();
    return reply.has_value();
}

bool registration_watch_t::take(const std::string& line) {
    const auto domain = std::ranges::find_if(domains_, [&](const domain_t& one) { return one.owns(line); });
    if (domain == domains_.end()) {
        return false;
    }
    const std::optional<registration_t> told = registration(line);
    if (!told) {
        warn("odd registration line: " + line);
        return true;
    }
    domain->now = *told;
    if (tells_service_ || (&*domain == &circuit_ && told->registered() && !told->access)) {
        // The technology has to be asked for; a modem that tells of its registration at each question, once.
        if (!std::exchange(query_due_, true)) {
            jobs_.post([this] {
                query();
                query_due_ = false;
            });
        }
    } else {
        publish();
    }
    return true;
}

reply_t registration_watch_t::ask(const std::string& question, const std::string& prefix) {
    return link_.exchange(
        {.line = question, .limit = limit_t::query, .shape = reply_shape_t::line, .prefixes = {prefix}});
}

void registration_watch_t::query() {
    query_technology();
    for (domain_t& domain : domains_) {
        if (domain.tells) {
            query_domain(domain);
        }
    }
    if (!circuit_.tells && technology_ == technology_t::cdma) {
        query_serving_system();
    }
    if (circuit_.now.registered() && !circuit_.now.access && technology_ == technology_t::gsm) {
        query_operator();
    }
    publish();
}

// A modem for both kinds of network is on that which serves it.
void registration_watch_t::query_technology() {
    if (tells_service_ && !only_cdma_) {
        const reply_t reply = ask("AT+CAD?", "+CAD:");
        technology_ = cdma_service(reply.first()) == on_cdma ? technology_t::cdma : technology_t::gsm;
    }
}

// A line that came by itself among the reply lines is as true as the reply.
void registration_watch_t::query_domain(domain_t& domain) {
    const std::string prefix = fmt::format("{}:", domain.name);
    const reply_t reply = ask(fmt::format("AT{}?", domain.name), prefix);
    if (!reply.ok()) {
        domain.now = {};
    }
    for (const modem_line_t& line : reply.lines) {
        domain.now = registration(line.text).value_or(domain.now);
    }
}

// What a CDMA modem without +CREG tells: that it is served, and by which system.
void registration_watch_t::query_serving_system() {
    constexpr int registered = 1;
    const reply_t service = ask("AT+CAD?", "+CAD:");
    const reply_t system = ask("AT+CSS?", "+CSS:");
    const bool served = tells_service_ ? cdma_service(service.first()) == on_cdma : !system.lines.empty();
    const bool known = system.lines.empty() || has_serving_system(system.first());
    circuit_.now = {served && known ? registered : 0, std::nullopt};
}

// 3GPP TS 27.007 8.5
void registration_watch_t::query_signal() {
    const std::optional<int> signal = signal_strength(ask("AT+CSQ", "+CSQ:").first());
    board_.change([&](modem_state_t& now) { now.signal = signal; });
}

void registration_watch_t::query_operator() {
    const reply_t reply = ask("AT+COPS?", "+COPS:");
    circuit_.now.access = operator_access(reply.first()).value_or(access_gsm);
}

// A modem that takes no requests has no network to offer, whatever it says while it is being set up.
DWORD registration_watch_t::system_type_now() const {
    if (link_.lost()) {
        return RIL_SYSTEMTYPE_NONE;
    }
    if (technology_ == technology_t::cdma) {
        return circuit_.now.registered() ? RIL_SYSTEMTYPE_1XRTTPACKET : RIL_SYSTEMTYPE_NONE;
    }
    const auto serving = std::ranges::find_if(domains_, [](const domain_t& one) { return one.now.registered(); });
    return serving == domains_.end() ? RIL_SYSTEMTYPE_NONE
                                     : system_type_of_access(serving->now.access.value_or(serving->assumed_access));
}

const char* registration_watch_t::technology_of(const domain_t& domain) const {
    if (!domain.now.registered()) {
        return "";
    }
    const int access = domain.now.access.value_or(domain.assumed_access);
    return technology_ == technology_t::cdma ? "CDMA" : technology_words(access);
}

// Those that tell, and what a CDMA modem tells in their place.
std::vector<domain_state_t> registration_watch_t::domains_now() const {
    std::vector<domain_state_t> all;
    for (const domain_t& domain : domains_) {
        if (domain.tells || domain.now.registered()) {
            all.push_back({std::string(domain.name), domain.now.status, technology_of(domain)});
        }
    }
    return all;
}

void registration_watch_t::publish() {
    const DWORD type = system_type_now();
    board_.change([&](modem_state_t& now) {
        now.domains = domains_now();
        now.system_type = type;
    });
    if (std::exchange(system_type_, type) != type) {
        changed_(type);
    }
}

}  // namespace radio
