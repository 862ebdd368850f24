// Platform calls that fail one by one, and results that belong to nothing: the driver says so and goes on.

#include <gmock/gmock.h>

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
    const auto starts = [this](const char* function, int skip, const lines_t& told) {
        SCOPED_TRACE(function);
        phone.preset_logging();
        phone.start();
        phone.stop();
        platform::testing::fail_calls(function, 8, 1, skip);
        phone.start();
        EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION), done(u32(2)));
        radio.deliver(deliver_message(port_header, told[0]));
        phone.stop();
        platform::testing::no_failures();
        expect_in_order(phone.log(), told);
    };
    starts("CreateEventW", 0, lines("ERROR CreateEvent() failed: error=0x00000008"));
    starts("CreateThread", 0, lines("INFO started thread id=0xFFFFFFFF"));
    starts("RegCreateKeyExW", 0,
           lines(R"(ERROR can't open key path '\Software\Varkon\Drivers\ZPD\daemon', error=000000008)",
                 "WARNING reg field 'logging_enabled': registry can't be used, taking default value"));
    starts("RegQueryValueExW", 0,
           lines("ERROR can't query size of field 'logging_enabled': error=0x00000008",
                 "ERROR can't read uint32 value from registry field 'logging_enabled'",
                 "WARNING reg field 'logging_enabled': can't read registry field, taking default value"));
    starts("RegQueryValueExW", 7,
           lines("ERROR can't read registry field 'ril_capacity': error=0x00000008",
                 "WARNING reg field 'ril_capacity': can't read registry field, taking default value"));
    EXPECT_EQ(phone.logged("ERROR WaitForSingleObject() failed, error=0x~"), 0u) << "nothing is done without an event";
    EXPECT_EQ(phone.incoming().size(), 4u) << "without a registry nothing is activated";
}

TEST_F(failures_test, running_goes_on) {
    const auto goes_on = [this](const char* function, int skip, void (*act)(phone_t&), const lines_t& told) {
        SCOPED_TRACE(function);
        // Again and again, since the sender calls EventModify at times of its own.
        eventually([&] {
            platform::testing::fail_calls(function, 5, 1, skip);
            act(phone);
            return phone.logged(told.back()) > 0;
        });
        platform::testing::no_failures();
        expect_in_order(phone.log(), told);
    };
    phone.start_on(gsm);
    goes_on("CreateDirectoryW", 0, deliver,
            lines("ERROR the directory for the incoming messages can't be created => message can't be saved"));
    goes_on("_wfopen", 0, deliver,
            lines(R"(ERROR can't open file '\Application Data\PUBLIC\VARKON\ZPD\INCOMING\~' for writing)",
                  R"(ERROR failed to write message to '\Application Data\PUBLIC\VARKON\ZPD\INCOMING\~')"));
    goes_on("RegSetValueExW", 0, grow_capacity,
            lines("ERROR can't write registry field 'ril_capacity':error=0x00000005",
                  "INFO can't write registry field 'ril_capacity', value='8'",
                  "WARNING reg uint32 field 'ril_capacity': can't write new value '8', it will be lost"));
    goes_on("RegFlushKey", 0, grow_capacity,
            lines("INFO wrote 4 bytes to registry field 'ril_capacity'",
                  "WARNING can't flush registry tree, value could be lost; error=0x00000005",
                  "INFO wrote registry field 'ril_capacity', value='9'"));
    goes_on("RegOpenKeyExW", 0, ask_contacts, lines("ERROR RegOpenKeyExW() failed, error=0x5"));
    goes_on("RegQueryValueExW", 0, ask_contacts,
            lines("ERROR RegQueryValueExW() failed for unclear reason, error=0x5"));
    goes_on("RegCloseKey", 1, ask_contacts, lines("WARNING RegCloseKey(0x~) failed, error=0x5"));
    goes_on("EventModify", 0, raise, lines("ERROR SetEvent() failed, last_error=0x00000005"));
    goes_on("EventModify", 1, raise, lines("ERROR ResetEvent() failed, last_error=0x00000005"));
    goes_on("WaitForSingleObject", 0, raise, lines("ERROR WaitForSingleObject() failed, error=0x00000005"));
    EXPECT_THAT(phone.incoming(), IsEmpty());
    deliver(phone);
    EXPECT_THAT(phone.cards(), ElementsAre("+123:card"));
    phone.send_card(1);
    radio.submission(1);
}

TEST_F(failures_test, lost_results) {
    phone.start_on(gsm);
    phone.send_card(10);
    const HRESULT request = radio.submission(1).request;
    radio.result(0x7777, 1, "0123456789ABCDEF!");
    radio.result(0x7778, 3, u32(0x8005001A));
    radio.result(0x7779, 9);
    EXPECT_THAT(phone.status(239), ElementsAre(1)) << "nobody else's";
    phone.stop();
    radio.result(request, 1, "\1\2");
    const std::string lost =
        "CRITICAL ERROR can't find req_id=0x~ in pending_ril_requests database; lost data dump follows";
    expect_in_order(phone.log(), lost, "ERROR ril_ref=0x7777, ril_result_code=0x1, data32=0x33323130, param=0x0",
                    "ERROR 00: 30 31 32 33 . 34 35 36 37 | 38 39 41 42 . 43 44 45 46 || 0123456789ABCDEF",
                    "ERROR 01: 21                                                    || !", lost,
                    "ERROR ril_ref=0x7778, ril_result_code=0x3, data32=0x8005001A, param=0x0", lost,
                    "ERROR ril_ref=0x7779, ril_result_code=0x9, data32=0x12345678, param=0x0",
                    "CRITICAL ERROR EPIC FAIL: vcard daemon object not available; lost data dump follows",
                    "ERROR ril_ref=0x~, ril_result_code=0x1, data32=0x12345678, param=0x0",
                    "ERROR 00: 01 02                                                 || \\x{01}\\x{02}");
    EXPECT_EQ(
        phone.logged("ERROR 00: 1A 00 05 80                                           || \\x{1a}\\0\\x{05}\\x{80}"), 0u)
        << "four octets are shown as a word";
    radio.deliver(deliver_message(port_header, "card"));
    radio.system_changed(gsm);
    EXPECT_EQ(phone.logged("ERROR can't process datagram: no daemon object"), 1u);
    EXPECT_EQ(phone.logged("ERROR can't process system change notification: no daemon object"), 1u);
}

}  // namespace
