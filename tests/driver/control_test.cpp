// The entry points, the dispatch of control requests, their buffers, and the settings.

#include <gmock/gmock.h>

#include "tests/driver/phone.h"

using testing::IsEmpty;

namespace {

using control_test = driver_test;
using settings_test = driver_test;

TEST_F(control_test, entry_points_log_themselves_and_always_succeed) {
    phone.preset_logging();
    EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION, {}, 4), failed(4319)) << "before Init";
    EXPECT_EQ(ZPD_Deinit(1), TRUE) << "never created";
    phone.start();
    EXPECT_EQ(ZPD_Open(1, 0, 0), 1u);
    EXPECT_EQ(ZPD_Open(1, 0xC0000000, 3), 1u) << "a second client";
    EXPECT_EQ(ZPD_Close(1), TRUE);
    for (const DWORD reason : {1u, 0u, 2u, 3u, 4u}) {
        EXPECT_EQ(DllMain(nullptr, reason, nullptr), TRUE);
    }
    phone.stop();
    EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION, {}, 4), failed(4319)) << "after Deinit";
    expect_in_order(phone.log(), "NOTICE out: set parameters=(1:7:7)",
                    "DEBUG constructor fifth line; daemon_t *this=0x~", "DEBUG activation_state: NO",
                    "DEBUG RIL_Initialize() returned 0x0, hril=0x~", "DEBUG using hril=0x00005E55",
                    "INFO started thread id=0x~", "DEBUG constructor last line; daemon_t *this=0x~",
                    "DEBUG @daemon_t::init", "DEBUG @ZPD_Open", "DEBUG @ZPD_Open", "DEBUG @ZPD_Close",
                    "DEBUG DLL_PROCESS_ATTACH", "DEBUG DLL_PROCESS_DETACH", "DEBUG DLL_THREAD_ATTACH",
                    "DEBUG DLL_THREAD_DETACH", "ERROR UNKNOWN REASON", "DEBUG @ZPD_Deinit", "DEBUG @daemon_t::deinit",
                    "DEBUG @daemon_t::deinit", "ERROR global_daemon_object not available");
    EXPECT_THAT(phone.raw_log(), testing::Each(testing::HasSubstr("'ZPD'] [")));
}

TEST_F(control_test, requests_that_touch_nothing) {
    phone.preset_logging();
    phone.start();
    const std::tuple<DWORD, DWORD, std::string, reply_t> cases[] = {
        {0x02000004, 4, "", done(u32(2))},
        {0x02000004, 100, "", done(u32(2))},
        {0x02000004, 4, "x", failed(13)},
        {0x02000004, 3, "", failed(122)},
        {0x02000004, 0, "", failed(122)},
        {0x0200003C, 4, "", failed(1)},
        {0x02000000, 4, "", failed(1)},
        {0x00000004, 4, "", failed(1)},
        {0x82000004, 4, "", failed(1)},
        {0x02000028, 0, "", done()},
        {0x0200001C, 8, "", done(u32(0) + u32(0))},
        {0x0200001C, 8, "x", failed(13)},
        {0x0200001C, 7, "", failed(122)},
        {0x02000020, 8, u32(1), failed(1002)},
        {0x02000020, 8, "123", failed(13)},
        {0x02000024, 8, u32(1), failed(1002)},
        {0x02000024, 8, "", failed(13)},
    };
    for (const auto& [code, capacity, input, reply] : cases) {
        EXPECT_EQ(phone.request(code, input, capacity), reply)
            << std::hex << code << " with output capacity " << capacity;
    }
    EXPECT_TRUE(ZPD_IOControl(1, ZPD_IOCTL_FOO, nullptr, 0, nullptr, 0, nullptr)) << "no buffers at all";
    expect_in_order(phone.log(), "DEBUG ZPD_IOCTL_VERSION", "ERROR trailing input bytes", "DEBUG STATE_queued={}",
                    "DEBUG STATE_rilled={}", "DEBUG STATE_waiting={}", "ERROR Unknown ioctl opcode 0x0200003C",
                    "DEBUG STATE_queued={}", "DEBUG STATE_rilled={}", "DEBUG STATE_waiting={}",
                    "NOTICE [MUTEX] THREAD=0x~|...: release 0x~", "DEBUG ZPD_IOCTL_FOO", "NOTICE foo()",
                    "ERROR registry field 'foo_two' not found in the cache", "NOTICE foo done",
                    "ERROR message by id='1' not found (already closed?)",
                    "ERROR can't read input parameter 'message_id'");
    EXPECT_EQ(phone.logged("ERROR registry field 'foo_two' not found in the cache"), 16u)
        << "four reads and sets, twice";
    EXPECT_EQ(phone.registry("foo_two"), "(none)");
}

