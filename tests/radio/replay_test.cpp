// Dialogues of modem families, dialogues/*.txt: each walks a modem through its set-up, a received and a sent datagram,
// in fragments of several sizes and with foreign lines between its own. And traces of sessions, traces/*.txt. The forms
// are told in README.md.
#include <fstream>
#include <future>
#include <map>

#include "radio/diagnosis.h"
#include "tests/radio/session_fixture.h"
#include "tests/transcript.h"

namespace {

using pace_t = scripted_modem_t::pace_t;

constexpr std::chrono::milliseconds instant(5);

const std::string any_pin = "0000";  // where a trace has none

using exchange_t = std::pair<std::string, std::string>;

struct recorded_t {
    std::vector<exchange_t> exchanges;
    std::string by_itself;
    // First what any modem may say: a call that nobody takes, and a status report.
    std::string foreign = "\r\nRING\r\n\r\nNO CARRIER\r\n\r\n+CDS: 2\r\n0006\r\n";
    std::map<std::string, std::string> outcome;
};

recorded_t read_dialogue(const std::filesystem::path& path) {
    recorded_t recorded;
    const std::string pdu = with_pdu(incoming("hello"));
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::string text = text_of(line);
        if (const size_t at = text.find("{pdu}"); at != std::string::npos) {
            text.replace(at, 5, pdu);
        }
        if (line.starts_with("> ")) {
            if (const size_t at = text.find("****"); at != std::string::npos) {
                text.replace(at, 4, any_pin);
            }
            recorded.exchanges.emplace_back(text.starts_with("^Z") ? ">" : scripted_modem_t::key_of(text), "");
        } else if (line.starts_with("< ") && !recorded.exchanges.empty()) {
            recorded.exchanges.back().second += text;
        } else if (line.starts_with("! ") || line.starts_with("< ")) {
            recorded.by_itself += text;
        } else if (line.starts_with("~ ")) {
            recorded.foreign += "\r\n" + text + "\r\n";
        } else if (line.starts_with("= ")) {
            recorded.outcome[text.substr(0, text.find(' '))] = text.substr(text.find(' ') + 1);
        } else {
            EXPECT_TRUE(line.empty() || line.starts_with('#')) << path << ": " << line;
        }
    }
    return recorded;
}

// All of them at every line boundary.
std::string with_foreign_lines(const recorded_t& recorded, const std::string& reply) {
    std::string mixed;
    for (size_t at = 0; at < reply.size();) {
        const size_t end = std::min(reply.find('\n', at), reply.size() - 1) + 1;
        mixed += recorded.foreign + reply.substr(at, end - at);
        at = end;
    }
    return mixed;
}

