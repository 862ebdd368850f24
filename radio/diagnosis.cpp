#include "radio/diagnosis.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "radio/announcements.h"
#include "radio/diagnosis_words.h"
#include "radio/inquiry.h"
#include "radio/mailbox.h"
#include "radio/modem_identity.h"
#include "radio/modem_link.h"
#include "radio/registration_watch.h"
#include "radio/sim.h"
#include "radio/tty_access.h"

namespace radio {

namespace {

// The number at a place of a line; none where there is none.
std::optional<int> number_in(const std::string& line, size_t place) {
    const std::vector<std::vector<int>> numbers = offered_numbers(line);
    return place < numbers.size() && !numbers[place].empty() ? std::optional(numbers[place][0]) : std::nullopt;
}

// Whether the first parameter of a "=?" reply takes the value; also true where the modem does not tell.
bool may_take(const std::string& line, int value) {
    const std::vector<std::vector<int>> offered = offered_numbers(line);
    return offered.empty() || offered[0].empty() || std::ranges::find(offered[0], value) != offered[0].end();
}

std::string text_in(const std::string& line, size_t place) {
    const std::vector<value_t> values = values_of(line);
    return place < values.size() ? values[place].text : std::string();
}

// What to do about a tty that cannot be taken. Where another program has it, the error itself says it.
std::string tty_advice(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) {
        return "plug the modem in, switch it on, and name its tty; /dev/serial/by-id has those that there are";
    }
    return access(path.c_str(), R_OK | W_OK) != 0 ? access_advice(status.st_mode, status.st_uid, status.st_gid)
                                                  : std::string();
}

class examination_t : public inquiry_t {
  public:
    examination_t(const modem_options_t& options, const std::function<bool()>& cancelled)
        : options_(options),
          path_(options.tty),
          cancelled_(cancelled),
          link_(tty_, trace_, [this](const modem_line_t& line) { between_.push_back(line.text); }) {}

    diagnosis_t run() {
        if (reach()) {
            const std::optional<reply_t> error_form = ask("AT+CMEE?", "+CMEE:");
            const bool told_plainly = error_form && number_in(error_form->first(), 0) == 0;
            if (error_form && (!told_plainly || ask("AT+CMEE=1"))) {
                examine();
            }
            if (told_plainly) {
                put_back("AT+CMEE=0");
            }
            if (link_.echoes()) {
                put_back("ATE1");
            }
        }
        return std::move(found_);
    }

    // A refusal is a modem's right; one that falls silent, or a user who has seen enough, ends the examination.
    std::optional<reply_t> ask(const std::string& line, std::string_view prefix = {}) override {
        if (cancelled_()) {
            hinder("the examination was interrupted", {});
            return std::nullopt;
        }
        between_.clear();
        reply_t reply = link_.exchange({.line = line,
                                        .limit = limit_t::setting,
                                        .shape = shape_of_answer(line),
                                        .prefixes = {std::string(prefix.empty() ? "+" : prefix)}});
        if (reply.outcome == reply_t::outcome_t::lost) {
            hinder(fmt::format("the modem on {} hung up during {}", path_, line),
                   "check its cable and its power supply");
            return std::nullopt;
        }
        if (reply.outcome == reply_t::outcome_t::timeout) {
            hinder(fmt::format("the modem on {} does not answer {}", path_, line), "switch it off and on");
            return std::nullopt;
        }
        return reply;
    }

  private:
    void hinder(std::string text, std::string advice) {
        found_.findings.push_back({true, std::move(text), std::move(advice)});
    }
    void warn_of(std::string text, std::string advice) {
        found_.findings.push_back({false, std::move(text), std::move(advice)});
    }

    bool reach() {
        if (std::string error = options_.trace.empty() ? "" : trace_.open(options_.trace); !error.empty()) {
            hinder(std::move(error), {});
            return false;
        }
        if (std::string error = tty_.open(path_, options_.line); !error.empty()) {
            hinder(std::move(error), tty_advice(path_));
            return false;
        }
        link_.begin();
        if (!link_.wake_modem()) {
            hinder(no_answer_on(path_), "a modem often has several ttys: try the others; or switch it off and on");
            return false;
        }
        return true;
    }

    // Each step tells whether there is a next one.
    bool examine() {
        return examine_identity() && examine_radio() && examine_sim() && examine_technology() &&
               examine_registration() && examine_signal() && examine_memories() && examine_service() &&
               examine_delivery();
    }

    void put_back(const std::string& line) {
        if (!link_.exchange({.line = line, .limit = limit_t::setting, .prefixes = {"+"}}).ok()) {
            warn_of(fmt::format("a setting could not be put back ({})", line), "switch the modem off and on");
        }
    }

    bool examine_identity() {
        return read_identity("AT+CGMI", found_.maker) && read_identity("AT+CGMM", found_.model) &&
               read_identity("AT+CGMR", found_.revision) && read_identity("AT+CGSN", found_.serial_number);
    }

