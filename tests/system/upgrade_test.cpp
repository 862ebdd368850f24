// The home of an earlier version under today's service; and one of a later version.
//
// home-1.0.0.tar.gz is what 1.0.0 left of the phone +12025550199: two cards stored, for which a program has run, four
// of the seven datagrams of examples/names.vcf in the journal, and in the outbox a card that was sent and one for
// +12025550177 that the network refused for a while and that never expires.
#include <gmock/gmock.h>

#include <cstdlib>

#include "base/sqlite_file.h"
#include "tests/system/outbox_client.h"
#include "tests/system/phones.h"

namespace {

using testing::HasSubstr;

const std::string owner = "+12025550199";
const std::string friend_number = "+12025550177";

class upgrade : public testing::Test {
  protected:
    upgrade() {
        const std::string unpack =
            "tar xzf " ZPD_SOURCE "/tests/system/home-1.0.0.tar.gz --no-same-owner -C " + folder_ / "";
        EXPECT_EQ(std::system(unpack.c_str()), 0) << unpack;  // NOLINT(concurrency-mt-unsafe): no other thread
    }
    std::string program(const std::string& command) const {
        const std::string file = write_file(folder_ / "program", "#!/bin/sh\n" + command + "\n");
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        return file;
    }
    base::sqlite::connection_t database(const std::string& name) const {
        sqlite3* opened = nullptr;
        sqlite3_open((phone_.home() + "/" + name).c_str(), &opened);
        return base::sqlite::connection_t(opened);
    }

    const folder_t folder_;
    const network_t network_{folder_, owner + "," + friend_number};
    phone_t phone_{folder_, "home-1.0.0", network_.modem(owner)};
};

TEST_F(upgrade, a_home_of_1_0_0_keeps_what_is_in_it_and_what_waits_goes_out) {
    phone_t receiver(folder_, "friend", network_.modem(friend_number));
    receiver.start({"--activate"});
    ASSERT_TRUE(receiver.ready());
    const std::string runs = folder_ / "runs";
    phone_.start({"--on-card", program("touch " + runs)});
    ASSERT_TRUE(phone_.ready()) << phone_.serve().errors();
    EXPECT_EQ(phone_.zpd({"activation", "--json"}).output, "{\"activated\":true}\n");

    const std::string cards[] = {read_file(ZPD_EXAMPLES "/one-datagram.vcf"),
                                 read_file(ZPD_EXAMPLES "/quoted-printable.vcf")};
    for (const std::string number : {"1", "2"}) {
        const std::string file = folder_ / number;
        EXPECT_EQ(phone_.inbox({"export", number, "-o", file}).status, 0);
        EXPECT_EQ(read_file(file), cards[number == "2"]);
    }
    const auto incomplete = nlohmann::json::parse(phone_.inbox({"incomplete", "--json"}).output)["incomplete"];
    ASSERT_EQ(incomplete.size(), 1);
    EXPECT_EQ(incomplete[0]["sender"], "+12025550100");
    EXPECT_EQ(incomplete[0]["received"], 4);
    EXPECT_EQ(incomplete[0]["datagrams"], 7);

    const outbox_client_t outbox(phone_.device());
    EXPECT_EQ(outbox.message(2)["state"], "sent");
    EXPECT_EQ(outbox.message(2)["leased"], false);
    EXPECT_TRUE(outbox.becomes(outbox.add_leased("leased", friend_number, "token", 60), "sent"));
    EXPECT_TRUE(outbox.becomes(1, "sent")) << outbox.message(1);
    EXPECT_TRUE(eventually([&] {
        return stored_cards(receiver) == std::map<std::string, int>{{cards[1], 1}, {"leased", 1}};
    }));
    std::vector<std::string> kinds;
    for (const auto& event : outbox.events()) {
        kinds.push_back(event["kind"]);
    }
    EXPECT_THAT(
        kinds, testing::UnorderedElementsAre("stored", "stored", "queued", "queued", "queued", "sent", "sent", "sent"));
    EXPECT_FALSE(std::filesystem::exists(runs)) << "no card came";
    EXPECT_EQ(base::sqlite::number(database("registry.sqlite").get(), "PRAGMA user_version"), 1);
}

TEST_F(upgrade, a_database_of_a_later_version_is_refused_by_its_name_and_left_as_it_is) {
    for (const std::string name : {"registry", "journal", "outbox", "on-card", "inbox"}) {
        const std::string file = name + ".sqlite";
        const std::string version = "PRAGMA user_version";
        const auto before = base::sqlite::number(database(file).get(), version.c_str());
        ASSERT_TRUE(base::sqlite::run_all(database(file).get(), (version + " = 99").c_str()));
        outcome_t outcome;
        if (name == "inbox") {  // its cards can be read without numbers
            outcome = phone_.inbox({});
        } else {
            phone_.start({"--on-card", "/bin/true"});
            outcome.status = phone_.serve().wait().value_or(-1);
            outcome.errors = phone_.serve().errors();
        }
        EXPECT_EQ(outcome.status, name == "inbox" ? 0 : 1) << name;
        EXPECT_THAT(outcome.errors, HasSubstr(phone_.home() + "/" + file));
        EXPECT_THAT(outcome.errors, HasSubstr("it is of a newer version of this program"));
        EXPECT_EQ(base::sqlite::number(database(file).get(), version.c_str()), 99);
        base::sqlite::run_all(database(file).get(), (version + " = " + std::to_string(before.value_or(0))).c_str());
    }
}

}  // namespace
