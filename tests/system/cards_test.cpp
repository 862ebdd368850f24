// Cards sent by `zpd send` on one phone and found in the inbox of another, octet for octet and exactly once.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
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
    EXPECT_EQ(phones->receiver.inbox({"export", exported}).status, 0);
    EXPECT_TRUE(sorted_contents(exported) == sent) << "not what was sent";
    EXPECT_EQ(phones->sender.zpd({"list"}).status, 0);
    EXPECT_EQ(phones->sender.ioctl("0x0200001C").output, phones->receiver.ioctl("0x0200001C").output)
        << "a message was left open";
}

TEST_F(cards, inbox_lists_shows_exports_and_removes) {
    clear_inbox();
    // A colour, and a control sequence introducer of one character.
    const std::string card = "BEGIN:VCARD\r\nVERSION:2.1\r\nFN:Eve \x1b[31mRed \xC2\x9B\r\nEND:VCARD\r\n";
    ASSERT_EQ(send({card_file("eve.vcf", card)}).status, 0);
    const phone_t& phone = phones->receiver;
    ASSERT_TRUE(eventually([&] { return phone.inbox({"list"}).output.find("Eve") != std::string::npos; }));
    const std::string name = phone.stored().at(0).filename();

    const nlohmann::json list = nlohmann::json::parse(phone.inbox({"list", "--json"}).output, nullptr, false);
    EXPECT_THAT(list.dump(), AllOf(HasSubstr(name), HasSubstr(alice)));
    for (const arguments_t& arguments :
         std::vector<arguments_t>{{}, {"list"}, {"show", upper(name)}, {"list", "--json"}, {"show", name, "--json"}}) {
        const outcome_t outcome = phone.inbox(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_THAT(outcome.output,
                    AllOf(HasSubstr("Eve"), HasSubstr("Red"), Not(HasSubstr("\x1b")), Not(HasSubstr("\x9b"))));
    }
    const std::string exported = phones->folder / "exported-eve";
    EXPECT_EQ(phone.inbox({"export", exported}).status, 0);
    EXPECT_THAT(sorted_contents(exported), testing::ElementsAre(card));

    EXPECT_EQ(phone.inbox({"remove", name}).status, 0);
    EXPECT_TRUE(phone.stored().empty());
    EXPECT_EQ(phone.inbox({"remove", name}).status, 1);
    EXPECT_EQ(phone.inbox({"show", "../../registry.sqlite"}).status, 1);
    EXPECT_TRUE(fs::exists(phone.home() + "/registry.sqlite"));
}

TEST_F(cards, a_message_can_be_watched_and_closed_by_hand) {
    const phone_t& phone = phones->sender;
    ASSERT_EQ(send({ZPD_EXAMPLES "/names.vcf", "--no-wait"}).status, 0);
    auto device = client::client_t::connect(phone.device());
    ASSERT_TRUE(device) << device.failure().text;
    const auto messages = device->list();
    ASSERT_EQ(messages->ids.size(), 1U);
    const std::string id = std::to_string(messages->ids[0]);
    EXPECT_THAT(phone.zpd({"list"}).output, HasSubstr(id));
    const std::vector<uint32_t> all_sent(7, ZPD_STATUS_SENT);
    EXPECT_TRUE(eventually([&] { return *device->status(messages->ids[0]) == all_sent; }));
    EXPECT_EQ(phone.zpd({"status", id}).status, 0);
    EXPECT_EQ(phone.zpd({"close", id}).status, 0);
    EXPECT_EQ(phone.zpd({"close", id}).status, 1);
    EXPECT_EQ(phone.zpd({"status", id}).status, 1);
}

TEST(inbox, what_cannot_be_read_is_told) {
    const folder_t folder;
    const fs::path incoming = incoming_folder(folder / "home");
    fs::create_directories(incoming);
    const std::string name = "0123456789abcdef0123456789abcdef";
    write_file(incoming / name, "1700000000:+1\nA");
    const auto other = [&](const char* digit) { return incoming / (digit + name.substr(1)); };
    fs::create_directory(other("f"));  // no files, though named as such
    fs::create_symlink(incoming / name, other("e"));
    fs::create_symlink("/dev/zero", other("d"));
    mkfifo(other("c").c_str(), 0600);
    for (const arguments_t& command : std::vector<arguments_t>{{"list"}, {"export", folder / "cards"}}) {
        const outcome_t listed = zpd(joined({"inbox", "--home", folder / "home"}, command));
        EXPECT_EQ(listed.status, 1);
        EXPECT_THAT(listed.output, AllOf(HasSubstr("01234567"), Not(HasSubstr("e1234567"))));
        for (const char* what : {"f123456789abcdef0123456789abcdef is a folder", "cdef is a link", "cdef is a FIFO"}) {
            EXPECT_THAT(listed.errors, HasSubstr(what)) << command[0];
        }
    }
    EXPECT_THAT(zpd({"inbox", "--home", folder / "home", "show", "c"}).errors, HasSubstr("is a FIFO"));
    EXPECT_EQ(zpd({"inbox", "--home", folder / "home", "remove", "c"}).status, 0);
    EXPECT_FALSE(fs::exists(other("c")));
    EXPECT_EQ(zpd({"inbox", "--home", folder / "home", "--json", "export", folder / "out"}).status, 2);
    for (const arguments_t& command : std::vector<arguments_t>{{}, {"incomplete"}, {"export", folder / "out"}}) {
        const outcome_t outcome = zpd(joined({"inbox", "--home", folder / "nowhere"}, command));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.errors, HasSubstr("there is no home folder"));
    }
    EXPECT_FALSE(fs::exists(folder / "out"));

    fs::remove_all(incoming);
    write_file(incoming, "");
    for (const arguments_t& command : std::vector<arguments_t>{{"list"}, {"show", "0"}, {"export", folder / "out"}}) {
        const outcome_t outcome = zpd(joined({"inbox", "--home", folder / "home"}, command));
        EXPECT_EQ(outcome.status, 1) << command[0];
        EXPECT_THAT(outcome.errors, HasSubstr("INCOMING: Not a directory")) << command[0];
    }
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
