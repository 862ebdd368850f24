// `zpd inbox` on a home, without a service.
#include "service/inbox.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "tests/incoming.h"
#include "tests/system/phones.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// A home whose cards a test puts there.
class inbox : public testing::Test {
  protected:
    inbox() { fs::create_directories(incoming_folder(home)); }

    /// `digits` begin the name of the file.
    std::string add(const std::string& digits, uint64_t time, const std::string& octets) const {
        const std::string name = digits + std::string(32 - digits.size(), '0');
        write_file(incoming_folder(home) / name, fmt::format("{}:+12025550100\n{}", time, octets));
        return name;
    }
    outcome_t run(const arguments_t& arguments) const { return zpd(joined({"inbox", "--home", home}, arguments)); }
    /// The files' names by the cards' numbers.
    std::map<uint64_t, std::string> numbers() const {
        std::map<uint64_t, std::string> files;
        const auto listed = nlohmann::json::parse(run({"--json"}).output, nullptr, false);
        for (const auto& card : listed["cards"]) {
            files[card["number"]] = card["file"];
        }
        return files;
    }

    const folder_t folder;
    const std::string home = folder / "home";
};

std::string named(const std::string& name) {
    return "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:" + name + "\r\nEND:VCARD\r\n";
}

using numbers_t = std::map<uint64_t, std::string>;

TEST_F(inbox, a_number_stays_and_is_never_given_again) {
    EXPECT_THAT(run({}).errors, "");
    EXPECT_FALSE(fs::exists(home + "/inbox.sqlite")) << "made without a card";
    const std::string b = add("b", 20, named("B"));
    const std::string a = add("a", 10, named("A"));
    const std::string c = add("c", 20, named("C"));
    EXPECT_EQ(numbers(), (numbers_t{{1, a}, {2, b}, {3, c}}));
    EXPECT_EQ(run({"remove", "3"}).status, 0);
    const std::string d = add("d", 1, named("D"));  // the phone's clock went back
    EXPECT_EQ(numbers(), (numbers_t{{1, a}, {2, b}, {4, d}}));
    fs::remove(incoming_folder(home) / d);
    EXPECT_EQ(run({"show", "4"}).status, 1);
    EXPECT_EQ(add("d", 1, named("D")), d);
    EXPECT_EQ(numbers(), (numbers_t{{1, a}, {2, b}, {5, d}}));
    fs::create_directory_symlink(home, folder / "link");
    EXPECT_THAT(zpd({"inbox", "--home", folder / "link"}).output, testing::ContainsRegex("   5  D .*\n$"));
    struct stat status {};
    ASSERT_EQ(stat((home + "/inbox.sqlite").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(inbox, all_who_ask_at_once_get_the_same_numbers) {
    constexpr size_t count = 100;
    for (size_t i = 0; i < count; ++i) {
        add(fmt::format("{:03}", i * 37 % count), i, named("A"));
    }
    inbox_t shared(home);
    std::vector<numbers_t> seen(6);
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&, i] {
            inbox_t own(home);  // as another process
            (i % 2 == 0 ? shared : own).list(0, [&](const inbox_t::numbered_card_t& one) {
                seen[i][one.number.value_or(0)] = one.card.name;
                return true;
            });
        });
    }
    threads.clear();
    const std::string late = add("f", 0, named("B"));
    EXPECT_EQ(shared.number_of(late), count + 1) << "the next one, without a look at the others";
    EXPECT_EQ(shared.number_of(late + "x"), std::nullopt);
    for (const numbers_t& one : seen) {
        EXPECT_EQ(one.size(), count);
        EXPECT_EQ(one, seen[0]);
    }
    EXPECT_EQ(seen[0].begin()->first, 1U);
}

