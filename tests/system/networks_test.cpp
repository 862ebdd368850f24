// Phones on GSM, UMTS and CDMA, each with a driver of its own: cards cross between them in every direction.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>

#include "tests/system/phones.h"

namespace {

/// Octets of every value, of another beginning for each pair of phones.
std::string octets_between(size_t from, size_t to, size_t size) {
    std::string octets(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        octets[i] = static_cast<char>(from * 64 + to * 16 + i * 37 + i / 256);
    }
    return octets;
}

std::vector<std::string> received(const phone_t& phone) {
    std::vector<std::string> cards;
    for (const std::filesystem::path& file : phone.stored()) {
        const std::string text = read_file(file);
        cards.push_back(text.substr(text.find('\n') + 1));
    }
    return cards;
}

TEST(networks, cards_of_one_and_of_three_datagrams_cross_in_every_direction) {
    constexpr size_t sizes[] = {133, 300};
    const folder_t folder;
    const network_t network(folder, alice + "," + bob + ":umts," + carol + ":cdma");
    const std::string numbers[] = {alice, bob, carol};
    std::vector<std::unique_ptr<phone_t>> phones;
    for (const std::string& number : numbers) {
        phones.push_back(std::make_unique<phone_t>(folder, number, network.modem(number)));
        phones.back()->start({"--activate"});
    }
    std::vector<std::vector<std::string>> expected(phones.size());
    std::vector<std::unique_ptr<process_t>> sends;
    for (size_t from = 0; from < phones.size(); ++from) {
        ASSERT_TRUE(phones[from]->ready()) << phones[from]->serve().errors();
        for (size_t to = 0; to < phones.size(); ++to) {
            if (from == to) {
                continue;
            }
            arguments_t send{"send", "--binary", "--to", numbers[to], "--device", phones[from]->device()};
            for (const size_t size : sizes) {
                expected[to].push_back(octets_between(from, to, size));
                const std::string file = folder / (std::to_string(from) + std::to_string(to) + std::to_string(size));
                send.push_back(write_file(file, expected[to].back()));
            }
            sends.push_back(std::make_unique<process_t>(send));
        }
    }
    for (const auto& send : sends) {
        EXPECT_EQ(send->wait(), 0) << send->errors();
    }
    for (size_t to = 0; to < phones.size(); ++to) {
        EXPECT_TRUE(eventually([&] { return received(*phones[to]).size() >= expected[to].size(); }));
        EXPECT_THAT(received(*phones[to]), testing::UnorderedElementsAreArray(expected[to])) << numbers[to];
    }
}

}  // namespace
