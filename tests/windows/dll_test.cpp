// zpd.dll as a device manager has it: loaded, called through its exports, unloaded.

#include <gmock/gmock.h>
#include <windows.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <vector>

#include "com/zpd/zpd_ioctl.h"
#include "tests/driver/home.h"
#include "tests/driver/octets.h"
#include "tests/driver/scripted_radio.h"
#include "tests/incoming.h"
#include "tests/windows/zpd_dll.h"

namespace {

class dll_test : public ::testing::Test {
  protected:
    dll_test() {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);  // the machine's own registry, which reg.exe sees too
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Varkon");
        radio.reset();
    }

    home_t home;
    scripted_radio_t& radio = scripted_radio_t::instance();
};

std::string file_description() {
    std::vector<BYTE> information(GetFileVersionInfoSizeW(L"zpd.dll", nullptr));
    GetFileVersionInfoW(L"zpd.dll", 0, static_cast<DWORD>(information.size()), information.data());
    void* text = nullptr;
    UINT length = 0;
    const char* const name = "\\StringFileInfo\\040904B0\\FileDescription";
    return VerQueryValueA(information.data(), name, &text, &length) ? static_cast<const char*>(text) : "(none)";
}

std::string output_of(const char* command) {
    std::string output(4096, '\0');
    FILE* const pipe = _popen(command, "r");
    output.resize(fread(output.data(), 1, output.size(), pipe));
    _pclose(pipe);
    return output;
}

TEST_F(dll_test, serves_a_client) {
    EXPECT_EQ(file_description(), "vcard driver");
    const zpd_t zpd;
    EXPECT_EQ(zpd.init(TEXT("Drivers\\Active\\1"), nullptr), 1u);
    EXPECT_EQ(zpd.open(1, 0, 0), 1u);
    EXPECT_EQ(zpd.request(ZPD_IOCTL_VERSION), u32(ZPD_INTERFACE_VERSION));
    EXPECT_EQ(zpd.request(ZPD_IOCTL_RIL_CAPACITY, u8(1) + u8(9)), u8(9));
    EXPECT_THAT(output_of(R"(reg query HKLM\Software\Varkon\Drivers\ZPD\daemon /v ril_capacity)"),
                testing::HasSubstr("ril_capacity    REG_DWORD    0x9"));

    const std::string id =
        zpd.request(ZPD_IOCTL_SEND_MESSAGE, text("card") + u8(0) + u8(0) + text16(TEXT("+491711234567")));
    EXPECT_EQ(id, u32(239));
    radio.result(radio.question(1), RIL_RESULT_ERROR, u32(RIL_E_NETWORKTIMEOUT));
    EXPECT_EQ(zpd.request(ZPD_IOCTL_MESSAGE_STATUS, id), u32(1) + u32(ZPD_STATUS_QUEUED) + u32(0));

    EXPECT_EQ(zpd.request(ZPD_IOCTL_ACTIVATION, u8(1) + u8(1)), u8(1));
    radio.deliver(card_message("CARD", L""));
    const std::filesystem::directory_iterator stored(incoming_folder(home.path()));
    std::ostringstream octets;
    octets << std::ifstream(stored->path(), std::ios::binary).rdbuf();
    EXPECT_THAT(octets.str(), testing::EndsWith(":empty\nCARD"));
    EXPECT_TRUE(zpd.close(1));
    const HANDLE sender = zpd.sender();
    zpd.unload();
    expect_gone_with(sender);
}

TEST_F(dll_test, comes_and_goes) {
    for (size_t life = 1; life <= 20; ++life) {
        SCOPED_TRACE(life);
        const zpd_t zpd;
        EXPECT_EQ(zpd.init(nullptr, nullptr), 1u);
        EXPECT_EQ(zpd.request(ZPD_IOCTL_VERSION), u32(ZPD_INTERFACE_VERSION));
        radio.question(life);
        const HANDLE sender = zpd.sender();
        zpd.unload();
        expect_gone_with(sender);
    }
}

// The log file belongs to the log object, which goes with the library.
TEST_F(dll_test, closes_its_log) {
    const std::wstring log = L"P:\\Application Data\\PUBLIC\\VARKON\\ZPD\\LOG\\zpd.log";
    for (size_t life = 1; life <= 3; ++life) {
        const zpd_t zpd;
        zpd.init(nullptr, nullptr);
        zpd.request(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(1) + u8(7) + u8(7));
        EXPECT_FALSE(DeleteFileW(log.c_str())) << "while the library is there";
        radio.question(life);
        const HANDLE sender = zpd.sender();
        zpd.unload();
        expect_gone_with(sender);
        EXPECT_TRUE(DeleteFileW(log.c_str())) << "error " << GetLastError();
    }
}

// The sender is stopped in its sleep until everybody else has done with the library.
TEST_F(dll_test, stays_until_the_sender_has_left) {
    const zpd_t zpd;
    zpd.init(nullptr, nullptr);
    radio.question(1);
    zpd.request(ZPD_IOCTL_VERSION);  // its round has ended
    Sleep(100);                      // and it sleeps, which no event tells: it may hold no lock of the C++ runtime
    const HANDLE sender = zpd.sender();
    EXPECT_EQ(SuspendThread(sender), 0u);
    zpd.unload();
    EXPECT_TRUE(zpd_is_loaded());
    EXPECT_EQ(ResumeThread(sender), 1u);
    expect_gone_with(sender);
}

}  // namespace
