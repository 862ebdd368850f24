// A card appears in the folder whole, or not at all: under a reader's eyes, and wherever the disk fills up. For Linux
// alone, where the platform writes the files.

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <thread>

#include "com/miscio/mkdir.h"
#include "platform/linux/file_writes.h"
#include "tests/driver/phone.h"
#include "tests/incoming.h"

namespace {

constexpr const char* incoming[] = {ZPD_INCOMING_DIRECTORY, nullptr};
const std::string card_end = "\nEND:VCARD";
const std::string half(125, 'x');

class whole_files_test : public driver_test {
  protected:
    whole_files_test() {
        phone.preset("activated", 1);
        phone.start();
    }
    /// Stores a card of two datagrams, or tells why not.
    std::string store() {
        platform::begin_file_writes();
        radio.deliver(deliver_message(part_header(1, 2, 1), half));
        radio.deliver(deliver_message(part_header(1, 2, 2), half + card_end));
        const platform::file_writes_t writes = platform::file_writes();
        EXPECT_EQ(writes.written, writes.failure.empty() ? 1u : 0u);
        return writes.failure;
    }
    /// Every entry of the folder is a card, also those whose names no card has; there are `count`.
    void expect_cards(size_t count) {
        EXPECT_THAT(phone.cards(), testing::Each("+123:" + half + half + card_end));
        EXPECT_EQ(phone.incoming().size(), count);
    }
};

TEST_F(whole_files_test, a_reader_sees_no_part_of_a_card) {
    ASSERT_TRUE(make_directory(incoming));
    std::atomic<bool> over = false;
    size_t whole = 0;
    size_t parts = 0;
    std::thread reader([&] {
        for (bool is_last = false; !is_last;) {
            is_last = over;
            for (const auto& [name, octets] : phone.incoming()) {
                ++(octets.ends_with(card_end) ? whole : parts);
                remove(incoming_folder(phone.home()) / name);
            }
        }
    });
    for (size_t number = 0; number < 10'000; ++number) {
        EXPECT_TRUE(saveas(path_of(incoming) + TEXT("\\") + widen(std::to_string(number)),
                           std::string(number % 20'000, 'x') + card_end));
    }
    over = true;
    reader.join();
    EXPECT_EQ(whole, 10'000u);
    EXPECT_EQ(parts, 0u);
    std::printf("files seen: %zu stored whole, %zu in part\n", whole, parts);
}

TEST_F(whole_files_test, files_are_limited_in_size_to_whatever_place) {
    ASSERT_EQ(store(), "");
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const size_t size = phone.incoming().begin()->second.size();
    ASSERT_GT(size, 250u);
    for (size_t place = 0; place < size; ++place) {
        const rlimit small{place, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        EXPECT_THAT(store(), testing::EndsWith(": File too large"));
        setrlimit(RLIMIT_FSIZE, &before);
        expect_cards(1);
    }
    EXPECT_EQ(store(), "");
    expect_cards(2);
    std::printf("limited in size: %zu places, cards stored whole or not at all\n", size);
}

// Each call of a store in turn, on a file system with nameless files and on one without.
TEST_F(whole_files_test, the_host_refuses_whatever_call) {
    ASSERT_TRUE(make_directory(incoming));
    size_t stored = 0;
    size_t refused = 0;
    const auto store_without = [&](const std::string& call, int calls_before, bool has_nameless_files) {
        platform::testing::no_failures();
        platform::testing::fail_calls("O_TMPFILE", EOPNOTSUPP, has_nameless_files ? 0 : -1);
        platform::testing::fail_calls(call, ENOSPC, 1, calls_before);
        const std::string failure = store();
        EXPECT_THAT(failure, testing::AnyOf("", testing::EndsWith(": No space left on device")));
        ++(failure.empty() ? stored : refused);
        expect_cards(stored);
        return failure.empty();
    };
    for (const bool has_nameless_files : {true, false}) {
        for (const char* const call : {"open", "write", "fsync", "linkat", "rename"}) {
            for (int calls_before = 0; !store_without(call, calls_before, has_nameless_files); ++calls_before) {
            }
        }
    }
    store_without("O_TMPFILE", 0, true);
    EXPECT_EQ(refused, 12u);
    std::printf("calls refused: %zu places, %zu cards stored whole\n", refused, stored);
}

// As root, who may mount one: a file system with room for 15 cards, made full by one card more each time.
TEST_F(whole_files_test, the_disk_is_full) {
    ASSERT_TRUE(make_directory(incoming));
    const std::filesystem::path folder = incoming_folder(phone.home());
    if (mount("none", folder.c_str(), "tmpfs", 0, "size=60k") != 0) {
        GTEST_SKIP() << "only root can mount a file system";
    }
    for (size_t stored = 1; stored <= 15; ++stored) {
        EXPECT_EQ(store(), "");
    }
    for (int times = 0; times < 200; ++times) {
        EXPECT_THAT(store(), testing::EndsWith(": No space left on device"));
        expect_cards(15);
        remove(begin(std::filesystem::directory_iterator(folder))->path());
        EXPECT_EQ(store(), "");
    }
    umount2(folder.c_str(), MNT_DETACH);
}

}  // namespace
