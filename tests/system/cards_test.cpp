// Cards sent by `zpd send` on one phone and found in the inbox of another, octet for octet and exactly once.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "client/client.h"
#include "com/zpd/zpd_ioctl.h"
#include "tests/incoming.h"
#include "tests/system/phones.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class cards : public testing::Test {
  protected:
    struct pair_t {
        folder_t folder;
        network_t network{folder};
        phone_t sender{folder, "alice", network.modem(alice)};
        phone_t receiver{folder, "bob", network.modem(bob)};
    };

    static void SetUpTestSuite() {
        phones = std::make_unique<pair_t>();
        phones->sender.start();
        phones->receiver.start({"--activate"});
        ASSERT_TRUE(phones->sender.ready()) << phones->sender.serve().errors();
        ASSERT_TRUE(phones->receiver.ready()) << phones->receiver.serve().errors();
    }

    static void TearDownTestSuite() { phones.reset(); }

    static outcome_t send(const arguments_t& arguments) {
        return phones->sender.zpd(joined(joined({"send"}, arguments), {"--to", bob}));
    }

    static std::string card_file(const std::string& name, const std::string& octets) {
        return write_file(phones->folder / name, octets);
    }

    static void clear_inbox() {
        for (const fs::path& file : phones->receiver.stored()) {
            EXPECT_EQ(phones->receiver.inbox({"remove", file.filename()}).status, 0);
        }
        EXPECT_TRUE(phones->receiver.stored().empty());
    }

    /// The cards that the receiver has stored, without the line that the driver puts before each.
    static std::vector<std::string> received() {
        std::vector<std::string> bodies;
        for (const fs::path& file : phones->receiver.stored()) {
            const std::string text = read_file(file);
            bodies.push_back(text.substr(text.find('\n') + 1));
        }
        std::sort(bodies.begin(), bodies.end());
        return bodies;
    }

    static std::unique_ptr<pair_t> phones;
};

std::unique_ptr<cards::pair_t> cards::phones;

/// A card of exactly `size` octets.
std::string card_of(size_t size) {
    const std::string begin = "BEGIN:VCARD\r\nVERSION:2.1\r\nNOTE:";
    const std::string end = "\r\nEND:VCARD\r\n";
    std::string note(size - begin.size() - end.size(), ' ');
    for (size_t i = 0; i < note.size(); ++i) {
        note[i] = static_cast<char>('!' + i * 7 % 90);
    }
    return begin + note + end;
}

/// Octets of every value.
std::string binary_of(size_t size) {
    std::string octets(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        octets[i] = static_cast<char>(i * 37 + i / 256);
    }
    return octets;
}

std::vector<std::string> sorted_contents(const std::string& folder) {
    std::vector<std::string> contents;
    for (const fs::path& file : fs::directory_iterator(folder)) {
        contents.push_back(read_file(file));
    }
    std::sort(contents.begin(), contents.end());
    return contents;
}

std::string upper(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char letter) { return std::toupper(letter); });
    return text;
}

