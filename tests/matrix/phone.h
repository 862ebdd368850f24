/// A phone in this process: the driver and the radio, on a modem of the emulated network.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "com/miscio/text.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "radio/attach_modem.h"
#include "tests/driver/home.h"
#include "tests/driver/octets.h"
#include "tests/incoming.h"
#include "tests/passing_time.h"

inline std::string read_file(const std::filesystem::path& path) {
    std::ostringstream octets;
    octets << std::ifstream(path, std::ios::binary).rdbuf();
    return octets.str();
}

constexpr DWORD process_attach = 1;
constexpr DWORD process_detach = 0;

class phone_t {
  public:
    phone_t() {
        preset(TEXT("activated"), 1);
        preset(TEXT("logging_enabled"), 1);
        preset(TEXT("log_level_file"), 5);
    }
    ~phone_t() { stop(); }

    /// Attaches the modem, starts the driver, and waits until it knows its network.
    void start(const radio::modem_options_t& modem) {
        auto attached = std::async(std::launch::async, [&] { return radio::attach_modem(modem); });
        ASSERT_TRUE(
            as_time_passes([&] { return attached.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
        ASSERT_EQ(attached.get(), "");
        DllMain(nullptr, process_attach, nullptr);
        ZPD_Init(TEXT("Drivers\\BuiltIn\\ZPD"), nullptr);
        started_ = true;
        ASSERT_TRUE(as_time_passes([this] { return log().find("System type: ") != std::string::npos; }));
        let_time_pass(10'000);  // the driver waits so long before it believes it
    }
    void stop() {
        radio::detach_modem();
        if (std::exchange(started_, false)) {
            request(ZPD_IOCTL_LOG_OPTIONS,
                    u8(1) + u8(0) + u8(7) + u8(0));  // else the log file would outlive the driver
            ZPD_Deinit(1);
            DllMain(nullptr, process_detach, nullptr);
        }
    }

    /// Hands a card in; its id.
    uint32_t send(const std::string& card, const std::string& number) {
        return u32_at(request(ZPD_IOCTL_SEND_MESSAGE, text(card) + u8(0) + u8(0) + text16(widen(number))), 0);
    }
    /// Whether all of its datagrams are sent.
    bool sent(uint32_t id) {
        const std::string statuses = request(ZPD_IOCTL_MESSAGE_STATUS, u32(id));
        bool all = true;
        for (size_t at = 4; at < statuses.size(); at += 8) {
            all = all && u32_at(statuses, at) == ZPD_STATUS_SENT;
        }
        return all;
    }
    /// The cards stored, in any order.
    std::vector<std::string> stored() const {
        std::vector<std::string> cards;
        std::error_code none;
        for (const auto& entry : std::filesystem::directory_iterator(incoming_folder(home()), none)) {
            const std::string octets = read_file(entry.path());  // a line with the time and the sender, then the card
            cards.push_back(octets.substr(std::min(octets.find('\n') + 1, octets.size())));
        }
        return cards;
    }
    std::string log() const { return read_file(files_ / "LOG/zpd.log"); }
    const std::filesystem::path& home() const { return home_.path(); }

  private:
    static void preset(LPCWSTR name, DWORD value) {
        HKEY key = nullptr;
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT("\\Software\\Varkon\\Drivers\\ZPD\\daemon"), 0, nullptr, 0, KEY_WRITE,
                        nullptr, &key, nullptr);
        EXPECT_EQ(RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value), 0);
        RegCloseKey(key);
    }
    static std::string request(uint32_t code, const std::string& input) {
        std::vector<BYTE> in(input.begin(), input.end());
        std::vector<BYTE> out(4096);
        DWORD returned = 0;
        EXPECT_TRUE(ZPD_IOControl(1, code, in.data(), static_cast<DWORD>(in.size()), out.data(),
                                  static_cast<DWORD>(out.size()), &returned))
            << "error " << GetLastError();
        return {out.begin(), out.begin() + returned};
    }

    home_t home_;
    const std::filesystem::path files_ = home() / "Application Data/PUBLIC/VARKON/ZPD";
    bool started_ = false;
};
