// Platform calls that fail one by one, and results that belong to nothing: the driver says so and goes on.

#include <gmock/gmock.h>

#include "com/zpd/daemon/ril_requests.h"
#include "tests/driver/phone.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class failures_test : public driver_test {
  protected:
    failures_test() {
        phone.preset("activated", 1);
        phone.preset_logging();
    }
};

void deliver(phone_t& to) {
    to.radio.deliver(deliver_message(port_header, "card"));
}

void grow_capacity(phone_t& of) {
    const auto next = u8(static_cast<uint8_t>(of.request(ZPD_IOCTL_RIL_CAPACITY, u8(0)).output.at(0)) + 1u);
    EXPECT_EQ(of.request(ZPD_IOCTL_RIL_CAPACITY, u8(1) + next), done(next));
}

void ask_contacts(phone_t& of) {
    of.preset("Own", REG_SZ, "1", R"(\Software\Microsoft\Pim\Contacts\Settings)");
    of.request(ZPD_IOCTL_PIM_CONTACTS_VAR, text16(TEXT("Own")));
}

void raise(phone_t& on) {
    on.radio.system_changed(gsm);
}

// The first life leaves its log file open, so that the second can tell of its start.
TEST_F(failures_test, start_goes_on) {
    const std::pair<const char*, int> calls[] = {{"CreateEventW", 0},
                                                 {"CreateThread", 0},
                                                 {"RegCreateKeyExW", 0},
                                                 {"RegQueryValueExW", 0},
                                                 {"RegQueryValueExW", 7}};
    for (const auto& [function, skip] : calls) {
        SCOPED_TRACE(function);
        phone.preset_logging();
        phone.start();
        phone.stop();
        platform::testing::fail_calls(function, 8, 1, skip);
        phone.start();
        EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION), done(u32(2)));
        radio.deliver(deliver_message(port_header, function + std::to_string(skip)));
        phone.stop();
        platform::testing::no_failures();
    }
    expect_log();
    EXPECT_EQ(phone.logged("ERROR WaitForSingleObject() failed, error=0x~"), 0u) << "nothing is done without an event";
    EXPECT_EQ(phone.incoming().size(), 4u) << "without a registry nothing is activated";
}

TEST_F(failures_test, running_goes_on) {
    const std::tuple<const char*, int, void (*)(phone_t&), const char*> cases[] = {
        {"CreateDirectoryW", 0, deliver,
         "ERROR the directory for the incoming messages can't be created => message can't be saved"},
        {"_wfopen", 0, deliver, R"(ERROR failed to write message to '\Application Data\PUBLIC\VARKON\ZPD\INCOMING\~')"},
        {"RegSetValueExW", 0, grow_capacity,
         "WARNING reg uint32 field 'ril_capacity': can't write new value '8', it will be lost"},
        {"RegFlushKey", 0, grow_capacity, "INFO wrote registry field 'ril_capacity', value='9'"},
        {"RegOpenKeyExW", 0, ask_contacts, "ERROR RegOpenKeyExW() failed, error=0x5"},
        {"RegCloseKey", 1, ask_contacts, "WARNING RegCloseKey(0x~) failed, error=0x5"},
        {"RegQueryValueExW", 0, ask_contacts, "ERROR RegQueryValueExW() failed for unclear reason, error=0x5"},
        {"EventModify", 0, raise, "ERROR SetEvent() failed, last_error=0x00000005"},
        {"EventModify", 1, raise, "ERROR ResetEvent() failed, last_error=0x00000005"},
        {"WaitForSingleObject", 0, raise, "ERROR WaitForSingleObject() failed, error=0x00000005"},
    };
    phone.start_on(gsm);
    for (const auto& [function, skip, act, told] : cases) {
        SCOPED_TRACE(function);
        const int times = function == std::string("_wfopen") ? -1 : 1;  // the log may open its file, too
        // Again and again, since the sender calls EventModify at times of its own.
        eventually([&, function = function, skip = skip, act = act, told = told] {
            platform::testing::fail_calls(function, 5, times, skip);
            act(phone);
            return phone.logged(told) > 0;
        });
        platform::testing::no_failures();
    }
    expect_log();
    EXPECT_THAT(phone.incoming(), IsEmpty());
    deliver(phone);
    EXPECT_THAT(phone.cards(), ElementsAre("+123:card"));
    phone.send_card(1);
    radio.submission(1);
}

// A radio that calls back inside a call, on the thread that made it.
TEST_F(failures_test, callbacks_inside_calls_do_no_harm) {
    phone.start();
    phone.stop();  // the log stays
    radio.follow({.within = [this] {
        radio.result(0x7777, RIL_RESULT_OK, u32(1));
        radio.system_changed(gsm);
        deliver(phone);
    }});
    phone.start();
    EXPECT_EQ(phone.logged("CRITICAL ERROR EPIC FAIL: vcard daemon object not available; lost data dump follows"), 1u);
    EXPECT_EQ(phone.logged("ERROR can't process system change notification: no daemon object"), 1u);
    EXPECT_EQ(phone.logged("ERROR can't process datagram: no daemon object"), 1u);
    phone.send_card(1);
    eventually([&] {
        phone.pass(10000);
        return radio.attempts().submissions == 1;
    });
    radio.follow({});
    radio.confirm(1);
    EXPECT_THAT(phone.status(239), ElementsAre(4));
    EXPECT_GE(phone.cards().size(), 2u) << "what comes inside other calls is stored";
}

TEST_F(failures_test, lost_results) {
    phone.start_on(gsm);
    phone.send_card(10);
    const HRESULT request = radio.submission(1).request;
    radio.result(0x7777, 1, "0123456789ABCDEF!");
    radio.result(0x7778, 3, u32(0x8005001A));
    radio.result(0x7779, 9);
    EXPECT_THAT(phone.status(239), ElementsAre(1)) << "nobody else's";
    for (int questions = 0; questions < 2; ++questions) {
        new daemon_t::ril_request_get_current_system_type_t(global_daemon_object, 0x777A);  // its table's
    }
    phone.stop();
    radio.result(request, 1, "\1\2");
    deliver(phone);
    raise(phone);
    expect_log();
    EXPECT_EQ(
        phone.logged("ERROR 00: 1A 00 05 80                                           || \\x{1a}\\0\\x{05}\\x{80}"), 0u)
        << "four octets are shown as a word";
}

}  // namespace