TEST_F(cards, arrive_octet_for_octet_exactly_once) {
    clear_inbox();
    std::vector<arguments_t> sends{
        {card_file("one.vcf", card_of(133))},
        {card_file("two.vcf", card_of(134))},
        {card_file("long-reference.vcf", card_of(1000)), "--long-reference"},
        {card_file("latin1.vcf", "BEGIN:VCARD\r\nN:M\xfcller\r\nEND:VCARD\r\n"), "--binary"},
        {card_file("largest.vcf", binary_of(32640)), "--binary"},
    };
    for (const fs::path& example : fs::directory_iterator(ZPD_EXAMPLES)) {
        if (example.extension() == ".vcf") {
            sends.push_back({example});
        }
    }
    ASSERT_GE(sends.size(), 8U);

    std::vector<std::string> sent;
    for (const arguments_t& arguments : sends) {
        const outcome_t outcome = send(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments[0] << ": " << outcome.errors;
        sent.push_back(read_file(arguments[0]));
    }
    std::sort(sent.begin(), sent.end());

    EXPECT_TRUE(eventually([&] { return received() == sent; }));
    const std::string exported = phones->folder / "exported";
    EXPECT_EQ(phones->receiver.inbox({"export", "--all", "-d", exported}).status, 0);
    EXPECT_TRUE(sorted_contents(exported) == sent) << "not what was sent";
    const std::string by_service = phones->folder / "exported by the service";
    EXPECT_EQ(phones->receiver.zpd({"inbox", "export", "--all", "-d", by_service}).status, 0);
    EXPECT_TRUE(sorted_contents(by_service) == sent) << "not what was sent";
    EXPECT_EQ(phones->sender.zpd({"list"}).status, 0);
    EXPECT_EQ(phones->sender.ioctl("0x0200001C").output, phones->receiver.ioctl("0x0200001C").output)
        << "a message was left open";
}

TEST_F(cards, are_the_same_in_the_home_and_through_the_service) {
    clear_inbox();
    // A colour, and a control sequence introducer of one character.
    const std::string card = "BEGIN:VCARD\r\nVERSION:2.1\r\nFN:Eve \x1b[31mRed \xC2\x9B\r\nEND:VCARD\r\n";
    const phone_t& phone = phones->receiver;
    const auto at_service = [&](const arguments_t& arguments) { return phone.zpd(joined({"inbox"}, arguments)); };
    process_t follower({"inbox", "--follow", "--device", phone.device()});
    ASSERT_EQ(send({card_file("eve.vcf", card)}).status, 0);
    ASSERT_TRUE(eventually([&] { return follower.output().find("Eve") != std::string::npos; })) << follower.errors();
    follower.signal(SIGTERM);
    EXPECT_EQ(follower.wait(), 128 + SIGTERM);

    const std::string file = phone.stored().at(0).filename();
    const auto list = nlohmann::json::parse(at_service({"--json"}).output, nullptr, false);
    EXPECT_THAT(list.dump(), AllOf(HasSubstr(file), HasSubstr(alice)));
    const std::string number = list["cards"][0]["number"].dump();
    for (const arguments_t& arguments : std::vector<arguments_t>{
             {}, {"list"}, {"--json"}, {"show", number}, {"show", file, "--raw"}, {"show", upper(file), "--json"}}) {
        const outcome_t outcome = phone.inbox(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_THAT(outcome.output,
                    AllOf(HasSubstr("Eve"), HasSubstr("Red"), Not(HasSubstr("\x1b")), Not(HasSubstr("\x9b"))));
        EXPECT_EQ(at_service(arguments).output, outcome.output) << testing::PrintToString(arguments);
    }
    EXPECT_EQ(at_service({"export", number, "-o", "-"}).output, card);
    EXPECT_EQ(at_service({"remove", number}).status, 0);
    EXPECT_TRUE(phone.stored().empty());
    EXPECT_THAT(at_service({"remove", number}).errors, HasSubstr("there is no card " + number + "; see: zpd inbox"));
    EXPECT_EQ(at_service({"show", "../../registry.sqlite"}).status, 1);
    EXPECT_TRUE(fs::exists(phone.home() + "/registry.sqlite"));
}

TEST_F(cards, of_more_than_an_answer_holds_are_all_listed) {
    clear_inbox();
    constexpr size_t count = 700;
    for (size_t i = 0; i < count; ++i) {
        const std::string octets = i == 300 ? binary_of(32640) + binary_of(32640) + binary_of(32640) : card_of(134);
        write_file(incoming_folder(phones->receiver.home()) / fmt::format("{:032x}", i * 7919 % 1000),
                   fmt::format("{}:{}\n{}", 1'700'000'000 + i, alice, octets));
    }
    const phone_t& phone = phones->receiver;
    const outcome_t listed = phone.zpd({"inbox", "--json"});
    EXPECT_TRUE(listed.output == phone.inbox({"--json"}).output) << listed.errors;
    const auto list = nlohmann::json::parse(listed.output, nullptr, false)["cards"];
    ASSERT_EQ(list.size(), count);
    const uint64_t first = list[0]["number"];
    for (size_t i = 0; i < count; ++i) {
        EXPECT_EQ(list[i]["number"], first + i);
        EXPECT_EQ(list[i]["received"], 1'700'000'000 + i);
    }
    EXPECT_EQ(phone.zpd({"inbox", "export", list[300]["number"].dump(), "-o", "-"}).output.size(), 3 * 32640U);
    EXPECT_EQ(phone.zpd({"inbox", "remove", "--all"}).status, 2) << "nobody said yes";
    EXPECT_EQ(phone.zpd({"inbox", "remove", "--all", "--yes"}).status, 0);
    EXPECT_TRUE(phone.stored().empty());
    // A request without its numbers, one for an answer that has no room, and one for a card that is not there.
    EXPECT_THAT(phone.ioctl("0x5A500008").output, HasSubstr("13"));
    EXPECT_THAT(phone.ioctl("0x5A500008", {"--in", "0000000000000000", "--out", "10"}).output, HasSubstr("122"));
    EXPECT_THAT(phone.ioctl("0x5A50000A", {"--in", "0000000000000000"}).output, HasSubstr("1168"));
}

TEST_F(cards, a_message_of_another_client_can_be_watched_and_closed_by_hand) {
    const phone_t& phone = phones->sender;
    auto device = client::client_t::connect(phone.device());
    ASSERT_TRUE(device) << device.failure().text;
    const auto message = device->send({.octets = card_of(300)}, bob);
    ASSERT_TRUE(message) << message.failure().text;
    const std::string id = std::to_string(*message);
    const std::vector<uint32_t> all_sent(3, ZPD_STATUS_SENT);
    EXPECT_TRUE(eventually([&] { return *device->status(*message) == all_sent; }));
    EXPECT_THAT(phone.zpd({"list"}).output, HasSubstr(id + "  3 of 3 datagrams sent; close it with: zpd close " + id));
    EXPECT_EQ(phone.zpd({"status", id}).status, 0);
    EXPECT_EQ(phone.zpd({"close", id}).status, 0);
    EXPECT_EQ(phone.zpd({"close", id}).status, 1);
    EXPECT_EQ(phone.zpd({"status", id}).status, 1);
}

TEST_F(cards, a_card_may_come_through_a_fifo) {
    const std::string fifo = phones->folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::jthread writer([&] { write_file(fifo, card_of(134)); });
    EXPECT_THAT(zpd({"count", fifo}).output, HasSubstr("134 octets, 2 datagrams"));
}

TEST_F(cards, what_cannot_be_sent_is_told_and_sends_nothing) {
    const std::string good = ZPD_EXAMPLES "/one-datagram.vcf";
    const std::tuple<arguments_t, std::string, int> cases[] = {
        {{"nowhere.vcf", "--to", bob}, "nowhere.vcf", 1},
        {{card_file("empty.vcf", ""), "--to", bob}, "empty", 1},
        {{phones->folder / "modems", "--to", bob}, "modems", 1},
        {{card_file("over.vcf", binary_of(32641)), "--binary", "--to", bob}, "32640", 1},
        {{card_file("over-long.vcf", card_of(32386)), "--long-reference", "--to", bob}, "32385", 1},
        // 128 continuation octets and no place to cut; a character cut short.
        {{card_file("broken.vcf", card_of(100) + std::string(200, '\x80')), "--to", bob}, "UTF-8", 1},
        {{card_file("short.vcf", card_of(100) + "\xc3"), "--to", bob}, "UTF-8", 1},
        {{good, "--to", "letters"}, "letters", 2},
        {{good, "--to", ""}, "", 2},
        {{good, "--to", std::string(200, '1')}, "digits", 2},
        {{good, "--to", std::string(300, '1')}, "digits", 2},
        {{good, "--to", "+44\r\nAT+CMGD=1"}, "x0D", 2},
        // One bad card of several: none is sent.
        {{good, "nowhere.vcf", "--to", bob}, "nowhere.vcf", 1},
    };
    for (const auto& [arguments, error, status] : cases) {
        const outcome_t outcome = phones->sender.zpd(joined({"send"}, arguments));
        EXPECT_EQ(outcome.status, status) << testing::PrintToString(arguments);
        EXPECT_THAT(outcome.errors, AllOf(HasSubstr(error), testing::SizeIs(testing::Gt(5U))));
    }
    EXPECT_EQ(phones->sender.ioctl("0x0200001C").output, phones->receiver.ioctl("0x0200001C").output);
    EXPECT_EQ(zpd({"send", good, "--to", bob, "--device", phones->folder / "nobody"}).status, 1);
}

}  // namespace
