// Cards sent by `zpd send` on one phone and found in the inbox of another, octet for octet and exactly once.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

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

    static outcome_t send(arguments_t arguments) {
        arguments.insert(arguments.begin(), "send");
        arguments.insert(arguments.end(), {"--to", bob});
        return phones->sender.zpd(arguments);
    }

    static std::string card_file(const std::string& name, const std::string& octets) {
        return write_file(phones->folder / name, octets);
    }

    static void clear_inbox() {
        for (const fs::path& file : phones->receiver.stored())
            EXPECT_EQ(phones->receiver.inbox({"remove", file.filename()}).status, 0);
        EXPECT_TRUE(phones->receiver.stored().empty());
    }

    static std::unique_ptr<pair_t> phones;
};

std::unique_ptr<cards::pair_t> cards::phones;

/// A card of exactly `size` octets.
std::string card_of(size_t size) {
    const std::string begin = "BEGIN:VCARD\r\nVERSION:2.1\r\nNOTE:";
    const std::string end = "\r\nEND:VCARD\r\n";
    std::string note(size - begin.size() - end.size(), ' ');
    for (size_t i = 0; i < note.size(); ++i)
        note[i] = static_cast<char>('!' + i * 7 % 90);
    return begin + note + end;
}

/// Octets of every value.
std::string binary_of(size_t size) {
    std::string octets(size, '\0');
    for (size_t i = 0; i < size; ++i)
        octets[i] = static_cast<char>(i * 37 + i / 256);
    return octets;
}

std::vector<std::string> sorted_contents(const std::string& folder) {
    std::vector<std::string> contents;
    for (const fs::path& file : fs::directory_iterator(folder))
        contents.push_back(read_file(file));
    std::sort(contents.begin(), contents.end());
    return contents;
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
    for (const fs::path& example : fs::directory_iterator(ZPD_EXAMPLES))
        sends.push_back({example});
    ASSERT_GE(sends.size(), 8U);

    std::vector<std::string> sent;
    for (const arguments_t& arguments : sends) {
        const outcome_t outcome = send(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments[0] << ": " << outcome.errors;
        sent.push_back(read_file(arguments[0]));
    }
    std::sort(sent.begin(), sent.end());

    EXPECT_TRUE(eventually([&] { return phones->receiver.stored().size() >= sent.size(); }));
    const std::string exported = phones->folder / "exported";
    EXPECT_EQ(phones->receiver.inbox({"export", exported}).status, 0);
    EXPECT_TRUE(sorted_contents(exported) == sent) << "not what was sent";
    EXPECT_EQ(phones->sender.zpd({"list"}).status, 0);
    EXPECT_EQ(phones->sender.ioctl("0x0200001C").output, phones->receiver.ioctl("0x0200001C").output)
        << "a message was left open";
}

}  // namespace
