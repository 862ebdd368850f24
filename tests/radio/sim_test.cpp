// A SIM that wants its PIN: when it gets it, and that no value is entered into it twice.
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "base/clock.h"
#include "radio/sim_values.h"
#include "tests/radio/session_fixture.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string ok = scripted_modem_t::ok;
const std::string error = "\r\nERROR\r\n";
const auto line = scripted_modem_t::line_and_ok;
const std::string ours = "89490200000863940628";
const std::string another = "89490200000863940636";

TEST(sim, tries_in_every_form) {
    const std::tuple<const char*, const char*, std::optional<int>> rows[] = {
        {"AT+CPINR", "+CPINR: SIM PIN,2,3", 2},
        {"AT+CPINR", "+CPINR: \"SIM PIN\",3", 3},
        {"AT+CPINR", "+CPINR: SIM PUK,10,10", {}},
        {"AT+CPINR", "+CPINR: SIM PIN", {}},
        {"AT+CPINR", "+CPINR: SIM PIN,", {}},
        {"AT+CPINR", "+CPINR: SIM PIN,-1", {}},
        {"AT+CPINR", "+CPINR: SIM PIN,255", {}},
        {"AT^CPIN?", "^CPIN: SIM PIN,2,10,2,10,3", 2},  // Huawei MU509
        {"AT^CPIN?", "^CPIN: READY,,10,3,10,3", {}},
        {"AT+QPINC=\"SC\"", "+QPINC: \"SC\",3,10", 3},  // Quectel BG95
        {"AT+QPINC=\"SC\"", "+QPINC: \"P2\",3,10", {}},
        {"AT#PCT", "#PCT: 1", 1},                // Telit UC864
        {"AT^SPIC", "^SPIC: 3", 3},              // Siemens MC35
        {"AT^SPIC", "^SPIC: SIM PIN", {}},       // which one, not how often
        {"AT+SPIC", "+SPIC: 3,10,0,10", 3},      // SIMCom SIM7600
        {"AT+UPINCNT", "+UPINCNT: 0,3,5,5", 0},  // u-blox
        {"AT+CPINC", "+CPINC: 2,3,10,10", 2},    // Wavecom
    };
    for (const auto& [question, told, left] : rows) {
        for (const radio::tries_question_t& one : radio::tries_questions()) {
            EXPECT_EQ(radio::tries_left(one, told), one.line == question ? left : std::nullopt) << one.line << told;
        }
    }
}

TEST(sim, card_identities_in_every_form) {
    const std::pair<const char*, std::optional<std::string>> rows[] = {
        {"+CRSM: 144,0,\"98942000008036496082\"", ours},
        {"+CRSM: 144,0,\"984974640500888775F6\"", "8994474650008878576"},
        {"+CRSM: 106,130", {}},
        {"+CCID: \"89490200000863940628\"", ours},
        {"+CCID: 89490200000863940628", ours},
        {"ICCID: 89490200000863940628", ours},   // Sierra
        {"^ICCID: 98942000008036496082", ours},  // Huawei E160, the file's octets
        {"^ICCID: 89490200000863940628", ours},  // Huawei's newer ones
        {"^SCID: SIM Card ID: 89490200000863940628", ours},
        {"89490200000863940628", ours},                            // SIM800
        {"8944476500008878576f", "8944476500008878576"},           // SIM800
        {"+QCCID: 8944476500008878576F", "8944476500008878576"},   // Quectel EG25
        {"+ICCID: 898600700907A6019125", "898600700907A6019125"},  // SIM7600: an issuer that counts on to F
        {"+CCID: C3729F82", {}},                                   // of a CDMA modem: the ESN
        {"+CCID: FFFFFFFFFFFFFFFFFFFF", {}},
        {"+CCID: ", {}},
    };
    for (const auto& [told, identity] : rows) {
        EXPECT_EQ(radio::card_identity(told), identity) << told;
    }
}

TEST(sim, own_numbers_in_every_form) {
    const std::pair<const char*, std::optional<std::string>> rows[] = {
        {"+CNUM: \"Own, first\",\"+491700000001\",145,,4", "+491700000001"},
        {"+CNUM: ,\"491700000001\",145", "+491700000001"},
        {"+CNUM: \"\",\"01700000001\",129", "01700000001"},
        {"+CNUM: \"Line 1\",\"\",255", {}},                    // an empty place
        {"+CNUM: ,\"002B003400390031003700300030\",145", {}},  // UCS2
        {"+CNUM: ,\"00340039003100370030\",129", {}},
        {"+CNUM: ", {}},
        {"+CNUM: \"Own\"", {}},
    };
    for (const auto& [told, number] : rows) {
        EXPECT_EQ(radio::own_number(told), number) << told;
    }
}

