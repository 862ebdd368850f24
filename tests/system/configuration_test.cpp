// What commands take from configuration files, what is told of files that cannot be meant so, and that zpd serve
// --print-config prints a file that says the same.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "tests/system/phones.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The user's own files, for as long as it lives.
class user_t {
  public:
    user_t() {
        std::filesystem::create_directories(folder_ / "zpd");
        setenv("XDG_CONFIG_HOME", (folder_ / "").c_str(), 1);
        setenv("HOME", "/home/ann", 1);
    }
    ~user_t() {
        setenv("XDG_CONFIG_HOME", "/nonexistent", 1);
        setenv("HOME", old_home_.c_str(), 1);
    }
    user_t(const user_t&) = delete;
    user_t& operator=(const user_t&) = delete;

    std::string configure(const std::string& text) const { return write_file(folder_ / "zpd/config", text); }
    std::string file(const std::string& text) const { return write_file(folder_ / "file.conf", text); }
    const folder_t& folder() const { return folder_; }

  private:
    folder_t folder_;
    std::string old_home_ = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
};

std::string printed(const arguments_t& arguments) {
    const outcome_t outcome = zpd(joined({"serve", "--print-config"}, arguments));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return outcome.output;
}

TEST(configuration, what_is_printed_says_the_same_when_it_is_the_file) {
    const user_t user;
    const arguments_t given{"--modem",    "a # b",          "--on-card", "it's \"\\ [one],\n two",
                            "--activate", "--set",          "prompt=20", "--set",
                            "listing=70", "--announcement", "2,1,0,0,0", "--log-size",
                            "1MB",        "--flow",         "hardware",  "--group",
                            "=x"};
    const std::string from_words = printed(joined(given, {"--config", "/dev/null"}));
    EXPECT_THAT(from_words, AllOf(HasSubstr("\nset = [prompt=20, listing=70]\n"), HasSubstr("\n# baud = 115200\n"),
                                  HasSubstr("\n# home = /home/ann/.local/share/zpd\n"), Not(HasSubstr("\n[serve]\n"))));
    EXPECT_EQ(printed({"--config", user.file(from_words)}), from_words);

    const std::string in_section = printed(given);
    user.configure(in_section);
    EXPECT_THAT(in_section, HasSubstr("\n[serve]\n"));
    EXPECT_EQ(printed({}), in_section);
    const std::string of_nothing = printed({"--config", "/dev/null"});
    EXPECT_EQ(printed({"--config", user.file(of_nothing)}), of_nothing);
}

TEST(configuration, the_command_line_comes_before_the_section_and_this_before_what_is_common) {
    const user_t user;
    user.configure(
        "device = COMMON\r\nhome = ~/phone # a comment\r\n\r\n[send]\nno-wait = true\n"
        "[serve]\ndevice = 'OWN'\nmodem = usb#1\npin-file = ../pin\nactivate = false\nset = [\n  prompt=20, # one\n "
        "\"listing=70\",\n]\n");
    const std::string file = printed({});
    for (const std::string& line :
         arguments_t{"device = OWN", "home = /home/ann/phone", "modem = \"" + user.folder() / "zpd/usb#1\"",
                     "pin-file = " + user.folder() / "pin", "# activate = false", "set = [prompt=20, listing=70]"}) {
        EXPECT_THAT(file, HasSubstr("\n" + line + "\n"));
    }
    EXPECT_THAT(printed({"--device", "WORD", "--set", "silence=50"}),
                AllOf(HasSubstr("\ndevice = WORD\n"), HasSubstr("\nset = [silence=50]\n")));
    const outcome_t above = zpd({"--device", "ABOVE", "serve", "--print-config"});
    EXPECT_THAT(above.output, HasSubstr("\ndevice = ABOVE\n"));
    EXPECT_THAT(zpd({"outbox"}).errors, HasSubstr("no service runs on device COMMON"));
    EXPECT_THAT(zpd({"inbox"}).errors, HasSubstr("there is no home folder /home/ann/phone"));
    // What the file has against the words of the command line is left out.
    EXPECT_THAT(zpd({"send", ZPD_EXAMPLES "/names.vcf", "--to", "1", "--timeout", "1"}).errors, HasSubstr("COMMON"));
}