TEST_F(control_test, without_impersonation_no_handler_runs) {
    phone.preset_logging();
    phone.start();
    platform::testing::fail_calls("CeImpersonateCurrentProcess", 5);
    EXPECT_EQ(phone.request(ZPD_IOCTL_RIL_CAPACITY, u8(1) + u8(9)), failed(1368));
    EXPECT_EQ(phone.request(ZPD_IOCTL_RIL_CAPACITY, u8(0)), done(u8(7)));
    EXPECT_EQ(phone.logged("ERROR CeImpersonateCurrentProcess() failed"), 1u);
    EXPECT_FALSE(CeRevertToSelf()) << "reverted once a request";
}

// Both string kinds, through requests whose only input they are.
TEST_F(control_test, strings_in_requests) {
    phone.preset_logging();
    phone.preset("ab", REG_BINARY, "value", R"(\Software\Microsoft\Pim\Contacts\Settings)");
    phone.start();
    const std::string ab("a\0b\0", 4);
    const std::tuple<DWORD, std::string, reply_t> cases[] = {
        {ZPD_IOCTL_PIM_CONTACTS_VAR, u32(4) + ab, done(u32(REG_BINARY) + text("value"))},
        {ZPD_IOCTL_PIM_CONTACTS_VAR, u32(5) + ab + "c", done(u32(REG_BINARY) + text("value"))},
        {ZPD_IOCTL_PIM_CONTACTS_VAR, u32(6) + ab + "c", failed(13)},
        {ZPD_IOCTL_PIM_CONTACTS_VAR, u32(0xFFFFFFFF) + ab, failed(13)},
        {ZPD_IOCTL_PIM_CONTACTS_VAR, "\x02", failed(13)},
        {ZPD_IOCTL_COUNT_DATAGRAMS, text("") + u8(1) + u8(0), done(u32(1))},
        {ZPD_IOCTL_COUNT_DATAGRAMS, u32(0xFFFFFFFE) + u8(1) + u8(0), failed(13)},
        {ZPD_IOCTL_COUNT_DATAGRAMS, text("card") + u8(1), failed(13)},
        {ZPD_IOCTL_COUNT_DATAGRAMS, text("card") + u8(1) + u8(0) + "ab", failed(13)},
        {ZPD_IOCTL_SEND_MESSAGE, text("card") + u8(1) + u8(0), failed(13)},
    };
    for (const auto& [code, input, reply] : cases) {
        EXPECT_EQ(phone.request(code, input), reply) << testing::PrintToString(input);
    }
    const std::string parameters = "ERROR can't read input parameters: 'vcard', 'is_utf8', 'use_long_ie'";
    expect_in_order(phone.log(), "DEBUG input buffer len=9; string len_bytes=5 len=2", "DEBUG read string of length 2",
                    "DEBUG read string: 'ab'", "DEBUG @input_r_buffer_t::get_string16",
                    "DEBUG input buffer len=9; string len_bytes=6 len=3",
                    "ERROR invalid pin contacts setting entry name parameter",
                    "DEBUG vcard: 0 bytes, is_utf8: 'yes', use_long_ie: 'no', phone: '<none>'", parameters, parameters,
                    "ERROR trailing bytes: 2", parameters + ", 'phone'");
}

TEST_F(control_test, message_list_fits_itself_into_the_room) {
    phone.start();
    for (int i = 0; i < 3; ++i) {
        phone.send_card(1);
    }
    const std::tuple<DWORD, std::string> cases[] = {
        {8, u32(3) + u32(0)},
        {12, u32(3) + u32(1) + u32(239)},
        {16, u32(3) + u32(2) + u32(239) + u32(240)},
        {19, u32(3) + u32(2) + u32(239) + u32(240)},
        {20, u32(3) + u32(3) + u32(239) + u32(240) + u32(241)},
        {400, u32(3) + u32(3) + u32(239) + u32(240) + u32(241)},
    };
    for (const auto& [capacity, output] : cases) {
        EXPECT_EQ(phone.request(ZPD_IOCTL_MESSAGE_LIST, {}, capacity), done(output)) << capacity;
    }
    EXPECT_EQ(phone.request(ZPD_IOCTL_MESSAGE_STATUS, u32(239), 11), failed(122));
}

