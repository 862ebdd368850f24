#include "radio/diagnosis.h"

#include <fmt/format.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "radio/diagnosis_words.h"
#include "radio/modem_link.h"

namespace radio {

namespace {

constexpr int nearly_full = 80;    // per cent
constexpr int weak_signal = -105;  // dBm

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

// Of the lines without a name before them: what modems say by themselves begins with a sign, save of calls.
bool is_identity(const std::string& line) {
    return std::isalnum(static_cast<unsigned char>(line[0])) != 0 && line != "RING" && line != "NO CARRIER";
}

// What to do about a tty that cannot be taken. Where another program has it, the error itself says it.
std::string tty_advice(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) {
        return "plug the modem in, switch it on, and name its tty; /dev/serial/by-id has those that there are";
    }
    if (access(path.c_str(), R_OK | W_OK) != 0) {
        const group* owner = getgrgid(status.st_gid);  // NOLINT(concurrency-mt-unsafe): no other thread asks
        return fmt::format("become a member of its group, {}, and log in again",
                           owner != nullptr ? owner->gr_name : std::to_string(status.st_gid));
    }
    return {};
}

class examination_t {
  public:
    examination_t(const std::string& path, const std::function<bool()>& cancelled)
        : path_(path),
          cancelled_(cancelled),
          link_(tty_, [this](const modem_line_t& line) { between_.push_back(line.text); }) {}

    diagnosis_t run() {
        if (reach()) {
            const std::optional<int> error_form = number_in(ask("AT+CMEE?", "+CMEE:").first(), 0);
            if (error_form == 0) {
                ask("AT+CMEE=1");
            }
            examine();
            if (error_form == 0) {
                put_back("AT+CMEE=0");
            }
            if (link_.echoes()) {
                put_back("ATE1");
            }
        }
        return std::move(found_);
    }

  private:
    void hinder(std::string text, std::string advice) {
        found_.findings.push_back({true, std::move(text), std::move(advice)});
    }
    void warn_of(std::string text, std::string advice) {
        found_.findings.push_back({false, std::move(text), std::move(advice)});
    }

    bool reach() {
        if (std::string error = tty_.open(path_); !error.empty()) {
            hinder(std::move(error), tty_advice(path_));
            return false;
        }
        link_.begin();
        if (!link_.wake_modem()) {
            hinder(
                fmt::format("no modem answers on {}: AT got no OK within {} seconds", path_, value_of(limit_t::probe)),
                "a modem often has several ttys: try the others; or switch it off and on");
            return false;
        }
        return true;
    }

    void examine() {
        found_.maker = identity("AT+CGMI");
        found_.model = identity("AT+CGMM");
        found_.revision = identity("AT+CGMR");
        found_.serial_number = identity("AT+CGSN");
        examine_radio();
        examine_sim();
        examine_technology();
        examine_registration();
        examine_signal();
        examine_memories();
        examine_service();
        examine_delivery();
    }

    // A refusal is a modem's right; one that falls silent, or a user who has seen enough, ends the examination.
    reply_t ask(const std::string& line, std::string_view prefix = "+") {
        if (!over_ && cancelled_()) {
            end("the examination was interrupted", {});
        }
        if (over_) {
            return {};
        }
        between_.clear();
        reply_t reply = link_.exchange({.line = line, .limit = limit_t::setting, .prefixes = {prefix}});
        if (reply.outcome == reply_t::outcome_t::lost) {
            end(fmt::format("the modem on {} hung up during {}", path_, line), "check its cable and its power supply");
        } else if (reply.outcome == reply_t::outcome_t::timeout) {
            end(fmt::format("the modem on {} does not answer {}", path_, line), "switch it off and on");
        }
        return reply;
    }

    void end(std::string text, std::string advice) {
        over_ = true;
        hinder(std::move(text), std::move(advice));
    }

    void put_back(const std::string& line) {
        if (!link_.exchange({.line = line, .limit = limit_t::setting, .prefixes = {"+"}}).ok()) {
            warn_of(fmt::format("a setting could not be put back ({})", line), "switch the modem off and on");
        }
    }

    // 3GPP TS 27.007 5.1 to 5.4: a bare line; some modems put the command's name before it, or quotation marks around.
    std::string identity(const std::string& command) {
        const reply_t reply = ask(command, std::string_view(command).substr(2));
        const auto bare = std::ranges::find_if(between_, is_identity);
        if (!reply.ok() || (reply.lines.empty() && bare == between_.end())) {
            return {};
        }
        std::string text = reply.lines.empty() ? *bare : text_in(reply.first(), 0);
        std::erase(text, '"');
        return text;
    }

