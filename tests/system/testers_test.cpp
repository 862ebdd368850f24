// What testers of other software do from scripts: send without a modem, look at the phones, wait for a card.
#include <gmock/gmock.h>

#include "tests/system/phones.h"

namespace {

using testing::HasSubstr;

class testers : public testing::Test {
  protected:
    outcome_t ask(const arguments_t& command, const arguments_t& more = {}) const {
        return zpd(joined(joined(command, {"--dir", folder_ / "modems"}), more));
    }
    outcome_t expect_card(const std::string& card, const std::string& at, const std::string& within) const {
        return ask({"network", "expect"}, {"--card", card, "--at", at, "--within", within});
    }
    const folder_t folder_;
    const network_t network_{folder_};
};

TEST_F(testers, send_a_card_and_wait_until_it_is_there) {
    const std::string card = ZPD_EXAMPLES "/names.vcf";
    EXPECT_EQ(ask({"fault"}, {bob, "full", "refuse=38x2"}).status, 0);
    EXPECT_EQ(ask({"fault"}, {bob}).output, "refuse=38x2\nfull\n");
    const outcome_t sent = ask({"network", "send"}, {"--from", carol, "--to", bob, card, "--json"});
    EXPECT_THAT(sent.output, HasSubstr(R"("datagrams":7)")) << sent.errors;
    EXPECT_THAT(ask({"network", "show"}, {bob, "--json"}).output,
                HasSubstr(R"("waiting":7,"faults":["refuse=38x2","full"])"));

    const outcome_t early = expect_card(card, bob, "1s");
    EXPECT_EQ(early.status, 1);
    EXPECT_THAT(early.errors, HasSubstr("within 1s; no other card has arrived there"));
    EXPECT_EQ(ask({"fault"}, {bob, "full=off"}).status, 0);
    EXPECT_EQ(expect_card(card, bob, "30s").status, 0);
    const outcome_t again = expect_card(card, bob, "1s");
    EXPECT_EQ(again.status, 1) << "it came once";
    arguments_t others{"--from", carol, "--to", alice};
    for (size_t i = 1; i <= 7; ++i) {
        others.push_back(write_file(folder_ / std::to_string(i), std::string(i, 'x')));
    }
    EXPECT_EQ(ask({"network", "send"}, others).status, 0);
    EXPECT_THAT(expect_card(card, alice, "500ms").errors, HasSubstr("from " + carol + ", and 2 more"));
    const outcome_t phones = ask({"network", "show"});
    EXPECT_THAT(phones.output, HasSubstr("ME 7/100"));
    EXPECT_THAT(phones.output, HasSubstr(alice));
}

TEST_F(testers, send_texts_pushes_and_pdus_and_are_told_what_is_wrong_with_them) {
    phone_t receiver(folder_, "bob", network_.modem(bob));
    receiver.start({"--activate"});
    ASSERT_TRUE(receiver.ready());
    const auto send = [&](const arguments_t& what) { return ask({"network", "send"}, what); };
    // A card of one datagram, as an SMS-DELIVER and as an SMS-SUBMIT for another phone.
    EXPECT_EQ(send({"--to", bob, "--pdu", "440B912120550571F70004621122021100000C06050423F400004142434445"}).status, 0);
    EXPECT_EQ(
        send({"--from", alice, "--to", bob, "--pdu", "41000B912120550571F700040C06050423F400004142434445"}).status, 0);
    EXPECT_TRUE(eventually([&] { return receiver.stored().size() == 2; }));
    EXPECT_EQ(send({"--from", alice, "--to", bob, "--text", "Grüße aus Łódź"}).status, 0);
    EXPECT_EQ(send({"--from", alice, "--to", bob, "--wap-push", write_file(folder_ / "push", "\x01\x06")}).status, 0);
    EXPECT_EQ(send({"--to", bob, "--pdu", "04"}).status, 0) << "what is malformed is delivered, too";
    EXPECT_TRUE(eventually([&] {
        return ask({"network", "show"}, {bob}).output.find("ME 3/100") != std::string::npos;
    })) << "the radio leaves what is no card";

    const std::pair<arguments_t, std::string> wrong[] = {
        {{"--from", alice, "--to", bob}, "one of --text, --pdu, --wap-push or cards is wanted"},
        {{"--from", alice, "--text", "x"}, "--from and --to are wanted"},
        {{"--from", alice, "--to", bob, "--pdu", "04"}, "names its sender itself"},
        {{"--to", bob, "--pdu", "01"}, "an SMS-SUBMIT wants --from"},
        {{"--from", alice, "--pdu", "01"}, "the PDU is no whole SMS-SUBMIT"},
        {{"--from", alice, "--to", bob, folder_ / "none"}, "No such file or directory"},
        {{"--to", "1", "--pdu", "04"}, "the network has no phone 1"},
    };
    for (const auto& [what, why] : wrong) {
        const outcome_t outcome = send(what);
        EXPECT_NE(outcome.status, 0);
        EXPECT_THAT(outcome.errors, HasSubstr(why));
    }
    const outcome_t none = zpd({"network", "send", "--dir", folder_ / "", "--from", "1", "--to", "2", "--text", "x"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.errors, HasSubstr("no network runs in"));
}

}  // namespace