TEST_F(settings_test, codes_change_what_lasts) {
    const DWORD log = ZPD_IOCTL_LOG_OPTIONS, capacity = ZPD_IOCTL_RIL_CAPACITY, size = ZPD_IOCTL_INCOMING_DIR_SIZE;
    const std::tuple<DWORD, std::string, reply_t> cases[] = {
        {log, u8(0), done("\1\7\7")},
        {log, "", failed(13)},
        {log, u8(1) + "\1\7", failed(13)},
        {log, u8(1) + "\1\6\11", failed(1002)},
        {log, u8(1) + "\2", failed(1002)},
        {log, u8(0), done("\1\7\7")},
        {log, "\1\1\3\4", done("\1\3\4")},
        {log, "\1\1\7\7", done("\1\7\7")},
        {capacity, u8(0), done("\7")},
        {capacity, "", failed(13)},
        {capacity, u8(1), failed(13)},
        {capacity, u8(1) + u8(0), failed(1002)},
        {capacity, u8(9) + u8(255), done(u8(255))},
        {size, u8(0), done(u32(0))},
        {size, "", failed(13)},
        {size, u8(1) + "123", failed(13)},
        {size, u8(1) + u32(16777217), failed(1002)},
        {size, u8(1) + u32(16777216), done(u32(16777216))},
    };
    phone.preset_logging();
    phone.start();
    for (const auto& [code, input, reply] : cases) {
        EXPECT_EQ(phone.request(code, input), reply) << code << testing::PrintToString(input);
    }
    expect_in_order(phone.log(), "ERROR can't read parameter 'mode'", "ERROR can't read value #2",
                    "ERROR invalid value #2 (9)", "ERROR invalid value #0 (2)",
                    "NOTICE in: current parameters=(1:7:7); new parameters=(1:3:4)",
                    "NOTICE out: set parameters=(1:7:7)",
                    "INFO reg uint32 field 'logging_enabled': not writting the same value '1' to registry",
                    "INFO wrote registry field 'log_level_retail', value='7'", "ERROR can't read parameter 'mode'",
                    "ERROR can't read parameter 'new_capacity'", "ERROR invalid new_capacity parameter (0)",
                    "ERROR can't read parameter 'mode'", "ERROR can't read parameter 'new_incoming_dir_size'",
                    "ERROR invalid new_incoming_dir_size parameter (16777217)");
    EXPECT_EQ(phone.registry("ril_capacity"), u32(255));
    EXPECT_EQ(phone.registry("incoming_dir_size"), u32(16777216));
    phone.stop();
    phone.start();
    EXPECT_EQ(phone.request(log, u8(0)), done("\1\7\7"));
    EXPECT_EQ(phone.request(capacity, u8(0)), done(u8(255)));
    EXPECT_EQ(phone.request(size, u8(0)), done(u32(16777216)));
}

TEST_F(settings_test, log_file_exists_while_it_is_wanted) {
    phone.start();
    EXPECT_EQ(phone.request(ZPD_IOCTL_LOG_OPTIONS, u8(0)), done({"\0\7\0", 3}));
    EXPECT_THAT(phone.raw_log(), IsEmpty()) << "off by default";
    phone.request(ZPD_IOCTL_LOG_OPTIONS, "\1\1\7\5");
    phone.request(ZPD_IOCTL_FOO);
    EXPECT_EQ(phone.logged("NOTICE foo()"), 1u);
    EXPECT_EQ(phone.logged("DEBUG ZPD_IOCTL_FOO"), 0u) << "above the threshold";
    for (const auto& off : {std::string("\1\1\7\0", 4), std::string("\1\0\7\7", 4)}) {
        phone.request(ZPD_IOCTL_LOG_OPTIONS, off);
        phone.request(ZPD_IOCTL_FOO);
        EXPECT_EQ(phone.logged("NOTICE foo()"), 1u);
    }
}

TEST_F(settings_test, unacceptable_registry_values_are_replaced) {
    phone.preset("ril_capacity", 256);
    phone.preset("next_message_id", REG_SZ, u32(5));
    phone.preset("incoming_dir_size", REG_DWORD, "12");
    phone.start();
    EXPECT_EQ(phone.request(ZPD_IOCTL_RIL_CAPACITY, u8(0)), done("\7"));
    EXPECT_EQ(phone.request(ZPD_IOCTL_INCOMING_DIR_SIZE, u8(0)), done(u32(0)));
    EXPECT_EQ(phone.registry("ril_capacity"), u32(7));
    EXPECT_EQ(phone.registry("next_message_id"), u32(239));
    EXPECT_EQ(phone.registry("incoming_dir_size"), u32(0));
}