    // 3GPP TS 27.007 8.2
    void examine_radio() {
        const std::optional<int> functions = number_in(ask("AT+CFUN?", "+CFUN:").first(), 0);
        if (functions && *functions != 1) {
            hinder(fmt::format("the modem's radio is switched off (AT+CFUN? says {})", *functions),
                   "switch it on: AT+CFUN=1");
        }
    }

    void examine_sim() {
        const reply_t reply = ask("AT+CPIN?", "+CPIN:");
        const std::optional<state_words_t> state = sim_words(reply);
        found_.sim = state ? state->words : reply.first();
        if (!state || !state->hinders()) {
            return;
        }
        const std::string text = fmt::format("the SIM cannot be used: {}", state->words);
        // As the set-up decides (modem_sim.cpp).
        constexpr int fewest_tries = 2;
        const std::optional<int> left = text_in(reply.first(), 0) == "SIM PIN" ? pin_tries() : std::nullopt;
        if (left && *left < fewest_tries) {
            hinder(fmt::format("{}, {} {} left", text, *left, *left == 1 ? "try" : "tries"),
                   "unlock it in a phone: 'zpd serve' enters no PIN any more");
        } else {
            hinder(text, state->advice);
        }
    }

    // 3GPP TS 27.007 8.65
    std::optional<int> pin_tries() {
        const reply_t reply = ask("AT+CPINR", "+CPINR:");
        for (const modem_line_t& line : reply.lines) {
            if (const std::optional<int> left = tries_left(line.text, "SIM PIN")) {
                return left;
            }
        }
        return std::nullopt;
    }

    // As the set-up finds it out (modem_registration.cpp).
    void examine_technology() {
        const auto [gsm, cdma] = capabilities(ask("AT+GCAP", "+GCAP:").first());
        if (cdma || !gsm) {
            cdma_service_ = cdma_service(ask("AT+CAD?", "+CAD:").first());
        }
        on_cdma_ = cdma_service_ == 1 || (cdma && !gsm);
    }

    // Every domain carries messages; the one that is registered counts, else the one that tries.
    void examine_registration() {
        std::optional<registration_t> best;
        for (const char* name : {"+CREG", "+CEREG", "+C5GREG"}) {
            const auto one = registration(ask(fmt::format("AT{}?", name), fmt::format("{}:", name)).first());
            if (one && (!best || (!best->registered() && (one->registered() || best->status == 0)))) {
                best = one;
            }
        }
        if (!best && cdma_service_) {
            best = registration_t{*cdma_service_ == 1 ? 1 : 2, std::nullopt};  // it does not tell where
        }
        if (best) {
            describe(*best);
        } else if (found_.usable()) {
            hinder("the modem does not tell whether it is registered", "another modem is needed");
        }
    }

    void describe(const registration_t& registration) {
        const state_words_t state = registration_words(registration.status);
        found_.registration = state.words;
        if (!registration.registered()) {
            if (found_.usable()) {
                hinder(fmt::format("the modem is not registered with a network: {}", state.words), state.advice);
            }
            return;
        }
        const std::string line = ask("AT+COPS?", "+COPS:").first();
        found_.operator_name = text_in(line, 2);
        if (on_cdma_) {
            found_.technology = "CDMA";
        } else if (const auto access = registration.access ? registration.access : operator_access(line)) {
            found_.technology = technology_words(*access);
        }
        if (found_.registration.starts_with("roaming")) {
            warn_of("the modem is roaming: a datagram may cost more than at home",
                    "when the service runs again, 'zpd count CARD.vcf' tells how many datagrams a card takes");
        }
    }

    // 3GPP TS 27.007 8.5: steps of 2 dBm; 99 is unknown, and other numbers are of other technologies.
    void examine_signal() {
        constexpr int highest = 31;
        const std::optional<int> steps = number_in(ask("AT+CSQ", "+CSQ:").first(), 0);
        if (!steps || *steps < 0 || *steps > highest) {
            return;
        }
        found_.signal = 2 * *steps - 113;
        if (*found_.signal <= weak_signal) {
            warn_of(fmt::format("the signal is weak: {} dBm", *found_.signal), "try another place or another antenna");
        }
    }

