// zpd send and zpd outbox: cards that are handed in, followed, refused, given up; and what a person at a terminal is
// asked.
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>

#include "tests/system/phones.h"

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string ann = "BEGIN:VCARD\r\nFN:Ann Placeholder\r\nEND:VCARD\r\n";

/// As a regular expression.
std::string escaped(const std::string& text) {
    std::string expression;
    for (const char letter : text) {
        expression +=
            std::ispunct(static_cast<unsigned char>(letter)) != 0 ? std::string{'\\', letter} : std::string(1, letter);
    }
    return expression;
}

/// A zpd on a terminal of its own.
class terminal_t {
  public:
    explicit terminal_t(const arguments_t& arguments) : id_(forkpty(&terminal_, nullptr, nullptr, nullptr)) {
        if (id_ == 0) {
            std::vector<char*> argv{const_cast<char*>(ZPD_BINARY)};
            for (const std::string& argument : arguments) {
                argv.push_back(const_cast<char*>(argument.c_str()));
            }
            argv.push_back(nullptr);
            execv(ZPD_BINARY, argv.data());
            _exit(127);
        }
    }
    ~terminal_t() {
        if (id_ > 0) {
            kill(id_, SIGKILL);
            waitpid(id_, nullptr, 0);
        }
        close(terminal_);
    }
    terminal_t(const terminal_t&) = delete;
    terminal_t& operator=(const terminal_t&) = delete;

    void type(const std::string& text) const { EXPECT_EQ(write(terminal_, text.data(), text.size()), text.size()); }
    /// Reads until the text is on the terminal; what is, when it is not in time or the program ends before.
    bool shows(const std::string& text) {
        char octet = 0;
        while (screen_.find(text) == std::string::npos && read(terminal_, &octet, 1) == 1) {
            screen_ += octet;
        }
        return screen_.find(text) != std::string::npos;
    }
    const std::string& screen() const { return screen_; }
    /// As waitpid tells it.
    int wait() {
        (void)shows("\x01 nothing says this");
        int status = -1;
        waitpid(std::exchange(id_, 0), &status, 0);
        return status;
    }

  private:
    int terminal_ = -1;  // before the id: forkpty sets it
    pid_t id_;
    std::string screen_;
};

/// Phones that all tests share: the first card after a start waits for ten seconds.
class sending : public testing::Test {
  protected:
    struct phones_t {
        folder_t folder;
        network_t network{folder};
        phone_t alice_phone{folder, "alice", network.modem(alice)};
        phone_t bob_phone{folder, "bob", network.modem(bob)};
    };

    static void SetUpTestSuite() {
        phones = std::make_unique<phones_t>();
        sender().start();
        phones->bob_phone.start({"--activate"});
        ASSERT_TRUE(sender().ready()) << sender().serve().errors();
        ASSERT_TRUE(phones->bob_phone.ready()) << phones->bob_phone.serve().errors();
    }
    static void TearDownTestSuite() { phones.reset(); }
    void SetUp() override { fault("clear"); }

    static phone_t& sender() { return phones->alice_phone; }
    static void fault(const std::string& what) {
        EXPECT_EQ(zpd({"fault", "--dir", phones->folder / "modems", alice, what}).status, 0) << what;
    }
    static std::string file(const std::string& name, const std::string& octets) {
        return write_file(phones->folder / name, octets);
    }
    static arguments_t command(const arguments_t& arguments) {
        return joined(arguments, {"--device", sender().device()});
    }
    static outcome_t run(const arguments_t& arguments) { return zpd(command(arguments)); }
    static json outbox(const arguments_t& more = {}) {
        return json::parse(run(joined(joined({"outbox"}, more), {"--json"})).output)["messages"];
    }
    static std::string last_id() { return outbox({"list", "--all"}).back()["id"].dump(); }

    static std::unique_ptr<phones_t> phones;
};

std::unique_ptr<sending::phones_t> sending::phones;

TEST_F(sending, several_cards_go_to_several_numbers_and_each_tells_its_end) {
    const std::string two = file("two.vcf", ann + "BEGIN:VCARD\nFN:Bo\nEND:VCARD\n");
    const outcome_t told = run({"send", "--split", two, "--to", "+44 7700 900-102", "--to", carol, "--to", bob});
    EXPECT_EQ(told.status, 0) << told.errors;
    for (const std::string& line : {"[1/4] two.vcf (1 of 2) to " + bob, "[4/4] two.vcf (2 of 2) to " + carol}) {
        EXPECT_THAT(told.output, ContainsRegex(escaped(line) + " \\(message [0-9]+\\): sent, 1 datagram\n"));
    }
    const outcome_t as_json = run({"send", two, "--to", bob, "--json"});
    const json message = json::parse(as_json.output)["messages"][0];
    EXPECT_EQ(message["state"], "sent");
    EXPECT_EQ(message["contacts"][1]["name"], "Bo");
    EXPECT_TRUE(eventually([&] { return phones->bob_phone.stored().size() == 3; }));
    EXPECT_EQ(outbox(), json::array());
}

