// `zpd events`: what has happened, from where a reader was, and over restarts of the service.
#include <gmock/gmock.h>

#include <csignal>
#include <ctime>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/network/at_host.h"
#include "tests/system/phones.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

TEST(events, are_told_from_where_a_reader_was_and_over_restarts) {
    const folder_t folder;
    const network_t network(folder);
    network::host_t sender(network.modem(alice));
    phone_t phone(folder, "bob", network.modem(bob));
    const auto start = [&] {
        phone.start({"--activate"});
        ASSERT_TRUE(phone.ready()) << phone.serve().errors();
    };
    const auto cards_in = [](const std::string& text) {
        std::vector<std::string> texts;
        for (const std::string& line : lines_of(text)) {
            const json event = json::parse(line);
            if (event["kind"] == "stored") {
                texts.push_back(event["text"]);
            }
        }
        return texts;
    };
    start();
    sender.submit(submissions("BEGIN:VCARD\nFN:A\x1b[1m\nEND:VCARD", 1, 100)[0]);
    ASSERT_TRUE(eventually([&] { return phone.zpd({"events"}).output.find("A") != std::string::npos; }));
    const json card = json::parse(lines_of(phone.zpd({"events", "--json"}).output).back());
    char time[32];
    const time_t seconds = card["time"];
    std::strftime(time, sizeof time, "%F %T", std::localtime(&seconds));  // NOLINT(concurrency-mt-unsafe): no other
    const std::string id = card["id"].dump();
    EXPECT_EQ(lines_of(phone.zpd({"events"}).output).back(),
              time + std::string(7 - id.size(), ' ') + id + "  stored card 1 from " + alice + ": A\\x1B[1m");
    EXPECT_EQ(card["card"]["number"], 1);
    const auto count = [&](const arguments_t& more) {
        return lines_of(phone.zpd(joined({"events"}, more)).output).size();
    };
    const size_t all = count({});
    EXPECT_EQ(count({"--since", "2h"}), all);
    EXPECT_EQ(count({"--since", "2020-02-29"}), all);
    EXPECT_EQ(count({"--since", card["time"].dump()}), count({"--since", time}));
    EXPECT_EQ(count({"--since", "2200-01-01 12:00"}), 0U);
    EXPECT_EQ(count({"--after", id}), 0U);
    for (const char* wrong : {"2026-02-31", "2 h", "yesterday", "", "-1"}) {
        EXPECT_EQ(phone.zpd({"events", "--since", wrong}).status, 2) << wrong;
    }

    process_t follower({"events", "--follow", "--json", "--device", phone.device()});
    EXPECT_TRUE(eventually([&] { return cards_in(follower.output()).size() == 1; }));
    phone.serve().signal(SIGKILL);
    phone.serve().wait();
    EXPECT_TRUE(eventually([&] { return follower.errors().find("waiting for it to be back") != std::string::npos; }));
    start();
    sender.submit(submissions("second", 2, 100)[0]);
    EXPECT_TRUE(eventually([&] { return cards_in(follower.output()).size() >= 2; }));
    EXPECT_THAT(cards_in(follower.output()), testing::ElementsAre(HasSubstr("card 1 "), HasSubstr("card 2 ")));
    follower.signal(SIGINT);
    EXPECT_EQ(follower.wait(), 128 + SIGINT) << "as a shell expects of what was interrupted";
}

}  // namespace