    void examine_memories() {
        const std::vector<std::string> readable = readable_memories(offered("AT+CPMS=?", "+CPMS:"));
        const std::string line = ask("AT+CPMS?", "+CPMS:").first();
        const std::vector<memory_use_t> in_use = memories_in_use(line);
        found_.receiving_memory = receiving_memory(line);
        const std::optional<std::string> selected = in_use.empty() ? std::nullopt : quoted_text(in_use[0].name);
        bool switched = false;
        for (const std::string& name : memories_to_read(readable, found_.receiving_memory)) {
            const auto told = std::ranges::find(in_use, name, &memory_use_t::name);
            if (told != in_use.end()) {
                found_.memories.push_back(*told);
            } else if (selected) {
                switched = true;
                look_into(name);
            }
        }
        if (switched) {
            put_back("AT+CPMS=" + *selected);
        }
        std::ranges::for_each(found_.memories, [this](const memory_use_t& memory) { judge(memory); });
    }

    void look_into(const std::string& name) {
        const reply_t reply = ask(fmt::format("AT+CPMS=\"{}\"", name), "+CPMS:");
        if (const std::optional<memory_level_t> level = memory_level(reply.first())) {
            found_.memories.push_back({name, *level});
        }
    }

    void judge(const memory_use_t& memory) {
        const auto& [used, total] = memory.level;
        const std::string text = fmt::format("the message memory {} holds {} of {} messages", memory.name, used, total);
        const char* advice =
            "delete some in a phone or with AT+CMGD; an activated service takes the cards out by itself";
        if (used >= total && memory.name == found_.receiving_memory) {
            hinder(text + ": nothing more can be received", advice);
        } else if (total > 0 && used * 100 >= total * nearly_full) {
            warn_of(text, advice);
        }
    }

    // 3GPP TS 27.005 3.2.1, 3.2.3 and 3.3.1. What a SIM holds is told only by one that is ready.
    void examine_service() {
        if (!may_take(ask("AT+CMGF=?", "+CMGF:").first(), 0)) {
            hinder("the modem has no PDU mode (AT+CMGF=?)", "another modem is needed");
        }
        const std::string service = ask("AT+CSMS?", "+CSMS:").first();
        if (number_in(service, 1) == 0 || number_in(service, 2) == 0) {
            hinder(fmt::format("the modem does not {} messages (AT+CSMS?)",
                               number_in(service, 1) == 0 ? "receive" : "send"),
                   "ask its maker for another firmware, or the operator for a SIM with SMS");
        }
        if (on_cdma_) {
            return;  // such a network has no number of it
        }
        const reply_t centre = ask("AT+CSCA?", "+CSCA:");
        found_.service_centre = text_in(centre.first(), 0);
        if (centre.ok() && found_.service_centre.empty() && found_.usable()) {
            hinder("the number of the service centre is not set, so nothing can be sent",
                   "ask the operator for it and set it: AT+CSCA=\"+...\"");
        }
    }

    // As the set-up would choose (modem_setup.cpp).
    void examine_delivery() {
        const std::string announcements = offered("AT+CNMI=?", "+CNMI:");
        const std::string services = offered("AT+CSMS=?", "+CSMS:");
        const bool acknowledged = !services.empty() && may_take(services, 1);
        const announcement_t choice = choose_announcement(offered_numbers(announcements), acknowledged);
        offered("AT+CMMS=?", "+CMMS:");
        if (choice.way == announcement_t::way_t::stored) {
            found_.delivery = fmt::format("stored and announced (AT+CNMI={})", choice.parameters);
        } else if (choice.way == announcement_t::way_t::direct) {
            found_.delivery = fmt::format("delivered directly, each acknowledged (AT+CNMI={})", choice.parameters);
        } else if (announcements.empty()) {
            found_.delivery = "not told: AT+CNMI=2,1 and AT+CNMI=1,1 will be tried";
        } else {
            const uint64_t seconds = value_of(limit_t::listing_again);
            found_.delivery = fmt::format("looked for every {} seconds", seconds);
            warn_of("the modem announces no new messages",
                    fmt::format("a card can take {} seconds to be seen", seconds));
        }
    }

    std::string offered(const std::string& question, std::string_view prefix) {
        std::string line = ask(question, prefix).first();
        if (!line.empty()) {
            found_.offers.push_back(line);
        }
        return line;
    }

    const std::string& path_;
    const std::function<bool()>& cancelled_;
    std::vector<std::string> between_;  // lines since the last question that belong to no reply
    tty_t tty_;
    modem_link_t link_;
    diagnosis_t found_;
    std::optional<int> cdma_service_;
    bool on_cdma_ = false;
    bool over_ = false;
};

}  // namespace

bool diagnosis_t::usable() const {
    return std::ranges::none_of(findings, &finding_t::hinders);
}

diagnosis_t diagnose(const std::string& tty, const std::function<bool()>& cancelled) {
    return examination_t(tty, cancelled).run();
}

}  // namespace radio
