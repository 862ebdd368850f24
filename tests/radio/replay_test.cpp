// Dialogues of modem families, tests/radio/dialogues/*.txt: each walks a modem through its set-up, a received and a
// sent datagram, in fragments of several sizes and with foreign lines between its own. A file is a test. Its lines:
//
//   > AT+CPIN?              a command that must come; "AT+CMGS" stands for any length, "^Z" for the end of a text entry
//   < \r\nOK\r\n            what the modem answers, on as many lines as it likes; {pdu} is the length and the PDU of
//   "hello" ! \r\n+CMTI: "SM",1\r\n what it says by itself when it is set up ~ RING                  a line that it may
//   say at any time = system 100            what comes of it: maker, model, system (type, hexadecimal), reference (of
//   the sent datagram)
//
// A command that comes again gets the answers in turn, then the last one; one that is not there gets ERROR.
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "radio/diagnosis.h"
#include "tests/radio/session_fixture.h"

namespace {

using pace_t = scripted_modem_t::pace_t;

struct recorded_t {
    std::vector<std::pair<std::string, std::string>> exchanges;
    std::string by_itself;
    std::vector<std::string> foreign;
    std::map<std::string, std::string> outcome;
};

void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

recorded_t read_dialogue(const std::filesystem::path& path) {
    recorded_t recorded;
    const std::string pdu = with_pdu(incoming("hello"));
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::string text = line.substr(std::min<size_t>(2, line.size()));
        replace_all(text, "\\r", "\r");
        replace_all(text, "\\n", "\n");
        replace_all(text, "\\x20", " ");
        replace_all(text, "\\x1A", "\x1A");
        replace_all(text, "{pdu}", pdu.substr(0, pdu.size() - 2));
        if (line.starts_with("> ")) {
            recorded.exchanges.emplace_back(text == "^Z" ? ">" : text, "");
        } else if (line.starts_with("< ")) {
            recorded.exchanges.back().second += text;
        } else if (line.starts_with("! ")) {
            recorded.by_itself += text;
        } else if (line.starts_with("~ ")) {
            recorded.foreign.push_back("\r\n" + text + "\r\n");
        } else if (line.starts_with("= ")) {
            recorded.outcome[text.substr(0, text.find(' '))] = text.substr(text.find(' ') + 1);
        } else {
            EXPECT_TRUE(line.empty() || line.starts_with('#')) << path << ": " << line;
        }
    }
    return recorded;
}

// At every line boundary, one after the other.
std::string with_foreign_lines(const recorded_t& recorded, const std::string& reply) {
    std::string mixed;
    size_t next = 0;
    for (size_t at = 0; at < reply.size();) {
        const size_t end = std::min(reply.find('\n', at), reply.size() - 1) + 1;
        mixed += recorded.foreign[next++ % recorded.foreign.size()] + reply.substr(at, end - at);
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
        const DWORD system = std::stoul(recorded.outcome.at("system"), nullptr, 16);
        EXPECT_EQ(recorder.events(3), (events_t{"message hello", result(asked, RIL_RESULT_OK, system),
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
    const radio::diagnosis_t found = radio::diagnose(modem.tty(), [] { return false; });
    EXPECT_EQ(found.maker, recorded.outcome.at("maker"));
    EXPECT_EQ(found.model, recorded.outcome.at("model"));
}

std::vector<std::filesystem::path> files() {
    const std::filesystem::directory_iterator folder(ZPD_SOURCE "/tests/radio/dialogues");
    std::vector<std::filesystem::path> paths(begin(folder), end(folder));
    std::ranges::sort(paths);
    return paths;
}

INSTANTIATE_TEST_SUITE_P(dialogues, replay, testing::ValuesIn(files()), [](const auto& file) {
    std::string name = file.param.stem();
    std::ranges::replace(name, '-', '_');
    return name;
});

}  // namespace