class sim_pin : public session {
  protected:
    sim_pin() {
        EXPECT_EQ(radio::set_limit("setting", "30"), "");
        EXPECT_EQ(radio::set_limit("sim-ready", "600"), "");
        options.pin_file = folder / "pin";
        write_pin(right);
        modem.on("AT+CPIN?", line("+CPIN: SIM PIN"));
        modem.on("AT+CCID", line("+CCID: " + ours));
        tell_tries(3);
    }

    void write_pin(const std::string& text, mode_t mode = 0600) const {
        std::ofstream(options.pin_file) << text;
        chmod(options.pin_file.c_str(), mode);
    }
    void tell_tries(int left) { modem.on("AT+CPINR", line(fmt::format("+CPINR: SIM PIN,{},3", left))); }
    /// What the set-up says, in a process that knows nothing of the one before.
    std::string attach_now() {
        radio::detach_modem();
        auto attached = std::async(std::launch::async, [this] { return radio::attach_modem(options); });
        while (attached.wait_for(std::chrono::milliseconds(2)) != std::future_status::ready) {
            base::advance_clock(100);
        }
        return attached.get();
    }
    /// The PIN is handed to the modem, whose answer nobody waits for: the process is killed.
    void die_in_the_entry() {
        modem.once(entry(right), "");
        radio::detach_modem();
        auto attached = std::async(std::launch::async, [this] { return radio::attach_modem(options); });
        ASSERT_TRUE(modem.heard(entry(right), modem.count(entry(right)) + 1));
        modem.hang_up();
        EXPECT_THAT(attached.get(), HasSubstr("hung up"));
        modem.plug_in();
        link(options.tty, modem);
    }
    void be_ready_once() {
        modem.once("AT+CPIN?", line("+CPIN: READY"));
        EXPECT_EQ(attach_now(), "");
    }
    static std::string entry(const std::string& pin) { return "AT+CPIN=\"" + pin + '"'; }
    size_t entries(const std::string& pin = right) { return modem.count(entry(pin)); }

    static constexpr const char* right = "4711";
    const std::filesystem::path& folder = home.path();
    const std::filesystem::path marks = folder / "rejected-pin";
};

TEST_F(sim_pin, a_value_that_the_sim_rejected_is_never_entered_into_it_again) {
    testing::internal::CaptureStderr();
    std::string told;
    modem.on(entry("1234"), "AT+CPIN=\"1234\"\r\r\n+CME ERROR: 16\r\n");
    modem.on(entry("5555"), "\r\n+CME ERROR: SIM PUK required\r\n");
    for (const std::string wrong : {"1234\n", "1234\r\n", "5555", "5555\n1234", "1234"}) {
        write_pin(wrong);
        const std::string said = attach_now();
        EXPECT_THAT(said, AllOf(HasSubstr("did not accept"), HasSubstr(options.pin_file.native())));
        told += said;
    }
    modem.say("\r\nAT+CPIN=\"5555\"\r\n");  // its echo, late
    write_pin(right);
    for (const size_t times : {1, 2}) {  // a power cycle asks for it again
        modem.once("AT+CPIN?", line("+CPIN: SIM PIN"));
        modem.once("AT+CPIN?", line("+CPIN: SIM PIN"));  // for a moment
        be_ready_once();
        EXPECT_EQ(entries(), times);
    }
    write_pin("1234");
    told += attach_now();
    EXPECT_EQ(entries("1234") + entries("5555"), 2U);
    told += testing::internal::GetCapturedStderr();
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        if (file.is_regular_file() && file.path() != options.pin_file) {
            told += (std::stringstream() << std::ifstream(file.path()).rdbuf()).str();
        }
    }
    EXPECT_THAT(told, AllOf(Not(HasSubstr("1234")), Not(HasSubstr("5555")), Not(HasSubstr(right))));
}

