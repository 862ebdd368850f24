// zpd.dll as a device manager has it: loaded, called through its exports, unloaded.

#include <gmock/gmock.h>
#include <windows.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "tests/driver/home.h"
#include "tests/driver/octets.h"
#include "tests/driver/scripted_radio.h"
#include "tests/windows/radio.h"

namespace {

bool eventually(const std::function<bool()>& predicate) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

bool is_loaded() {
    return GetModuleHandleW(L"zpd.dll") != nullptr;
}

/// The library, and what it exports.
class zpd_t {
  public:
    zpd_t() {
        find(init, "ZPD_Init");
        find(deinit, "ZPD_Deinit");
        find(open, "ZPD_Open");
        find(close, "ZPD_Close");
        find(iocontrol, "ZPD_IOControl");
    }
    void unload() { EXPECT_TRUE(FreeLibrary(module)); }

    std::string request(DWORD code, std::string input = {}) {
        std::string output(256, '\0');
        DWORD returned = 0;
        EXPECT_TRUE(iocontrol(1, code, reinterpret_cast<BYTE*>(input.data()), static_cast<DWORD>(input.size()),
                              reinterpret_cast<BYTE*>(output.data()), static_cast<DWORD>(output.size()), &returned))
            << "code " << code << ", error " << GetLastError();
        return output.substr(0, returned);
    }

    const HMODULE module = LoadLibraryW(L"zpd.dll");
    decltype(&ZPD_Init) init;
    decltype(&ZPD_Deinit) deinit;
    decltype(&ZPD_Open) open;
    decltype(&ZPD_Close) close;
    decltype(&ZPD_IOControl) iocontrol;

  private:
    template <class function_t>
    void find(function_t& function, const char* name) {
        function = reinterpret_cast<function_t>(reinterpret_cast<void*>(GetProcAddress(module, name)));
        if (function == nullptr) {
            throw std::runtime_error(std::string("zpd.dll does not export ") + name);
        }
    }
};

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
    if (!VerQueryValueA(information.data(), "\\StringFileInfo\\040904B0\\FileDescription", &text, &length)) {
        return "(none)";
    }
    return static_cast<const char*>(text);
}

std::string output_of(const char* command) {
    std::string output;
    FILE* const pipe = _popen(command, "r");
    for (int c = 0; (c = fgetc(pipe)) != EOF;) {
        output += static_cast<char>(c);
    }
    _pclose(pipe);
    return output;
}

std::string only_file_in(const std::filesystem::path& folder) {
    std::ostringstream octets;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        octets << std::ifstream(entry.path(), std::ios::binary).rdbuf();
    }
    return octets.str();
}

TEST_F(dll_test, serves_a_client) {
    EXPECT_EQ(file_description(), "vcard driver");
    zpd_t zpd;
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
    RILMESSAGE message{};
    message.dwParams = RIL_PARAM_M_TYPE;
    message.dwType = RIL_MSGTYPE_IN_CDMADELIVER;
    RIL_IN_CDMADELIVER& deliver = message.msgInCDMADeliver;
    deliver.cbHdrLength = 6;
    std::string("\x05\x04\x23\xF4\0\0", 6).copy(reinterpret_cast<char*>(deliver.rgbHdr), 6);
    deliver.cchMsgLength = 4;
    std::string("CARD").copy(reinterpret_cast<char*>(deliver.rgbMsg), 4);
    radio.deliver(message);
    EXPECT_THAT(only_file_in(home.path() / "Application Data/PUBLIC/VARKON/ZPD/INCOMING"),
                testing::EndsWith(":empty\nCARD"));

    EXPECT_TRUE(zpd.close(1));
    EXPECT_TRUE(zpd.deinit(1));
    zpd.unload();
    EXPECT_TRUE(eventually([] { return !is_loaded(); }));
}

TEST_F(dll_test, comes_and_goes) {
    for (size_t life = 1; life <= 20; ++life) {
        zpd_t zpd;
        EXPECT_EQ(zpd.init(nullptr, nullptr), 1u);
        EXPECT_EQ(zpd.request(ZPD_IOCTL_VERSION), u32(ZPD_INTERFACE_VERSION));
        radio.question(life);
        EXPECT_TRUE(zpd.deinit(1));
        zpd.unload();
        EXPECT_TRUE(eventually([] { return !is_loaded(); })) << "life " << life;
    }
}

// The sender is stopped in its sleep until everybody else has done with the library.
TEST_F(dll_test, stays_until_the_sender_has_left) {
    zpd_t zpd;
    zpd.init(nullptr, nullptr);
    radio.question(1);
    zpd.request(ZPD_IOCTL_VERSION);  // its round has ended
    Sleep(100);                      // and it sleeps, which no event tells: it may hold no lock of the C++ runtime
    const HANDLE sender = OpenThread(THREAD_SUSPEND_RESUME | SYNCHRONIZE, FALSE, asking_thread);
    ASSERT_NE(sender, nullptr);
    EXPECT_EQ(SuspendThread(sender), 0u);
    zpd.deinit(1);
    zpd.unload();
    EXPECT_TRUE(is_loaded());
    EXPECT_EQ(ResumeThread(sender), 1u);
    EXPECT_EQ(WaitForSingleObject(sender, 60000), WAIT_OBJECT_0);
    EXPECT_FALSE(is_loaded());
    CloseHandle(sender);
}

}  // namespace
