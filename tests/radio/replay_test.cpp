// Dialogues of modem families, dialogues/*.txt: each walks a modem through its set-up, a received and a sent datagram,
// in fragments of several sizes and with foreign lines between its own. The form is told in README.md.
#include <fstream>
#include <map>

#include "radio/diagnosis.h"
#include "tests/radio/session_fixture.h"
#include "tests/transcript.h"

namespace {

using pace_t = scripted_modem_t::pace_t;

struct recorded_t {
    std::vector<std::pair<std::string, std::string>> exchanges;
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
            recorded.exchanges.emplace_back(text == "^Z" ? ">" : text, "");
        } else if (line.starts_with("< ")) {
            recorded.exchanges.back().second += text;
        } else if (line.starts_with("! ")) {
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
    void play(pace_t pace, bool foreign) {
        load(pace, foreign);
        attach();
        open();
        modem.say(foreign ? with_foreign_lines(recorded, recorded.by_itself) : recorded.by_itself);
        recorder.events(1);
        const HRESULT asked = RIL_GetCurrentSystemType(handle);
        recorder.events(2);
        const HRESULT request = send();
        EXPECT_EQ(recorder.events(3),
                  (events_t{"message hello", sent(asked, std::stoul(recorded.outcome.at("system"), nullptr, 16)),
                            sent(request, std::stoul(recorded.outcome.at("reference")))}));
        for (const auto& [command, reply] : recorded.exchanges) {
            const size_t times =
                std::ranges::count(recorded.exchanges, command, &std::pair<std::string, std::string>::first);
            EXPECT_TRUE(command.starts_with("AT+CGM") || modem.heard(command, times)) << command;
        }
    }

    const recorded_t recorded = read_dialogue(GetParam());
};

TEST_P(replay, line_by_line) {
    play(pace_t::line, false);
}

TEST_P(replay, octet_by_octet) {
    play(pace_t::octet, false);
}

TEST_P(replay, all_at_once) {
    play(pace_t::whole, false);
}

TEST_P(replay, urc_inside_response) {
    play(pace_t::whole, true);
}

TEST_P(replay, told_by_the_doctor) {
    load(pace_t::whole, false);
    const radio::diagnosis_t found = radio::diagnose({modem.tty()}, [] { return false; });
    EXPECT_EQ(found.maker, recorded.outcome.at("maker"));
    EXPECT_EQ(found.model, recorded.outcome.at("model"));
}

INSTANTIATE_TEST_SUITE_P(dialogues, replay, transcripts("radio/dialogues"), name_of_transcript);

}  // namespace