TEST_F(inbox, shows_what_is_on_cards_in_words) {
    const std::string photo(14'000 / 3 * 4, 'A');
    add("a", 10,
        "BEGIN:VCARD\r\nVERSION:2.1\r\nN;ENCODING=QUOTED-PRINTABLE:Example;Zo=C3=AB\r\nTEL;HOME;CELL:+1\r\n"
        "TEL;TYPE=\"work,fax\":tel:+2\r\nNOTE:one\\ntwo\r\nX-PET;TYPE=cat:Mia\\, "
        "3\r\nPHOTO;ENCODING=BASE64;JPEG:\r\n " +
            photo + "\r\n\r\nKEY:data:application/pgp-keys;base64," + photo.substr(0, 40) + "\r\nEND:VCARD\r\n" +
            named("Second \x1b[1m") + "trailing\r\n");
    add("b", 20, "\xFF\xFE no card\n");
    const outcome_t shown = run({"show", "1"});
    for (const char* line :
         {"\n1 of 2: Zoë Example\n", "\n  name in parts: Example, Zoë\n", "\n  telephone (home, cell): +1\n",
          "\n  telephone (work, fax): +2\n", "\n  note: one two\n", "\n  X-PET;TYPE=cat:Mia\\, 3\n",
          "\n  photo: JPEG, 14 KB\n", "\n  key: PGP-KEYS, 30 octets\n", "\n2 of 2: Second \\x1B[1m\n"}) {
        EXPECT_THAT(shown.output, HasSubstr(line));
    }
    EXPECT_THAT(shown.output, Not(HasSubstr("AAAA")));
    EXPECT_THAT(run({"show", "1", "--raw"}).output, HasSubstr(photo));
    EXPECT_THAT(run({"show", "2"}).output, HasSubstr("No contact can be read on it"));
    const auto json = nlohmann::json::parse(run({"show", "--all", "--json"}).output, nullptr, false);
    EXPECT_THAT(json["cards"][0]["card"], HasSubstr(photo));
    EXPECT_EQ(json["cards"][1]["card"]["base64"], "//4gbm8gY2FyZAo=");
    EXPECT_EQ(json["cards"][0]["contacts"][0]["name"], "Zoë Example");
}

TEST_F(inbox, a_card_is_named_by_number_file_or_contact) {
    add("2a", 10, named("Zoë Łucja"));
    add("ab", 20, named("Ann Placeholder"));
    add("cd", 30, named("Ann Placeholder"));
    add("2", 40, named("Ben"));
    const auto number_of = [&](const std::string& name) {
        const outcome_t shown = run({"show", name});
        return shown.status == 0 ? shown.output.substr(0, shown.output.find(" from")) : shown.errors;
    };
    EXPECT_EQ(number_of("2"), "Card 2") << "though a file's name begins so";
    EXPECT_EQ(number_of("2A"), "Card 1");
    EXPECT_EQ(number_of("ZOË łucja"), "Card 1");
    EXPECT_EQ(number_of("cd0"), "Card 3");
    EXPECT_THAT(number_of("ann placeholder"),
                AllOf(HasSubstr("2 cards: 2 from +12025550100, 3 from"), HasSubstr("give")));
    EXPECT_EQ(number_of("20000000"), "Card 4");
    for (const char* none : {"7", "200", "0", "ann", "", "../x", "99999999999999999999", "2aa"}) {
        EXPECT_THAT(number_of(none), HasSubstr("see: zpd inbox")) << none;
    }
    EXPECT_EQ(run({"remove", "1", "7"}).status, 1);
    EXPECT_EQ(numbers().size(), 4U) << "removed though one of the names means nothing";
    EXPECT_EQ(run({"remove", "1", "2a", "Zoë Łucja"}).status, 0) << "one card by three names";
    for (const arguments_t& command : std::vector<arguments_t>{{"show"}, {"remove"}, {"export", "2", "--all"}}) {
        EXPECT_EQ(run(command).status, 2) << command[0];
    }
}

TEST_F(inbox, exports_whole_files_with_names_for_people) {
    add("a", 1, named("Ann Placeholder"));
    add("b", 2, named("ann placeholder"));
    add("c", 3, named("../..\\/\x1b etc: -"));
    add("d", 4, "BEGIN:VCARD\nORG:Ltd.\nEND:VCARD\n");
    add("e", 5, "no card");
    add("f", 6, named(std::string(97, 'x') + "ö"));
    const std::string cards = folder / "cards";
    const outcome_t exported = run({"export", "--all", "-d", cards});
    std::string paths;
    for (const std::string& name :
         {std::string("Ann Placeholder"), std::string("ann placeholder 2"), std::string("_..__ etc_ -"),
          std::string("Ltd"), std::string("card 5"), std::string(96, 'x')}) {
        paths += fmt::format("{}/{}.vcf\n", cards, name);
    }
    EXPECT_EQ(exported.output, paths) << exported.errors;
    EXPECT_EQ(read_file(cards + "/Ann Placeholder.vcf"), named("Ann Placeholder"));

    write_file(cards + "/Ann Placeholder.vcf", "mine");
    EXPECT_THAT(run({"export", "1", "-d", cards}).errors, HasSubstr("Ann Placeholder.vcf is there already; --force"));
    EXPECT_EQ(read_file(cards + "/Ann Placeholder.vcf"), "mine");
    const auto forced = run({"export", "1", "-d", cards, "--force", "--json"}).output;
    EXPECT_EQ(nlohmann::json::parse(forced, nullptr, false)["exported"][0]["path"], cards + "/Ann Placeholder.vcf");
    EXPECT_EQ(read_file(cards + "/Ann Placeholder.vcf"), named("Ann Placeholder"));
    EXPECT_EQ(run({"export", "5", "-o", "-"}).output, "no card");
    EXPECT_EQ(run({"export", "5", "-o", folder / "five"}).status, 0);
    EXPECT_EQ(read_file(folder / "five"), "no card");
    EXPECT_THAT(run({"export", "5", "-o", "/dev/null", "--force"}).errors, HasSubstr("it is a device"));
    EXPECT_THAT(run({"export", "5", "-o", folder / "no/where"}).errors, HasSubstr("No such file"));
    EXPECT_EQ(std::distance(fs::directory_iterator(cards), {}), 6) << "something unfinished was left";
    for (const arguments_t& wrong :
         std::vector<arguments_t>{{"1", "2", "-o", "-"}, {"--all", "-o", "x"}, {"1", "-o", "-", "--json"}}) {
        EXPECT_EQ(run(joined({"export"}, wrong)).status, 2);
    }
}

TEST_F(inbox, opens_a_card_with_the_desktops_program) {
    add("a", 1, named("Ann"));
    const std::string program = write_file(folder / "xdg-open", "#!/bin/sh\ncat \"$1\" >\"$0.shown\"\necho \"$1\"\n");
    fs::permissions(program, fs::perms::owner_all);
    const std::string path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
    const std::string with_program = std::string(folder / "") + ":" + path;
    setenv("PATH", with_program.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    const outcome_t opened = run({"open", "ann"});
    setenv("PATH", "/nowhere", 1);  // NOLINT(concurrency-mt-unsafe)
    const outcome_t without = run({"open", "1"});
    setenv("PATH", path.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    EXPECT_EQ(opened.status, 0) << opened.errors;
    EXPECT_EQ(read_file(folder / "xdg-open.shown"), named("Ann"));
    EXPECT_THAT(opened.output, HasSubstr("/Ann.vcf\n"));
    EXPECT_THAT(without.errors, HasSubstr("there is no xdg-open"));
    fs::remove_all(fs::path(opened.output).parent_path());
    const std::string left = without.errors.substr(without.errors.rfind(" /") + 1);
    fs::remove_all(fs::path(left).parent_path());
}

TEST_F(inbox, without_numbers_cards_have_their_names) {
    const std::string name = add("ab", 10, named("Ann"));
    add("cd", 20, named("Ben"));
    fs::create_directory(home + "/inbox.sqlite");  // as where nothing can be written
    const outcome_t listed = run({});
    EXPECT_EQ(listed.status, 0);
    EXPECT_THAT(listed.output, AllOf(testing::StartsWith("ab000000  Ann"), HasSubstr("\ncd000000  Ben")));
    EXPECT_THAT(listed.errors, AllOf(HasSubstr("without numbers"), HasSubstr("inbox.sqlite' is a folder")));
    EXPECT_THAT(run({"--json"}).output, HasSubstr("\"number\":null,\"file\":\"" + name));
    EXPECT_THAT(run({"show", "1"}).errors, HasSubstr("they have no numbers: "));
    EXPECT_EQ(run({"remove", "ab"}).status, 0);
    EXPECT_THAT(run({"show", "ben"}).output, testing::StartsWith("Card from"));
    EXPECT_EQ(run({"show", "ann"}).status, 1);
}

TEST_F(inbox, follows_what_arrives_until_a_signal) {
    add("a", 10, named("First"));
    process_t follower({"inbox", "--home", home, "--follow", "--json"});
    ASSERT_TRUE(eventually([&] { return follower.output().find("First") != std::string::npos; }));
    const std::string part = folder / "part";  // a card appears as a whole
    write_file(part, "5:+1\n" + named("Second"));
    fs::rename(part, incoming_folder(home) / std::string(32, 'b'));
    ASSERT_TRUE(eventually([&] { return follower.output().find("Second") != std::string::npos; })) << follower.errors();
    follower.signal(SIGINT);
    EXPECT_EQ(follower.wait(), 128 + SIGINT);
    const std::string output = follower.output();
    EXPECT_EQ(std::ranges::count(output, '\n'), 2) << output;
    EXPECT_THAT(output.substr(output.find('\n')), HasSubstr("\"number\":2"));
}

TEST_F(inbox, what_cannot_be_read_is_told) {
    const fs::path incoming = incoming_folder(home);
    const std::string name = "0123456789abcdef0123456789abcdef";
    write_file(incoming / name, "1700000000:+1\nA");
    const auto other = [&](const char* digit) { return incoming / (digit + name.substr(1)); };
    fs::create_directory(other("f"));  // no files, though named as such
    fs::create_symlink(incoming / name, other("e"));
    fs::create_symlink("/dev/zero", other("d"));
    mkfifo(other("c").c_str(), 0600);
    for (const arguments_t& command :
         std::vector<arguments_t>{{"list"}, {"show", "--all"}, {"export", "--all", "-d", folder / "out"}}) {
        const outcome_t listed = run(command);
        EXPECT_EQ(listed.status, 1);
        EXPECT_THAT(listed.output, AllOf(HasSubstr("1"), Not(HasSubstr("e1234567"))));
        for (const char* what : {"f123456789abcdef0123456789abcdef is a folder", "cdef is a link", "cdef is a FIFO"}) {
            EXPECT_THAT(listed.errors, HasSubstr(what)) << command[0];
        }
    }
    EXPECT_THAT(run({"show", "c"}).errors, HasSubstr("is a FIFO"));
    for (const arguments_t& command :
         std::vector<arguments_t>{{}, {"incomplete"}, {"export", "--all", "-d", folder / "nothing"}}) {
        const outcome_t outcome = zpd(joined({"inbox", "--home", folder / "nowhere"}, command));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.errors, HasSubstr("there is no home folder"));
    }
    EXPECT_FALSE(fs::exists(folder / "nothing"));

    fs::remove_all(incoming);
    write_file(incoming, "");
    for (const arguments_t& command : std::vector<arguments_t>{{"list"}, {"show", "0"}, {"export", "--all"}}) {
        const outcome_t outcome = run(command);
        EXPECT_EQ(outcome.status, 1) << command[0];
        EXPECT_THAT(outcome.errors, HasSubstr("INCOMING: Not a directory")) << command[0];
    }
}

}  // namespace