class replay : public session, public testing::WithParamInterface<std::filesystem::path> {
  protected:
    void load(pace_t pace, bool foreign) {
        modem.otherwise("\r\nERROR\r\n");
        modem.set_pace(pace);
        std::map<std::string, std::string> last;
        for (const auto& [command, reply] : recorded.exchanges) {
            if (const auto before = last.find(command); before != last.end()) {
                modem.once(command, before->second);
            }
            last[command] = foreign ? with_foreign_lines(recorded, reply) : reply;
        }
        for (const auto& [command, reply] : last) {
            modem.on(command, reply);
        }
    }
    /// What the dialogue says comes of it, comes of it.
    void play(pace_t pace, bool foreign) {
        load(pace, foreign);
        const size_t before = recorder.events(0).size();
        attach();
        open();
        modem.say(foreign ? with_foreign_lines(recorded, recorded.by_itself) : recorded.by_itself);
        recorder.events(before + 1);
        const HRESULT asked = RIL_GetCurrentSystemType(handle);
        recorder.events(before + 2);
        const HRESULT request = send();
        events_t events = recorder.events(before + 3);
        events.erase(events.begin(), events.begin() + static_cast<std::ptrdiff_t>(before));
        EXPECT_EQ(events,
                  (events_t{"message hello", sent(asked, std::stoul(recorded.outcome.at("system"), nullptr, 16)),
                            sent(request, std::stoul(recorded.outcome.at("reference")))}));
    }
    void expect_all_heard() {
        for (const auto& [command, reply] : recorded.exchanges) {
            const size_t times = std::ranges::count(recorded.exchanges, command, &exchange_t::first);
            EXPECT_TRUE(command.starts_with("AT+CGM") || modem.heard(command, times)) << command;
        }
    }
    /// Of a trace nobody knows what came of it: the radio goes the same way, in whatever time, and the driver sends as
    /// many datagrams.
    void follow() {
        load(pace_t::whole, false);
        for (const char* limit : {"first-answer", "setting", "sim-ready", "storage"}) {
            EXPECT_EQ(radio::set_limit(limit, "30"), "");  // a modem may fall silent
        }
        options.pin_file = home.path() / "pin";
        std::ofstream(options.pin_file) << any_pin;
        std::filesystem::permissions(options.pin_file, std::filesystem::perms::owner_read);
        const std::vector<std::string> heard_before = modem.log();
        auto attached = std::async(std::launch::async, [this] { return radio::attach_modem(options); });
        ASSERT_TRUE(as_time_passes([&] { return attached.wait_for(instant) == std::future_status::ready; }));
        if (attached.get().empty()) {
            open();
            RIL_GetCurrentSystemType(handle);
            modem.say(recorded.by_itself);
            for (auto left = std::ranges::count(recorded.exchanges, ">", &exchange_t::first); left > 0; --left) {
                send();
            }
        }
        for (const exchange_t& exchange : recorded.exchanges) {
            const auto is_it = [&](const std::string& line) {
                return scripted_modem_t::key_of(line) == exchange.first;
            };
            const auto before = static_cast<size_t>(std::ranges::count_if(heard_before, is_it));
            EXPECT_TRUE(as_time_passes([&] { return modem.heard(exchange.first, before + 1, instant); }))
                << exchange.first;
        }
    }
    /// As if nothing had come in yet.
    void start_anew() {
        radio::detach_modem();
        std::filesystem::remove(home.path() / "journal.sqlite");
    }

    recorded_t recorded = read_dialogue(GetParam());
};

TEST_P(replay, line_by_line) {
    play(pace_t::line, false);
    expect_all_heard();
}

TEST_P(replay, octet_by_octet) {
    play(pace_t::octet, false);
    expect_all_heard();
}

TEST_P(replay, all_at_once) {
    play(pace_t::whole, false);
    expect_all_heard();
}

TEST_P(replay, urc_inside_response) {
    play(pace_t::whole, true);
    expect_all_heard();
}

TEST_P(replay, from_its_own_trace) {
    options.trace = home.path() / "trace";
    play(pace_t::octet, false);
    start_anew();
    const recorded_t dialogue = std::exchange(recorded, read_dialogue(options.trace));
    EXPECT_EQ(std::ranges::count(recorded.exchanges, ">", &exchange_t::first), 1);
    recorded.outcome = dialogue.outcome;
    options.trace.clear();
    play(pace_t::whole, false);
    start_anew();
    follow();
}

TEST_P(replay, told_by_the_doctor) {
    load(pace_t::whole, false);
    const radio::diagnosis_t found = radio::diagnose({modem.tty()}, [] { return false; });
    EXPECT_EQ(found.maker, recorded.outcome.at("maker"));
    EXPECT_EQ(found.model, recorded.outcome.at("model"));
}

INSTANTIATE_TEST_SUITE_P(dialogues, replay, transcripts("radio/dialogues"), name_of_transcript);

using trace_replay = replay;

TEST_P(trace_replay, is_followed) {
    follow();
}

INSTANTIATE_TEST_SUITE_P(traces, trace_replay, transcripts("radio/traces"), name_of_transcript);

}  // namespace
