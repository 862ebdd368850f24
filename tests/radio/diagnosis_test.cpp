// What the diagnosis makes of a modem's replies, and that it leaves the modem as it was.
#include "radio/diagnosis.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "base/clock.h"
#include "tests/radio/scripted_modem.h"

namespace {

using radio::diagnosis_t;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

constexpr const char* error = "\r\nERROR\r\n";

const auto never = [] { return false; };

std::string line(const std::string& text) {
    return scripted_modem_t::line_and_ok(text);
}

/// One hindrance, or one warning, and nothing that follows from it.
auto one_finding(bool hinders, const std::string& text) {
    return ElementsAre(testing::AllOf(Field(&radio::finding_t::hinders, hinders),
                                      Field(&radio::finding_t::text, HasSubstr(text)),
                                      Field(&radio::finding_t::advice, testing::Not(""))));
}

TEST(diagnosis, what_stands_against_cards) {
    const struct {
        std::string command, reply;
        bool hinders;
        const char* text;
    } rows[] = {
        {"AT+CPIN?", line("+CPIN: SIM PIN"), true, "PIN wanted"},
        {"AT+CPIN?", line("+CPIN:SIM PUK"), true, "PUK wanted"},
        {"AT+CPIN?", "\r\n+CME ERROR: 10\r\n", true, "absent"},
        {"AT+CPIN?", "\r\n+CMS ERROR: 310\r\n", true, "absent"},
        {"AT+CPIN?", "\r\n+CME ERROR: 14\r\n", true, "busy"},
        {"AT+CFUN?", line("+CFUN: 4"), true, "switched off (AT+CFUN? says 4)"},
        {"AT+CREG?", line("+CREG: 0,2"), true, "searching"},
        {"AT+CREG?", line("+CREG: 0,3"), true, "denied"},
        {"AT+CREG?", line("+CREG: 0,11"), true, "unknown"},
        {"AT+CREG?", error, true, "does not tell whether it is registered"},
        {"AT+CREG?", line("+CREG: 0,5"), false, "roaming"},
        {"AT+CSQ", line("+CSQ: 4,99"), false, "weak: -105 dBm"},
        {"AT+CPMS?", line("+CPMS: \"ME\",2,20,\"ME\",2,20,\"SM\",20,20"), true, "SM holds 20 of 20"},
        {"AT+CPMS?", line("+CPMS: \"ME\",16,20,\"ME\",16,20,\"SM\",15,20"), false, "ME holds 16 of 20"},
        {"AT+CMGF=?", line("+CMGF: (1)"), true, "no PDU mode"},
        {"AT+CSMS?", line("+CSMS: 0,1,0,0"), true, "does not send"},
        {"AT+CSCA?", line("+CSCA: \"\",129"), true, "service centre"},
        {"AT+CNMI=?", line("+CNMI: (0-2),(0),(0)"), false, "announces no new messages"},
    };
    for (const auto& row : rows) {
        scripted_modem_t modem;
        modem.on("AT+CEREG?", error);
        modem.on("AT+CSCA?", line("+CSCA: \"+12025550111\",145"));
        modem.on(row.command, row.reply);
        const diagnosis_t found = radio::diagnose(modem.tty(), never);
        EXPECT_THAT(found.findings, one_finding(row.hinders, row.text)) << row.reply;
        EXPECT_EQ(found.usable(), !row.hinders) << row.reply;
    }
}

TEST(diagnosis, tells_the_tries_of_the_pin_and_what_would_be_done_with_it) {
    const struct {
        std::string question, reply;
        std::optional<int> left;
        const char* advice;
    } rows[] = {
        {"AT+CPINR", "\r\n+CPINR: SIM PUK,10,10\r\n" + line("+CPINR: SIM PIN,1,3"), 1, "enters no PIN any more"},
        {"AT+CPINR", "\r\n+CPINR: SIM PUK,10,10\r\n" + line("+CPINR: SIM PIN,2,3"), 2, "with --pin-file, which enters"},
        {"AT^CPIN?", line("^CPIN: SIM PIN,3,10,3,10,3"), 3, "with --pin-file, which enters"},
        {"AT+CPINC", line("+CPINC: 0,3,10,10"), 0, "enters no PIN any more"},
        {"AT+CPINR", line("+CPINR: SIM PUK,10,10"), {}, "--pin-unchecked"},
    };
    for (const auto& row : rows) {
        scripted_modem_t modem;
        modem.on("AT+CPIN?", line("+CPIN: SIM PIN"));
        modem.on("AT+CPINR", error);
        modem.on(row.question, row.reply);
        const diagnosis_t found = radio::diagnose(modem.tty(), never);
        EXPECT_EQ(found.pin_tries, row.left) << row.reply;
        ASSERT_FALSE(found.findings.empty());
        EXPECT_THAT(found.findings[0].advice, HasSubstr(row.advice)) << row.reply;
    }
}

TEST(diagnosis, identities_in_every_form) {
    scripted_modem_t modem;
    modem.on("AT+CGMI",
             "AT+CGMI\r\r\n+CMTI: \"SM\",1\r\n\r\nNO CARRIER\r\n\r\nMaker, Inc.\r\n\r\nOK\r\n");  // with echo
    modem.on("AT+CGMM", line("+CGMM: \"M-1\""));
    modem.on("AT+CGMR", line("1.0: \"a\""));
    modem.on("AT+CGSN", line("3512345678901234"));  // as a PDU looks, too
    modem.on("AT+CEREG?", line("+CEREG: 0,0"));
    modem.on("AT+C5GREG?", line("+C5GREG: 0,5,\"000001\",\"0000002\",11"));
    modem.on("AT+CREG?", line("+CREG: 0,0"));
    modem.on("AT+COPS?", line("+COPS: 0,2,\"00101\",7"));
    const diagnosis_t found = radio::diagnose(modem.tty(), never);
    EXPECT_THAT((std::vector{found.maker, found.model, found.revision, found.serial_number, found.registration,
                             found.operator_name, found.technology}),
                ElementsAre("Maker, Inc.", "M-1", "1.0: a", "3512345678901234", "roaming", "00101", "5G"));
}

TEST(diagnosis, of_a_cdma_modem) {
    scripted_modem_t modem;
    modem.on("AT+GCAP", line("+GCAP: +CIS707-A"));
    modem.on("AT+CAD?", line("+CAD: 1"));
    for (const char* unknown : {"AT+CPIN?", "AT+CREG?", "AT+CEREG?", "AT+COPS?"}) {
        modem.on(unknown, error);
    }
    const diagnosis_t found = radio::diagnose(modem.tty(), never);
    EXPECT_TRUE(found.usable());
    EXPECT_EQ(found.technology, "CDMA");
    EXPECT_EQ(modem.count("AT+CSCA?"), 0U);
}

TEST(diagnosis, leaves_the_modem_as_it_was) {
    for (const std::string end : {"", "silence", "interruption"}) {
        scripted_modem_t modem;
        modem.on("ATQ0V1E0", std::string("ATQ0V1E0\r") + scripted_modem_t::ok);
        modem.on("AT+CMEE?", line("+CMEE: 0"));
        modem.on("AT+CPMS?", line("+CPMS: \"ME\",0,20,\"ME\",0,20,\"ME\",0,20"));
        modem.on("AT+CSCA?", line("+CSCA: \"+12025550111\",145"));
        modem.on("AT+CPMS=\"SM\"", line("+CPMS: 17,20,0,20,0,20"));
        modem.on("AT+CMGF=?", end == "silence" ? "" : line("+CMGF: (0,1)"));
        std::jthread time([&] {
            if (end == "silence" && modem.heard("AT+CMGF=?")) {
                base::advance_clock(10'000);
            }
        });
        const diagnosis_t found =
            radio::diagnose(modem.tty(), [&] { return end == "interruption" && modem.count("AT+CPMS=\"SM\"") > 0; });
        EXPECT_EQ(found.findings.size(), end.empty() ? 1 : 2) << end;
        EXPECT_EQ(found.memories.size(), 2U);
        std::vector<std::string> changes = modem.log();
        std::erase_if(changes, [](const std::string& line) {
            return line.starts_with("ATQ") || line == "AT" || line.ends_with('?') || line.starts_with("AT+CG") ||
                   line == "AT+CSQ" || line == "AT+GCAP";
        });
        EXPECT_THAT(changes, ElementsAre("AT+CMEE=1", "AT+CPMS=\"SM\"", "AT+CPMS=\"ME\"", "AT+CMEE=0", "ATE1")) << end;
    }
}

}  // namespace
