// What a modem has to be asked, waited for and given before it can be used.
#include "base/clock.h"
#include "radio/modem_state.h"
#include "tests/radio/session_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const std::string ok = scripted_modem_t::ok;
const auto line = scripted_modem_t::line_and_ok;

class set_up : public session {
  protected:
    std::string attach_now() {
        radio::detach_modem();
        return radio::attach_modem(options);
    }
    std::string attach_as_time_passes() {
        auto attached = std::async(std::launch::async, [this] { return attach_now(); });
        while (attached.wait_for(std::chrono::milliseconds(2)) != std::future_status::ready) {
            base::advance_clock(100);
        }
        return attached.get();
    }

    const std::filesystem::path& folder = home.path();
};

TEST_F(set_up, sim_busy_after_start_is_waited_for) {
    for (const char* busy : {"\r\n+CME ERROR: 14\r\n", "\r\n+CMS ERROR: 515\r\n", "\r\n+CME ERROR: SIM busy\r\n",
                             "\r\n+CME ERROR: 10\r\n"}) {
        modem.once("AT+CPIN?", busy);
        modem.once("AT+CPIN?", ok);  // not yet there
        modem.once("AT+CPMS=?", "\r\n+CMS ERROR: 314\r\n");
        EXPECT_EQ(attach_as_time_passes(), "") << busy;
    }
    EXPECT_EQ(modem.count("AT+CPIN?"), 12U);
    modem.on("AT+CPIN?", "\r\n+CME ERROR: 14\r\n");
    EXPECT_EQ(radio::set_limit("sim-ready", "60"), "");
    EXPECT_THAT(attach_as_time_passes(), HasSubstr("not ready after 60 s"));
    modem.on("AT+CPIN?", "\r\n+CME ERROR: 10\r\n");
    EXPECT_THAT(attach_now(), HasSubstr("SIM not inserted"));
}

TEST_F(set_up, a_sim_that_does_not_tell_its_number_hinders_nothing) {
    const std::pair<std::string, const char*> rows[] = {
        {"\r\n+CNUM: \"Fax\",\"\",129\r\n+CNUM: \"Own\",\"491700000001\",145\r\n" + ok, "+491700000001"},
        {ok, ""},
        {"\r\n+CME ERROR: 14\r\n", ""},
        {"", ""},  // no answer at all
    };
    for (const auto& [reply, number] : rows) {
        modem.on("AT+CNUM", reply);
        EXPECT_EQ(attach_as_time_passes(), "") << reply;
        EXPECT_EQ(radio::modem_state()->number, number);
    }
    EXPECT_EQ(modem.count("AT+CNUM"), std::size(rows)) << "asked once";
}

TEST_F(set_up, a_modem_that_refuses_the_first_words_is_spoken_to_in_others) {
    modem.on("ATQ0V1E0", "ATQ0V1E0\r\r\nERROR\r\n");
    modem.on("AT", "AT\r0\r");
    EXPECT_EQ(attach_as_time_passes(), "");
}

TEST_F(set_up, announcements_by_what_the_modem_offers_or_the_user_wants) {
    const struct {
        std::string offered, services, wanted;
        std::string told;  // or the error
    } rows[] = {
        {"(1),(1)", "(0)", "", "stored and announced (AT+CNMI=1,1)"},
        {"(2),(0,2),(0),(0)", "(0,1)", "", "delivered directly (AT+CNMI=2,2,0,0)"},
        {"(2),(0,2),(0),(0)", "(0)", "", "looked for every 300 s (AT+CNMI=2,0,0,0)"},
        {"(0-2),(0-3)", "(0,1)", "1,2,0,0,0", "delivered directly (AT+CNMI=1,2,0,0,0)"},
        {"(0-2),(0-3)", "(0,1)", "3,3", "refuses the announcement 3,3"},
        {"(0-2),(0-3)", "(0,1)", "2,1;+CFUN=0", "no parameters of AT+CNMI"},
    };
    for (const auto& row : rows) {
        modem.on("AT+CNMI=?", line("+CNMI: " + row.offered));
        modem.on("AT+CSMS=?", line("+CSMS: " + row.services));
        modem.on("AT+CNMI=1,1", row.offered == "(1),(1)" ? ok : "\r\nERROR\r\n");
        modem.on("AT+CNMI=2,1", "\r\nERROR\r\n");
        modem.on("AT+CNMI=3,3", "\r\nERROR\r\n");
        options.announcement = row.wanted;
        testing::internal::CaptureStderr();
        const std::string error = attach_now();
        EXPECT_THAT(testing::internal::GetCapturedStderr() + error, HasSubstr(row.told));
    }
    EXPECT_EQ(modem.count("AT+CSMS=1"), 3U) << "direct delivery is acknowledged";
}

TEST_F(set_up, modem_that_returns_under_another_name_is_found) {
    options.links = folder / "by-id";
    std::filesystem::create_directory(options.links);
    const std::filesystem::path lasting = options.links / "usb-modem-if00";
    link(lasting, modem);
    modem.on("AT+CGSN", "\r\n+CGSN: \"490154203237518\"\r\n" + ok);
    ASSERT_EQ(attach_now(), "");
    open();
    modem.on("AT+CGSN", "\r\n490154203237518\r\n" + ok);
    testing::internal::CaptureStderr();
    std::filesystem::remove(lasting);
    scripted_modem_t stranger;
    link(options.links / "usb-stranger-if00", stranger);
    link(options.tty, stranger);
    modem.hang_up();
    recorder.events(1);
    base::advance_clock(5000);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("under " + lasting.native()));
    // A stick of the same make, and of the same name.
    testing::internal::CaptureStderr();
    stranger.on("AT+CGSN", "\r\n490154203237519\r\n" + ok);
    link(lasting, stranger);
    ASSERT_TRUE(as_time_passes([&] { return stranger.heard("AT+CGSN", 1, std::chrono::milliseconds(5)); }));
    std::filesystem::remove(lasting);
    modem.plug_in();
    link(lasting, modem);
    ASSERT_TRUE(as_time_passes([this] { return modem.heard("AT+CPIN?", 2, std::chrono::milliseconds(5)); }));
    EXPECT_EQ(recorder.events(2), (events_t{system_type(RIL_SYSTEMTYPE_NONE), system_type(RIL_SYSTEMTYPE_GSM)}));
    EXPECT_EQ(stranger.count("AT+CPIN?") + stranger.count("AT+CPMS?"), 0U) << "it is not the one";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("serial number ...7519 and not ...7518"));
    EXPECT_THAT(modem.log(), Not(testing::Contains(testing::StartsWith("AT+CFUN")))) << "no reset";
}

}  // namespace