    // 3GPP TS 27.007 5.1 to 5.4: a bare line; some modems put the command's name before it, or quotation marks around.
    bool read_identity(const std::string& command, std::string& text) {
        const std::optional<reply_t> reply = ask(command, std::string_view(command).substr(2));
        const auto bare = std::ranges::find_if(between_, is_bare_answer);
        if (reply && reply->ok() && (!reply->lines.empty() || bare != between_.end())) {
            text = reply->lines.empty() ? *bare : text_in(reply->first(), 0);
            std::erase(text, '"');
        }
        return reply.has_value();
    }

    // 3GPP TS 27.007 8.2
    bool examine_radio() {
        const std::optional<reply_t> reply = ask("AT+CFUN?", "+CFUN:");
        const std::optional<int> functions = reply ? number_in(reply->first(), 0) : std::nullopt;
        if (functions && *functions != 1) {
            hinder(fmt::format("the modem's radio is switched off (AT+CFUN? says {})", *functions),
                   "switch it on: AT+CFUN=1");
        }
        return reply.has_value();
    }

    bool examine_sim() {
        const std::optional<reply_t> reply = ask("AT+CPIN?", "+CPIN:");
        if (!reply) {
            return false;
        }
        const std::optional<state_words_t> state = sim_words(*reply);
        found_.sim = state ? state->words : reply->first();
        if (!state || !state->hinders()) {
            return true;
        }
        const std::string text = fmt::format("the SIM cannot be used: {}", state->words);
        if (text_in(reply->first(), 0) == "SIM PIN") {
            return examine_pin(text);
        }
        hinder(text, state->advice);
        return true;
    }

    // What the radio would do with a PIN.
    bool examine_pin(const std::string& text) {
        const std::optional<pin_tries_t> tries = ask_pin_tries(*this);
        found_.pin_tries = tries ? tries->left : std::nullopt;
        if (!found_.pin_tries) {
            hinder(text,
                   "the modem does not tell how many tries are left: start 'zpd serve' with --pin-file and "
                   "--pin-unchecked, which enters it once, or switch the question for the PIN off in a phone");
        } else if (tries->too_few()) {
            hinder(fmt::format("{}, {} left", text, tries->words()),
                   "unlock it in a phone: 'zpd serve' enters no PIN any more");
        } else {
            hinder(fmt::format("{}, {} left", text, tries->words()),
                   "start 'zpd serve' with --pin-file, which enters it once, or switch the question for the PIN off in "
                   "a phone");
        }
        return tries.has_value();
    }

    bool examine_technology() {
        const std::optional<networks_t> networks = ask_networks(*this);
        networks_ = networks.value_or(networks_t{});
        return networks.has_value();
    }

    // Every domain carries messages; the one that is registered counts, else the one that tries.
    bool examine_registration() {
        std::optional<registration_t> best;
        for (const char* name : {"+CREG", "+CEREG", "+C5GREG"}) {
            const std::optional<reply_t> reply = ask(fmt::format("AT{}?", name), fmt::format("{}:", name));
            if (!reply) {
                return false;
            }
            const std::optional<registration_t> one = registration(reply->first());
            if (one && (!best || (!best->registered() && (one->registered() || best->status == 0)))) {
                best = one;
            }
        }
        if (!best && networks_.cdma_service) {
            best = registration_t{networks_.on_cdma() ? 1 : 2, std::nullopt};  // it does not tell where
        }
        if (best) {
            return describe(*best);
        }
        if (found_.usable()) {
            hinder("the modem does not tell whether it is registered", "another modem is needed");
        }
        return true;
    }

    bool describe(const registration_t& registration) {
        found_.registration = registration_words(registration.status).words;
        if (!registration.registered()) {
            if (found_.usable()) {
                found_.findings.push_back(about_registration(registration.status));
            }
            return true;
        }
        const std::optional<reply_t> operator_reply = ask("AT+COPS?", "+COPS:");
        if (!operator_reply) {
            return false;
        }
        describe_operator(registration, operator_reply->first());
        return true;
    }

    void describe_operator(const registration_t& registration, const std::string& line) {
        found_.operator_name = text_in(line, 2);
        if (networks_.on_cdma()) {
            found_.technology = "CDMA";
        } else if (const auto access = registration.access ? registration.access : operator_access(line)) {
            found_.technology = technology_words(*access);
        }
        if (found_.registration.starts_with("roaming")) {
            warn_of("the modem is roaming: a datagram may cost more than at home",
                    "when the service runs again, 'zpd count CARD.vcf' tells how many datagrams a card takes");
        }
    }

    bool examine_signal() {
        const std::optional<reply_t> reply = ask("AT+CSQ", "+CSQ:");
        found_.signal = reply ? signal_strength(reply->first()) : std::nullopt;
        if (std::optional<finding_t> found = found_.signal ? about_signal(*found_.signal) : std::nullopt) {
            found_.findings.push_back(*std::move(found));
        }
        return reply.has_value();
    }

