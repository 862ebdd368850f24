// What the radio makes of a modem's behaviour: scenes/*.txt, played step by step. The form is told in README.md.
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "base/clock.h"
#include "base/sqlite.h"
#include "radio/warning.h"
#include "tests/radio/session_fixture.h"
#include "tests/transcript.h"

namespace {

using lines_t = std::vector<std::string>;

struct exchange_t {
    std::string command;
    std::optional<std::string> reply;  // none: as the scripted modem has it
};

struct step_t {
    std::string verb, object;
    std::optional<std::string> said;  // by the modem, before it is told anything
    std::vector<exchange_t> exchanges;
    lines_t events;
};

struct script_t {
    std::vector<step_t> steps;
    lines_t warnings;
};

script_t read_script(const std::filesystem::path& path) {
    script_t script;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::string text = text_of(line);
        if (line.starts_with("> ")) {
            script.steps.back().exchanges.push_back({text, {}});
        } else if (line.starts_with("< ")) {
            step_t& step = script.steps.back();
            const bool whole = text == "(nothing)" || text.find_first_of("\r\n") != std::string::npos;
            const std::string said = text == "(nothing)" ? "" : whole ? text : "\r\n" + text + "\r\n";
            std::optional<std::string>& all = step.exchanges.empty() ? step.said : step.exchanges.back().reply;
            all = all.value_or("") + said;
        } else if (line.starts_with("= ")) {
            script.steps.back().events.push_back(text);
        } else if (line.starts_with("% ")) {
            script.warnings.push_back(text);
        } else if (!line.empty() && line[0] != '#') {
            const size_t blank = std::min(line.find(' '), line.size() - 1);
            script.steps.push_back({line.substr(0, line.find(' ')), line.substr(blank + 1), {}, {}, {}});
        }
    }
    return script;
}