// Not the SIM's verdict: whether it has looked at the value is told by the tries that are left.
TEST_F(sim_pin, what_is_no_verdict_leaves_no_mark) {
    for (const std::string answer :
         {"\r\n+CME ERROR: 3\r\n", "\r\n+CME ERROR: 100\r\n", "\r\n+CME ERROR: 13\r\n", "\r\nERROR\r\n", ""}) {
        const size_t before = entries();
        modem.once(entry(right), answer);
        EXPECT_THAT(attach_now(), HasSubstr("3 tries are left as before"));
        EXPECT_FALSE(std::filesystem::exists(marks));
        EXPECT_EQ(entries(), before + 1);
    }
    const size_t before = entries();
    for (const char* busy : {"\r\n+CME ERROR: 14\r\n", "\r\n+CME ERROR: 515\r\n", "\r\n+CMS ERROR: 314\r\n"}) {
        modem.once(entry(right), busy);
    }
    std::jthread sim([this, before] {
        if (modem.heard(entry(right), before + 4)) {
            modem.on("AT+CPIN?", line("+CPIN: READY"));
        }
    });
    EXPECT_EQ(attach_now(), "") << "it is entered until the SIM is not busy any more";
    EXPECT_FALSE(std::filesystem::exists(marks));
}

TEST_F(sim_pin, a_try_less_is_a_verdict_whatever_the_modem_says) {
    for (const std::string& answer : {error, std::string()}) {
        std::filesystem::remove(marks);
        const size_t before = entries();
        modem.once("AT+CPINR", line("+CPINR: SIM PIN,3,3"));
        tell_tries(2);
        modem.once(entry(right), answer);
        EXPECT_THAT(attach_now(), AllOf(HasSubstr("did not accept"), HasSubstr("2 tries left")));
        tell_tries(3);
        EXPECT_THAT(attach_now(), HasSubstr("not tried again"));
        EXPECT_EQ(entries(), before + 1);
    }
}

TEST_F(sim_pin, an_entry_that_a_kill_left_open_is_settled_by_what_the_sim_tells) {
    ASSERT_NO_FATAL_FAILURE(die_in_the_entry());
    be_ready_once();
    EXPECT_FALSE(std::filesystem::exists(marks)) << "the SIM has taken it";

    ASSERT_NO_FATAL_FAILURE(die_in_the_entry());
    modem.once(entry(right), error);
    EXPECT_THAT(attach_now(), HasSubstr("left as before"));
    EXPECT_EQ(entries(), 3U) << "the SIM has not looked at it";

    ASSERT_NO_FATAL_FAILURE(die_in_the_entry());
    modem.on("AT+CPINR", error);
    EXPECT_THAT(attach_now(), HasSubstr("not tried again")) << "nobody tells";
    tell_tries(2);
    EXPECT_THAT(attach_now(), HasSubstr("not tried again"));
    tell_tries(3);
    be_ready_once();
    EXPECT_THAT(attach_now(), HasSubstr("not tried again")) << "it was wrong, whatever made the SIM ready";
    EXPECT_EQ(entries(), 4U);
}

TEST_F(sim_pin, a_blocked_sim_has_rejected_what_was_entered_last) {
    ASSERT_NO_FATAL_FAILURE(die_in_the_entry());
    modem.once("AT+CPIN?", line("+CPIN: SIM PUK"));
    EXPECT_THAT(attach_now(), HasSubstr("locked (SIM PUK)"));
    EXPECT_THAT(attach_now(), HasSubstr("not tried again")) << "unblocked in a phone, with all its tries again";
    EXPECT_EQ(entries(), 1U);
}

TEST_F(sim_pin, what_one_sim_rejected_is_entered_into_another) {
    const struct {
        std::string question, reply, reply_of_another;
        bool known;
    } rows[] = {
        {"AT+CCID", line("+CCID: " + ours), line("+CCID: " + another), true},
        {"AT+CCID", line(ours), line(another), true},  // which look like PDUs
        {"AT^ICCID?", line("^ICCID: 98942000008036496082"), line("+CCID: " + ours), false},
        {"AT+CCID", error, line("+CCID: " + another), false},
        {"AT+CCID", line("+CCID: " + ours), error, false},
    };
    for (const auto& row : rows) {
        std::filesystem::remove(marks);
        modem.on("AT+CCID", error);
        modem.on(row.question, row.reply);
        modem.once(entry(right), "\r\n+CME ERROR: 16\r\n");
        EXPECT_THAT(attach_now(), HasSubstr("did not accept"));
        modem.on(row.question, error);
        modem.on("AT+CCID", row.reply_of_another);
        const size_t before = entries();
        if (row.known) {
            modem.once("AT+CPIN?", line("+CPIN: SIM PIN"));
            be_ready_once();
            modem.on("AT+CCID", row.reply);
        }
        EXPECT_THAT(attach_now(), HasSubstr("not tried again"));
        EXPECT_EQ(entries(), before + (row.known ? 1 : 0)) << row.reply << row.reply_of_another;
    }
}

