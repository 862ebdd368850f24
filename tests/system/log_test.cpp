// The driver's log: its bound, and what `zpd log` shows of it.
#include <gmock/gmock.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "client/client.h"
#include "com/zpd/zpd_ioctl.h"
#include "tests/system/phones.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

fs::path log_file(fs::path home) {
    for (const char* const name : {ZPD_LOG_DIRECTORY, ZPD_LOG_FILE}) {
        home /= name;
    }
    return home;
}

uintmax_t size_of(const fs::path& file) {
    std::error_code none;
    const uintmax_t size = fs::file_size(file, none);
    return none ? 0 : size;
}

/// Asks for messages that do not exist, by the numbers that are given: the driver logs each as an error.
void ask_for(const phone_t& phone, uint32_t first, uint32_t count) {
    auto device = client::client_t::connect(phone.device());
    ASSERT_TRUE(device) << device.failure().text;
    for (uint32_t number = first; number < first + count; ++number) {
        EXPECT_FALSE(device->status(number));
    }
}

std::string told_of(uint32_t number) {
    return "message by id='" + std::to_string(number) + "' not found";
}

TEST(log, is_shown_by_level_and_safe_to_look_at) {
    const folder_t folder;
    const std::string home = folder / "home";
    const fs::path file = log_file(home);
    fs::create_directories(file.parent_path());
    EXPECT_THAT(zpd({"log", "--home", home}).errors, HasSubstr("there is no log " + file.native()));
    const auto line = [](const std::string& thread, const std::string& rest) {
        return "[monotonic=n/a (TZ=n/a,GMT) 2026-01-31 12:00:00 'ZPD'] [" + thread + "," + thread + "] " + rest + "\n";
    };
    const std::string error = line("0x1", "ERROR at a.cpp:1 in f:");
    const std::string error_message = line("0x1", "-- an error");
    const std::string of_a_client = "of a client: \x1b[31m ERROR";
    write_file(file.native() + ".1", line("0x2", "DEBUG at b.cpp:2 in g:") + error + line("0x2", "-- debug"));
    write_file(file, error_message + of_a_client + "\n" + line("0x2", "DEBUG: at b.cpp:2 in g") + "cut");

    const std::string shown_client = "of a client: \\x1B[31m ERROR\n";
    EXPECT_EQ(zpd({"log", "--home", home, "--level", "3"}).output, error + error_message + shown_client);
    const outcome_t all = zpd({"log", "--home", home});
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(std::ranges::count(all.output, '\n'), 6) << "a line whose end is not written yet is none";

    std::istringstream objects(zpd({"log", "--home", home, "--json"}).output);
    std::vector<nlohmann::json> lines;
    for (std::string object; std::getline(objects, object);) {
        lines.push_back(nlohmann::json::parse(object, nullptr, false));
    }
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[2]["level"], 7);
    EXPECT_EQ(lines[3], nlohmann::json(
                            {{"time", "2026-01-31T12:00:00Z"}, {"thread", "0x1"}, {"level", 3}, {"text", "an error"}}));
    EXPECT_EQ(lines[4], nlohmann::json({{"level", 3}, {"text", of_a_client}}));
}

/// Clients that ask at once, each for messages of its own; the largest that the log's files were meanwhile.
uintmax_t storm(const phone_t& phone, uint32_t first, uint32_t questions) {
    constexpr uint32_t clients = 4;
    const fs::path file = log_file(phone.home());
    uintmax_t largest = 0;
    std::jthread watcher([&](const std::stop_token& over) {
        while (!over.stop_requested()) {
            largest = std::max({largest, size_of(file), size_of(file.native() + ".1")});
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    std::vector<std::jthread> asking;
    for (uint32_t client = 0; client < clients; ++client) {
        const uint32_t begin = first + client * (questions / clients);
        asking.emplace_back([&phone, begin, questions] { ask_for(phone, begin, questions / clients); });
    }
    asking.clear();
    watcher.request_stop();
    watcher.join();
    return largest;
}

/// The numbers asked for that a log tells of, in any order.
std::set<uint32_t> told_in(const std::string& log) {
    std::set<uint32_t> numbers;
    const std::string before = "message by id='";
    for (size_t at = log.find(before); at != std::string::npos; at = log.find(before, at + 1)) {
        numbers.insert(static_cast<uint32_t>(std::stoul(log.substr(at + before.size(), 10))));
    }
    return numbers;
}

constexpr uintmax_t some_lines = 4096;  // of threads that came with the one before the bound

TEST(log, loses_no_line_when_it_turns_in_a_storm) {
    constexpr uint32_t questions = 8000;  // of 2 to 3 KiB each
    const folder_t folder;
    const network_t network(folder);
    phone_t phone(folder, "alice", network.modem(alice));
    phone.start({"--log-size", "14MB"});
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    process_t follower({"log", "--follow", "--level", "3", "--home", phone.home()});
    EXPECT_EQ(phone.zpd({"settings", "log", "on"}).status, 0);
    EXPECT_LE(storm(phone, 1, questions), (uintmax_t{14} << 20) + some_lines);
    EXPECT_GT(size_of(log_file(phone.home()).native() + ".1"), uintmax_t{13} << 20) << "it has turned";
    EXPECT_GT(size_of(log_file(phone.home())), uintmax_t{1} << 20);
    const size_t shown = told_in(zpd({"log", "--level", "3", "--home", phone.home()}).output).size();
    EXPECT_EQ(shown, questions);
    EXPECT_TRUE(eventually([&] { return told_in(follower.output()).size() == questions; }));
    std::printf("%u lines across a turn, %zu lost\n", questions, questions - shown);
}

TEST(log, keeps_its_bound_through_many_turns) {
    const folder_t folder;
    const network_t network(folder);
    phone_t phone(folder, "alice", network.modem(alice));
    phone.start({"--log-size", "64K"});
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    EXPECT_EQ(phone.zpd({"settings", "log", "on"}).status, 0);
    EXPECT_LE(storm(phone, 1, 2000), (uintmax_t{64} << 10) + some_lines);
    EXPECT_THAT(told_in(zpd({"log", "--home", phone.home()}).output), testing::SizeIs(testing::Ge(20U)));
}

TEST(log, goes_on_when_its_file_is_moved_or_deleted) {
    const folder_t folder;
    const network_t network(folder);
    phone_t phone(folder, "alice", network.modem(alice));
    phone.start();
    ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    const fs::path file = log_file(phone.home());
    EXPECT_EQ(phone.zpd({"settings", "log", "on", "error"}).status, 0);
    ask_for(phone, 1, 1);
    fs::rename(file, folder / "moved");
    ask_for(phone, 2, 1);
    EXPECT_THAT(read_file(folder / "moved"), HasSubstr(told_of(1)));
    EXPECT_THAT(read_file(file), HasSubstr(told_of(2)));
    fs::remove(file);
    ask_for(phone, 3, 1);
    EXPECT_THAT(read_file(file), HasSubstr(told_of(3)));
    fs::remove_all(file.parent_path());
    ask_for(phone, 4, 1);
    EXPECT_THAT(zpd({"log", "--home", phone.home()}).output, HasSubstr(told_of(4)));
}

}  // namespace