TEST_F(settings_test, contacts_variable) {
    phone.preset_logging();
    phone.start();
    const auto ask = [&](const wide_string_t& name, DWORD capacity) {
        return phone.request(ZPD_IOCTL_PIM_CONTACTS_VAR, text16(name), capacity);
    };
    EXPECT_EQ(ask(TEXT("Own"), 100), failed(5)) << "no such key";
    phone.preset("Own", REG_BINARY, "0123456789", R"(\Software\Microsoft\Pim\Contacts\Settings)");
    EXPECT_EQ(ask(TEXT("Other"), 100), failed(2));
    EXPECT_EQ(ask(TEXT("Own"), 18), done(u32(REG_BINARY) + text("0123456789")));
    for (const DWORD capacity : {17u, 10u, 9u, 4u, 0u}) {
        EXPECT_EQ(ask(TEXT("Own"), capacity), failed(122)) << capacity;
    }
    expect_in_order(phone.log(), "ERROR RegOpenKeyExW() failed, error=0x2",
                    "WARNING RegQueryValueExW() failed: requested field doesn't exist",
                    "DEBUG sucessfully read 10 bytes of registry type 0x3",
                    "WARNING RegQueryValueExW() failed: provided buffer is too short");
}

TEST_F(settings_test, activation_and_applications) {
    const DWORD activation = ZPD_IOCTL_ACTIVATION, applications = ZPD_IOCTL_APPLICATION;
    const std::tuple<DWORD, DWORD, std::string, reply_t> cases[] = {
        {activation, 1, u8(0), done(u8(0))},          {activation, 1, "", failed(13)},
        {activation, 1, u8(1), failed(13)},           {activation, 1, u8(1) + u8(2), failed(13)},
        {activation, 0, u8(1) + u8(1), failed(122)},  {activation, 1, u8(0), done(u8(0))},
        {activation, 1, u8(1) + u8(1), done(u8(1))},  {applications, 64, u8(0), done(text("a"))},
        {applications, 0, u8(1) + text("b"), done()}, {applications, 0, u8(1) + text("B"), done()},
        {applications, 0, u8(1) + text("b"), done()}, {applications, 64, u8(0), done(text("B;a;b"))},
        {applications, 8, u8(0), failed(122)},        {applications, 64, u8(1), failed(13)},
        {applications, 64, u8(3), failed(13)},        {applications, 64, "", failed(13)},
    };
    phone.preset("applications", REG_BINARY, ";;a;");
    phone.install("B");  // the start forgets what is not installed
    phone.preset_logging();
    phone.start();
    for (const auto& [code, capacity, input, reply] : cases) {
        EXPECT_EQ(phone.request(code, input, capacity), reply) << testing::PrintToString(input);
    }
    expect_in_order(phone.log(), "DEBUG active=0", "DEBUG list=';;a;;'", "DEBUG application: 'a'",
                    "ERROR can't read parameter 'mode'", "ERROR can't read parameter 'new_status'",
                    "ERROR invalid parameter new_status=2", "DEBUG current activation status: 0; new status: 1",
                    "DEBUG changed activation status: 1", "DEBUG applications: 'a'",
                    "DEBUG registered applications: 'a;b'", "ERROR can't read parameter 'app'",
                    "ERROR invalid mode=3>2 parameter");
    EXPECT_EQ(phone.registry("activated"), u32(1));
    EXPECT_EQ(phone.registry("applications"), "B;a;b");
    phone.stop();
    phone.start();
    EXPECT_EQ(phone.request(activation, u8(0)), done(u8(1)));
    EXPECT_EQ(phone.request(applications, u8(2), 0), done());
    EXPECT_EQ(phone.request(applications, u8(0)), done(text("")));
    EXPECT_EQ(phone.registry("applications"), "");
}

TEST_F(settings_test, launching) {
    phone.preset_logging();
    phone.start();
    EXPECT_EQ(phone.request(ZPD_IOCTL_LAUNCH_APP, "\x05"), failed(13));
    EXPECT_EQ(phone.request(ZPD_IOCTL_LAUNCH_APP, text16(TEXT(""))), failed(1359))
        << "a legal string, nothing to launch";
    platform::testing::fail_calls("SHLaunchApplicationForURI", 1155);
    EXPECT_EQ(phone.request(ZPD_IOCTL_LAUNCH_APP, text16(TEXT("tel:+1\xD83D\xDE00"))), failed(1359));
    expect_in_order(phone.log(), "ERROR can't read 'uri' input parameter", "DEBUG URI=''",
                    "DEBUG URI='tel:+1\xF0\x9F\x98\x80'", "DEBUG can't start application: error 0x00000483");
}

}  // namespace