TEST_F(sending, what_the_network_refuses_is_set_aside_told_and_sent_after_all) {
    fault("refuse=1");
    const outcome_t told = run({"send", file("ann.vcf", ann), "--to", bob});
    const std::string id = last_id();
    EXPECT_EQ(told.status, 1);
    EXPECT_THAT(told.errors, AllOf(StartsWith("zpd send: ann.vcf (message " + id + "): set aside: "),
                                   HasSubstr("number (+CMS ERROR: 1): check the number; 0 of 1 datagram sent; send it"
                                             " after all with: zpd outbox retry " +
                                             id + "\n")));
    EXPECT_THAT(run({"outbox"}).output,
                AllOf(HasSubstr("  " + id + "  set aside  " + bob), HasSubstr("Ann Placeholder")));
    EXPECT_THAT(run({"outbox", "show", id}).output, HasSubstr("ann.vcf, " + std::to_string(ann.size()) + " octets"));
    EXPECT_THAT(run({"outbox", "retry", "--all"}).output, StartsWith("message " + id + ": "));
    EXPECT_TRUE(eventually([&] { return outbox() == json::array(); }));
    EXPECT_EQ(run({"outbox", "retry", id}).status, 1) << "it is sent";
    EXPECT_EQ(run({"outbox", "cancel", id}).status, 1);
    EXPECT_EQ(run({"outbox", "show", "100000"}).status, 1);
}

TEST_F(sending, a_command_that_is_ended_leaves_the_message_and_says_how_to_cancel_it) {
    fault("registration=denied");
    process_t interrupted(command({"send", file("ann.vcf", ann), "--to", bob}));
    EXPECT_TRUE(eventually([&] { return interrupted.output().find("denied") != std::string::npos; }))
        << interrupted.output();
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.wait(), 128 + SIGINT);
    const std::string first = last_id();
    EXPECT_EQ(interrupted.errors(), "zpd send: message " + first +
                                        " stays in the outbox and is sent; cancel it with: zpd outbox cancel " + first +
                                        "\n");
    const outcome_t late = run({"send", "--timeout", "0.1", ZPD_EXAMPLES "/photo.vcf", "--to", carol});
    EXPECT_EQ(late.status, 1);
    EXPECT_THAT(late.errors, HasSubstr("not sent in the time; message "));
    const outcome_t handed_in = run({"send", "--no-wait", file("ann.vcf", ann), "--to", carol, "--expires", "never"});
    EXPECT_EQ(handed_in.status, 0);
    EXPECT_EQ(handed_in.output, last_id() + "\n");
    EXPECT_EQ(outbox().back()["expires"], nullptr);
    EXPECT_THAT(run({"outbox", "cancel", "--all"}).output,
                HasSubstr(": cancelled; 0 of 167 datagrams had been sent\n"));
    EXPECT_TRUE(eventually([&] { return outbox() == json::array(); }));
}

TEST_F(sending, a_service_that_restarts_is_waited_for_and_sends_the_card_once) {
    fault("registration=denied");
    const size_t stored = phones->bob_phone.stored().size();
    process_t waiting(command({"send", file("bo.vcf", "BEGIN:VCARD\nFN:Bo\nEND:VCARD\n"), "--to", bob}));
    EXPECT_TRUE(eventually([&] { return outbox().size() == 1; }));
    sender().serve().signal(SIGKILL);
    sender().serve().wait();
    EXPECT_TRUE(eventually([&] { return waiting.errors().find("it is waited for") != std::string::npos; }));
    fault("registration=home");
    sender().start();
    EXPECT_EQ(waiting.wait(), 0) << waiting.errors();
    EXPECT_TRUE(eventually([&] { return phones->bob_phone.stored().size() > stored; }));
    EXPECT_EQ(phones->bob_phone.stored().size(), stored + 1);
}

TEST_F(sending, who_sits_at_a_terminal_is_asked_about_many_messages_and_what_is_no_card) {
    const arguments_t dear = command({"send", ZPD_EXAMPLES "/photo.vcf", "--to", bob});
    const size_t before = outbox({"list", "--all"}).size();
    for (const std::string answer : {"\n", "n\n", "yes\n"}) {
        EXPECT_EQ(outbox({"list", "--all"}).size(), before);
        terminal_t terminal(dear);
        EXPECT_TRUE(terminal.shows("zpd send: 167 SMS: send? [y/N] ")) << terminal.screen();
        terminal.type(answer);
        EXPECT_EQ(terminal.wait(), answer == "yes\n" ? 0 : W_EXITCODE(1, 0)) << terminal.screen();
    }
    EXPECT_EQ(outbox({"list", "--all"}).back()["state"], "sent");
    terminal_t unasked(joined(dear, {"--yes"}));
    EXPECT_EQ(unasked.wait(), 0);
    EXPECT_THAT(unasked.screen(), AllOf(Not(HasSubstr("[y/N]")), HasSubstr("\r\x1b[K")));

    const std::string no_card = file("no.vcf", "Ann");
    terminal_t terminal(command({"send", no_card, "--to", bob}));
    EXPECT_TRUE(terminal.shows("no.vcf is no vCard (no BEGIN:VCARD ... END:VCARD); send it all the same? [y/N] "));
    terminal.type("\x03");
    EXPECT_EQ(terminal.wait(), SIGINT);
    EXPECT_THAT(run({"send", no_card, "--to", bob}).errors, HasSubstr("; send it all the same: zpd send --force "));
    EXPECT_EQ(run({"send", no_card, "--to", bob, "--force"}).status, 0);
}

}  // namespace