    bool examine_memories() {
        const std::optional<memories_t> memories = ask_memories(*this);
        if (!memories) {
            return false;
        }
        note_offer(memories->offered);
        found_.receiving_memory = memories->receiving;
        const bool looked = look_into(*memories);
        for (const memory_use_t& memory : found_.memories) {
            if (std::optional<finding_t> found = about_memory(memory, memory.name == found_.receiving_memory)) {
                found_.findings.push_back(*std::move(found));
            }
        }
        return looked;
    }

    // Those that are in use tell their level; each other has to be selected for that.
    bool look_into(const memories_t& memories) {
        const std::vector<memory_use_t>& in_use = memories.in_use;
        const std::optional<std::string> selected = in_use.empty() ? std::nullopt : quoted_text(in_use[0].name);
        bool switched = false;
        bool answered = true;
        for (const std::string& name : memories.to_read) {
            const auto told = std::ranges::find(in_use, name, &memory_use_t::name);
            if (told != in_use.end()) {
                found_.memories.push_back(*told);
            } else if (selected && answered) {
                switched = true;
                answered = look_into(name);
            }
        }
        if (switched) {
            put_back("AT+CPMS=" + *selected);
        }
        return answered;
    }

    bool look_into(const std::string& name) {
        const std::optional<reply_t> reply = ask(fmt::format("AT+CPMS=\"{}\"", name), "+CPMS:");
        const std::optional<memory_level_t> level = reply ? memory_level(reply->first()) : std::nullopt;
        if (level) {
            found_.memories.push_back({name, *level});
        }
        return reply.has_value();
    }

    // 3GPP TS 27.005 3.2.1, 3.2.3 and 3.3.1.
    bool examine_service() {
        const std::optional<reply_t> formats = ask("AT+CMGF=?", "+CMGF:");
        if (formats && !may_take(formats->first(), 0)) {
            hinder("the modem has no PDU mode (AT+CMGF=?)", "another modem is needed");
        }
        const std::optional<reply_t> service = formats ? ask("AT+CSMS?", "+CSMS:") : std::nullopt;
        if (!service) {
            return false;
        }
        const std::string line = service->first();
        if (number_in(line, 1) == 0 || number_in(line, 2) == 0) {
            hinder(
                fmt::format("the modem does not {} messages (AT+CSMS?)", number_in(line, 1) == 0 ? "receive" : "send"),
                "ask its maker for another firmware, or the operator for a SIM with SMS");
        }
        return networks_.on_cdma() || examine_service_centre();  // a CDMA network has no number of it
    }

    // What a SIM holds is told only by one that is ready.
    bool examine_service_centre() {
        const std::optional<reply_t> centre = ask("AT+CSCA?", "+CSCA:");
        if (!centre) {
            return false;
        }
        found_.service_centre = text_in(centre->first(), 0);
        if (centre->ok() && found_.service_centre.empty() && found_.usable()) {
            hinder("the number of the service centre is not set, so nothing can be sent",
                   "ask the operator for it and set it: AT+CSCA=\"+...\"");
        }
        return true;
    }

    bool examine_delivery() {
        const std::optional<announcement_offers_t> offers = ask_announcement_offers(*this);
        const std::optional<reply_t> link_keeping = offers ? ask("AT+CMMS=?", "+CMMS:") : std::nullopt;
        if (!link_keeping) {
            return false;
        }
        for (const std::string& offer : {offers->announcements, offers->services, link_keeping->first()}) {
            note_offer(offer);
        }
        describe_delivery(*offers);
        return true;
    }

    void describe_delivery(const announcement_offers_t& offers) {
        const announcement_t best = offers.best(offers.may_acknowledge());
        if (best.way == announcement_t::way_t::stored) {
            found_.delivery = fmt::format("stored and announced (AT+CNMI={})", best.parameters);
        } else if (best.way == announcement_t::way_t::direct) {
            found_.delivery = fmt::format("delivered directly, each acknowledged (AT+CNMI={})", best.parameters);
        } else if (offers.announcements.empty()) {
            found_.delivery = "not told: AT+CNMI=2,1 and AT+CNMI=1,1 will be tried";
        } else {
            const uint64_t seconds = value_of(limit_t::listing_again);
            found_.delivery = fmt::format("looked for every {} seconds", seconds);
            warn_of("the modem announces no new messages",
                    fmt::format("a card can take {} seconds to be seen", seconds));
        }
    }

    void note_offer(const std::string& line) {
        if (!line.empty()) {
            found_.offers.push_back(line);
        }
    }

    const modem_options_t& options_;
    const std::string& path_;
    const std::function<bool()>& cancelled_;
    std::vector<std::string> between_;  // lines since the last question that belong to no reply
    tty_t tty_;
    trace_t trace_;
    modem_link_t link_;
    diagnosis_t found_;
    networks_t networks_;
};

}  // namespace

bool diagnosis_t::usable() const {
    return std::ranges::none_of(findings, &finding_t::hinders);
}

diagnosis_t diagnose(const modem_options_t& options, const std::function<bool()>& cancelled) {
    return examination_t(options, cancelled).run();
}

}  // namespace radio
