#include "tests/matrix/phone.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "com/miscio/text.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/testing.h"
#include "tests/driver/octets.h"

namespace fs = std::filesystem;

namespace {

constexpr DWORD process_attach = 1;
constexpr DWORD process_detach = 0;

void preset(LPCWSTR name, DWORD value) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT("\\Software\\Varkon\\Drivers\\ZPD\\daemon"), 0, nullptr, 0,
                              KEY_WRITE, nullptr, &key, nullptr),
              0);
    EXPECT_EQ(RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value), 0);
    RegCloseKey(key);
}

std::string read_file(const fs::path& path) {
    std::ostringstream octets;
    octets << std::ifstream(path, std::ios::binary).rdbuf();
    return octets.str();
}

}  // namespace

bool as_time_passes(const std::function<bool()>& predicate) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        let_time_pass(1);
    }
    return true;
}

void let_time_pass(uint64_t milliseconds) {
    constexpr uint64_t step = 30;  // a modem has still a third of a second of ours for what it must do in ten
    for (uint64_t passed = 0; passed < milliseconds; passed += step) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        platform::testing::advance_clock(step);
    }
}

phone_t::phone_t() {
    preset(TEXT("activated"), 1);
    preset(TEXT("logging_enabled"), 1);
    preset(TEXT("log_level_file"), 5);
}

phone_t::~phone_t() {
    stop();
}

std::string phone_t::start(radio::modem_options_t modem) {
    std::atomic<bool> over = false;
    std::string error;
    std::thread attaching([&] {
        error = radio::attach_modem(modem);
        over = true;
    });
    as_time_passes([&] { return over.load(); });
    attaching.join();
    if (!error.empty()) {
        return error;
    }
    DllMain(nullptr, process_attach, nullptr);
    ZPD_Init(TEXT("Drivers\\BuiltIn\\ZPD"), nullptr);
    started_ = true;
    if (!as_time_passes([this] { return log().find("System type: ") != std::string::npos; })) {
        return "the driver has not heard of its network";
    }
    platform::testing::advance_clock(10'000);  // the driver waits so long before it believes it
    return {};
}

void phone_t::stop() {
    radio::detach_modem();
    if (started_) {
        request(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(0) + u8(7) + u8(0));  // else the log file would outlive the driver
        ZPD_Deinit(1);
        DllMain(nullptr, process_detach, nullptr);
        started_ = false;
    }
}

std::string phone_t::request(uint32_t code, const std::string& input) {
    std::vector<BYTE> in(input.begin(), input.end());
    std::vector<BYTE> out(4096);
    DWORD returned = 0;
    EXPECT_TRUE(ZPD_IOControl(1, code, in.data(), static_cast<DWORD>(in.size()), out.data(),
                              static_cast<DWORD>(out.size()), &returned))
        << "error " << GetLastError();
    return {out.begin(), out.begin() + returned};
}

uint32_t phone_t::send(const std::string& card, const std::string& number) {
    return u32_at(request(ZPD_IOCTL_SEND_MESSAGE, text(card) + u8(0) + u8(0) + text16(widen(number))), 0);
}

bool phone_t::sent(uint32_t id) {
    const std::string statuses = request(ZPD_IOCTL_MESSAGE_STATUS, u32(id));
    bool all = true;
    for (size_t at = 4; at < statuses.size(); at += 8) {
        all = all && u32_at(statuses, at) == ZPD_STATUS_SENT;
    }
    return all;
}

std::vector<std::string> phone_t::stored() const {
    std::vector<std::string> cards;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(home() / "Application Data/PUBLIC/VARKON/ZPD/INCOMING", none)) {
        const std::string octets = read_file(entry.path());  // a line with the time and the sender, then the card
        cards.push_back(octets.substr(std::min(octets.find('\n') + 1, octets.size())));
    }
    return cards;
}

std::string phone_t::log() const {
    return read_file(home() / "Application Data/PUBLIC/VARKON/ZPD/LOG/zpd.log");
}