TEST(configuration, what_cannot_be_meant_is_told_with_its_place) {
    const user_t user;
    const std::pair<const char*, const char*> wrong[] = {
        {"\nmodm = x", ":2: 'modm' is no setting of zpd serve; did you mean 'modem'?"},
        {"print-config = true", ":1: 'print-config' is no setting of zpd serve;"},
        {"config = x", ":1: 'config' is no setting"},
        {"[serve]\nbaud = 9600", ":2: a file of --config has no sections: [serve]"},
        {"baud = 7", ":1: baud: 7 not in {"},
        {"baud = [9600, 19200]", ":1: baud: "},
        {"baud = 9600\nbaud = 9600", ":2: 'baud' stands in line 1 already"},
        {"activate = yes", ":1: activate is true or false"},
        {"set = [prompt=20,\n listing=1000000]", ":1: set: the limit 'listing' takes "},
        {"modem =\n", ":1: there is no value"},
        {"modem = ''", ":1: modem: the modem's tty is empty"},
        {"modem = \"x", ":1: a quote is not closed"},
        {"modem = \"\\x\"", ":1: in double quotes"},
        {"modem = 'x' y", ":1: there is more on the line"},
        {"set = [prompt=20\nsilence=50]", ":2: a list is [VALUE, VALUE]"},
        {"modem", ":1: a line is NAME = VALUE"},
        {"[serve", ":1: a section is [NAME]"},
        {"pin-unchecked = true\nmodem = x", "--pin-unchecked needs --pin-file"},
        {"# nothing", "the modem is missing"},
    };
    for (const auto& [text, words] : wrong) {
        const std::string file = user.file(text);
        const outcome_t outcome = zpd({"serve", "--config", file});
        EXPECT_EQ(outcome.status, 2) << text;
        EXPECT_THAT(outcome.errors, HasSubstr(words[0] == ':' ? file + words : words)) << text;
    }
    // Of the user's file a command looks at what is common, and at its own.
    user.configure("[serve]\nmodm = x\n");
    EXPECT_EQ(zpd({"serve"}).status, 2);
    EXPECT_THAT(zpd({"send", ZPD_EXAMPLES "/names.vcf", "--to", "1"}).errors, HasSubstr("no service runs"));
    for (const char* text : {"[sned]\nyes = true", "modem = x", "[outbox]\nall = true"}) {
        user.configure(text);
        EXPECT_EQ(zpd({"outbox"}).status, 2) << text;
    }
}

TEST(configuration, only_a_file_that_nobody_else_writes_is_taken) {
    const user_t user;
    const std::string file = user.configure("device = X\n");
    chmod(file.c_str(), 0664);
    EXPECT_THAT(zpd({"outbox"}).errors, HasSubstr("can be written by others: chmod go-w '" + file + "'"));
    chmod(file.c_str(), 0644);
    std::filesystem::create_symlink(file, user.folder() / "link");
    EXPECT_THAT(zpd({"serve", "--config", user.folder() / "link"}).errors, HasSubstr("the modem is missing"));
    EXPECT_THAT(zpd({"serve", "--config", user.folder() / "none"}).errors, HasSubstr("No such file or directory"));
    EXPECT_THAT(zpd({"serve", "--config", user.folder() / "zpd"}).errors,
                HasSubstr("is a folder where a file belongs"));
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_EQ(zpd({"outbox"}).status, 2);
}

TEST(configuration, a_service_runs_by_its_file_alone) {
    const user_t user;
    const network_t network(user.folder(), bob);
    user.configure("device = " + user.folder() / "bob.device\nhome = bob\n[serve]\nactivate = true\nmodem = " +
                   network.modem(bob) + "\n");
    process_t serve({"serve"});
    ASSERT_TRUE(serve.wait_for_line("ready")) << serve.errors();
    EXPECT_THAT(zpd({"activation"}).output, testing::StartsWith("on:"));
    EXPECT_TRUE(std::filesystem::exists(user.folder() / "zpd/bob/registry.sqlite"));
    serve.signal(SIGTERM);
    EXPECT_EQ(serve.wait(), 0);
}

}  // namespace
