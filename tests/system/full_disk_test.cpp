// Cards that come while the disk is full, to whatever page.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <fstream>
#include <set>
#include <thread>

#include "tests/network/at_host.h"
#include "tests/system/phones.h"

namespace {

/// As root, who may mount one: a home with room for some hundred pages, of which so many are left.
TEST(full_disk, no_card_is_lost_wherever_the_room_ends) {
    const folder_t folder;
    const network_t network(folder);
    network::host_t sender(network.modem(alice));
    phone_t phone(folder, "bob", network.modem(bob));
    std::filesystem::create_directory(phone.home());
    if (mount("none", phone.home().c_str(), "tmpfs", 0, "size=8m,mode=700") != 0) {
        GTEST_SKIP() << "only root can mount a file system";
    }
    phone.start({"--activate", "--set", "storing-again=1"});
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    const std::filesystem::path filler = phone.home() + "/filler";
    constexpr int places = 200;
    std::set<std::string> cards;
    for (int place = 0; place < places; ++place) {
        const auto room = std::filesystem::space(phone.home()).available;
        const auto left = static_cast<uintmax_t>(place % 40) * 4096;
        std::ofstream(filler).close();
        std::filesystem::resize_file(filler, 0);
        std::ofstream(filler, std::ios::binary) << std::string(room > left ? room - left : 0, 'x');
        const std::string card = "card " + std::to_string(place) + std::string(100, '.');
        cards.insert(card);
        for (const std::string& tpdu : submissions(card, static_cast<unsigned>(place), 100)) {
            sender.submit(tpdu);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::filesystem::remove(filler);
    }
    const auto stored = [&] {
        std::multiset<std::string> found;
        for (const auto& file : phone.stored()) {
            const std::string text = read_file(file);
            found.insert(text.substr(text.find('\n') + 1));
        }
        return found;
    };
    EXPECT_TRUE(eventually([&] { return stored().size() >= cards.size(); })) << phone.serve().errors();
    EXPECT_THAT(stored(), testing::UnorderedElementsAreArray(cards));
    EXPECT_NE(phone.serve().errors().find("disk is full"), std::string::npos) << "told";
    std::printf("full disk: %d places, %zu cards stored once\n", places, stored().size());
    phone.serve().signal(SIGTERM);
    phone.serve().wait();
    umount2(phone.home().c_str(), MNT_DETACH);
}

}  // namespace