// A file of hashes alone, as earlier versions wrote it: here of 4711.
TEST_F(sim_pin, marks_without_a_sim_count_for_every_sim) {
    std::ofstream(marks) << "$5$rounds=1000$datagram$qk0Qd4I5UKGo3O.04tCfLxkqvyC1KP8PBe4WeIdp3PC\n";
    EXPECT_THAT(attach_now(), AllOf(HasSubstr("not tried again"), HasSubstr("remove " + marks.native())));
    write_pin("1111");
    modem.once("AT+CPIN?", line("+CPIN: SIM PIN"));
    be_ready_once();
    EXPECT_EQ(entries("1111"), 1U);
    EXPECT_FALSE(std::filesystem::exists(marks)) << "nobody knows what became of that one";
}

TEST_F(sim_pin, without_a_number_of_tries_one_value_is_entered_if_the_user_says_so) {
    modem.on("AT+CPINR", ok);  // without what was asked for
    EXPECT_THAT(attach_now(), AllOf(HasSubstr("does not tell how many tries"), HasSubstr("--pin-unchecked")));
    EXPECT_EQ(entries(), 0U);
    for (const radio::tries_question_t& question : radio::tries_questions()) {
        EXPECT_GT(modem.count(std::string(question.line)), 0U) << question.line;
    }
    options.pin_unchecked = true;
    modem.once(entry(right), error);
    EXPECT_THAT(attach_now(), AllOf(HasSubstr("not tried again"), HasSubstr("remove " + marks.native())));
    write_pin("1111");
    EXPECT_THAT(attach_now(), AllOf(HasSubstr("unlock the SIM in a phone"), HasSubstr("remove " + marks.native())));
    EXPECT_EQ(entries() + entries("1111"), 1U);
    write_pin(right);
    be_ready_once();
    modem.once("AT+CPIN?", line("+CPIN: SIM PIN"));
    be_ready_once();
    EXPECT_EQ(entries(), 2U) << "it was right";
}

TEST_F(sim_pin, a_pin_that_must_not_be_entered_is_not) {
    const struct {
        std::string pin;
        mode_t mode;
        std::string state, tries, error;
    } rows[] = {
        {"1234", 0640, "SIM PIN", error, "chmod 600"},
        {"123", 0600, "SIM PIN", error, "4 to 8 digits"},
        {"12a4", 0600, "SIM PIN", error, "4 to 8 digits"},
        {"123456789", 0600, "SIM PIN", error, "4 to 8 digits"},
        {"1234\";+CFUN=0", 0600, "SIM PIN", error, "4 to 8 digits"},
        {"1234", 0600, "SIM PIN", "\r\n+CPINR: SIM PIN,1,3\r\n+CPINR: SIM PUK,10,10\r\n" + ok, "has 1 try left"},
        {"1234", 0600, "SIM PIN", "", "does not answer AT+CPINR"},
        {"1234", 0600, "SIM PUK", error, "locked (SIM PUK)"},
        {"1234", 0600, "PH-SIM PIN", error, "locked (PH-SIM PIN)"},
    };
    for (const auto& row : rows) {
        write_pin(row.pin, row.mode);
        modem.on("AT+CPIN?", line("+CPIN: " + row.state));
        modem.on("AT+CPINR", row.tries);
        EXPECT_THAT(attach_now(), AllOf(HasSubstr(row.error), Not(HasSubstr(row.pin))));
    }
    options.pin_file = folder / "nothing";
    modem.on("AT+CPIN?", line("+CPIN: SIM PIN"));
    EXPECT_THAT(attach_now(), HasSubstr("nothing: No such file"));
    EXPECT_THAT(modem.log(), Not(testing::Contains(testing::StartsWith("AT+CPIN="))));
}

TEST_F(sim_pin, marks_that_cannot_be_read_or_written_keep_every_value_out) {
    std::ofstream(marks) << "what is this\n";
    EXPECT_THAT(attach_now(), HasSubstr("not tried again"));
    std::filesystem::remove(marks);
    std::filesystem::create_directory(marks);
    EXPECT_THAT(attach_now(), HasSubstr(marks.native()));
    std::filesystem::remove(marks);
    std::filesystem::create_directory(marks.native() + ".new");
    EXPECT_THAT(attach_now(), HasSubstr("cannot write " + marks.native()));
    EXPECT_EQ(entries(), 0U);
}

}  // namespace