class scene : public session, public testing::WithParamInterface<std::filesystem::path> {
  protected:
    scene() {
        base::advance_clock(600'000);  // what an earlier scene was told is news again
        radio::warn_of_the_rest();
        testing::internal::CaptureStderr();
    }
    void TearDown() override {
        lines_t warnings;
        std::istringstream captured(testing::internal::GetCapturedStderr());
        for (std::string line; std::getline(captured, line);) {
            warnings.push_back(line);
        }
        std::vector<testing::Matcher<std::string>> expected;
        for (const std::string& words : script.warnings) {
            expected.emplace_back(testing::HasSubstr(words));
        }
        EXPECT_THAT(warnings, testing::ElementsAreArray(expected));
    }
    void play(const step_t& step) {
        for (const auto& [command, reply] : step.exchanges) {
            if (reply) {
                modem.once(scripted_modem_t::key_of(command[0] == '^' ? ">" : command), filled(*reply));
            }
        }
        const size_t listings = modem.count("AT+CMGL=4");
        time_flies_ = false;
        verbs_.at(step.verb)(step);
        for (const exchange_t& exchange : step.exchanges) {
            ASSERT_NO_FATAL_FAILURE(expect_command(exchange.command, step.verb == "attach"));
        }
        if (step.verb == "attach" && step.exchanges.empty()) {
            ASSERT_TRUE(modem.heard("AT+CMGL=4", listings + 2)) << "both memories are listed";
            heard_ = modem.log().size();
        }
        ASSERT_NO_FATAL_FAILURE(expect_events(step.events));
        const bool unanswered = !step.exchanges.empty() && step.exchanges.back().reply == "";
        in_exchange_ = unanswered || (in_exchange_ && step.exchanges.empty() && step.events.empty());
        if (!in_exchange_ && !driver_waits_ && step.verb != "always") {
            expect_nothing_else();
        }
    }

    const script_t script = read_script(GetParam());

  private:
    using verb_t = std::function<void(const step_t&)>;
    const std::map<std::string, verb_t> verbs_ = {
        {"always", [this](const step_t& step) { modem.on(step.object, filled(step.said.value())); }},
        {"attach", [this](const step_t&) { attach(); }},
        {"detach", [](const step_t&) { radio::detach_modem(); }},
        {"open", [this](const step_t&) { open(); }},
        {"close", [this](const step_t&) { EXPECT_EQ(RIL_Deinitialize(handle), S_OK); }},
        {"send", [this](const step_t& step) { hand_in(step.object, outgoing); }},
        {"cdma", [this](const step_t& step) { hand_in(step.object, outgoing_cdma); }},
        {"ask", [this](const step_t&) { ask(); }},
        {"says", [this](const step_t& step) { modem.say(filled(step.said.value())); }},
        {"hang", [this](const step_t&) { modem.hang_up(); }},
        {"return", [this](const step_t&) { modem.plug_in(), link(options.tty, modem); }},
        {"pass", [](const step_t& step) { base::advance_clock(std::stoul(step.object) * 1000); }},
        {"journal", [this](const step_t& step) { change_journal(step.object); }},
        {"time", [this](const step_t&) { time_flies_ = true; }},
        {"the", [this](const step_t& step) { recorder.block(driver_waits_ = step.object == "driver waits"); }},
    };

    void ask() {
        requests_["ask"] = RIL_GetCurrentSystemType(handle);
        if (requests_["ask"] == RIL_E_RADIONOTPRESENT) {
            recorder.add("refused");
        }
    }
    void hand_in(const std::string& list, RILMESSAGE (*message_of)(const std::string&, const std::string&)) {
        std::istringstream bodies(list);
        for (std::string body; std::getline(bodies >> std::ws, body, ',');) {
            const bool more_follow = body.ends_with('+');
            body.resize(body.size() - (more_follow ? 1 : 0));
            const RILMESSAGE message = message_of("+491701234567", body);
            requests_[body] = RIL_SendMsg(handle, &message, more_follow ? RIL_SENDOPT_PERSISTLINK : 0);
        }
    }
    void change_journal(const std::string& statement) const {
        sqlite3* opened = nullptr;
        sqlite3_open((home.path() / "journal.sqlite").c_str(), &opened);
        const base::sqlite::connection_t connection(opened);
        sqlite3_busy_timeout(opened, 5000);
        EXPECT_EQ(sqlite3_exec(opened, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    }

    /// The next that the modem hears.
    void expect_command(const std::string& expected, bool others_before_it) {
        while (true) {
            const std::string line = next_line();
            ASSERT_NE(line, "") << "not heard: " << expected;
            if (line[0] == '>') {
                references_.push_back(line.substr(5, 2));
            }
            const bool any_length = expected == "AT+CMGS" && line.starts_with("AT+CMGS=");
            const bool any_text = expected == "^Z" && line[0] == '>';
            if (any_length || any_text || line == (expected[0] == '^' ? ">" + filled(expected.substr(3)) : expected)) {
                return;
            }
            ASSERT_TRUE(others_before_it || is_question(line)) << line << ", not " << expected;
        }
    }
    std::string next_line() {
        if (time_flies_) {
            as_time_passes([this] { return !modem.line(heard_, std::chrono::milliseconds(5)).empty(); });
        }
        return modem.line(heard_++);
    }
    void expect_events(const lines_t& expected) {
        for (const std::string& event : expected) {
            const events_t events = recorder.events(got_ + 1);
            ASSERT_LT(got_, events.size()) << "did not come: " << event;
            ASSERT_EQ(events[got_++], event_of(filled(event))) << event;
        }
    }
    /// Where the radio takes a question, all before it is done.
    void expect_nothing_else() {
        const HRESULT asked = RIL_GetCurrentSystemType(handle);
        if (asked <= 0) {
            return;
        }
        const events_t events = recorder.events(got_ + 1);
        ASSERT_EQ(events.size(), got_ + 1) << testing::PrintToString(events);
        EXPECT_THAT(events[got_++], testing::StartsWith(fmt::format("{}: ok", asked)));
        const lines_t log = modem.log();
        for (; heard_ < log.size(); ++heard_) {
            EXPECT_TRUE(is_question(log[heard_])) << "too much: " << log[heard_];
        }
    }
    static bool is_question(const std::string& line) {
        return std::set<std::string>{"AT+CREG?", "AT+C5GREG?", "AT+COPS?", "AT+CAD?", "AT+CSS?", "ATQ0V1E0", "AT",
                                     "AT+CMGF?", "AT+CSMS?",   "AT+CMEE?", "AT+CGSN", "AT+CGMI", "AT+CGMM",  "AT+CSQ"}
            .contains(line);
    }

    std::string event_of(const std::string& text) {
        const size_t colon = text.find(": ");
        return colon == std::string::npos ? text
                                          : std::to_string(requests_.at(text.substr(0, colon))) + text.substr(colon);
    }
    std::string filled(std::string text) const {
        static const std::regex placeholder(R"(\{(\w+) (\w+) ?(\w*)\})");
        for (std::smatch found; std::regex_search(text, found, placeholder);) {
            text = found.prefix().str() + value_of(found[1], found[2], found[3]) + found.suffix().str();
        }
        return text;
    }
    std::string value_of(const std::string& name, const std::string& what, const std::string& place) const {
        if (name == "pdu") {
            return with_pdu(incoming(what, place));
        }
        const std::string& reference = references_.at(std::stoul(what) - 1);
        return name == "mr" ? reference : std::to_string(std::stoul(reference, nullptr, 16));
    }

    std::map<std::string, HRESULT> requests_;  // the latest of each body
    lines_t references_;                       // of the text entries
    size_t heard_ = 0;                         // of what the modem has heard
    size_t got_ = 0;                           // of the recorder's events
    bool in_exchange_ = false;                 // a command is not answered yet
    bool driver_waits_ = false;
    bool time_flies_ = false;
};

TEST_P(scene, is_played) {
    for (const step_t& step : script.steps) {
        SCOPED_TRACE(step.verb + ' ' + step.object);
        ASSERT_NO_FATAL_FAILURE(play(step));
    }
}

INSTANTIATE_TEST_SUITE_P(radio, scene, transcripts("radio/scenes"), name_of_transcript);

}  // namespace
