#include "service/loaded_driver.h"

#include <fmt/format.h>

#include <array>

#include "base/octets.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/home.h"

namespace {

constexpr DWORD process_attach = 1;
constexpr DWORD process_detach = 0;

}  // namespace

loaded_driver_t::loaded_driver_t() {
    DllMain(nullptr, process_attach, nullptr);
    device_ = ZPD_Init(TEXT("Drivers\\BuiltIn\\ZPD"), nullptr);
}

loaded_driver_t::~loaded_driver_t() {
    ZPD_Deinit(device_);
    DllMain(nullptr, process_detach, nullptr);
}

// All of the output is wanted.
bool loaded_driver_t::control(DWORD code, std::span<BYTE> input, std::span<BYTE> output) const {
    DWORD returned = 0;
    const DWORD open = ZPD_Open(device_, 0, 0);
    const BOOL done = ZPD_IOControl(open, code, input.data(), static_cast<DWORD>(input.size()), output.data(),
                                    static_cast<DWORD>(output.size()), &returned);
    ZPD_Close(open);
    return done != FALSE && returned == output.size();
}

std::string loaded_driver_t::answers() const {
    std::array<BYTE, 4> version{};
    if (!control(ZPD_IOCTL_VERSION, {}, version) || version[0] != ZPD_INTERFACE_VERSION) {
        return fmt::format("the driver does not answer (error {})", GetLastError());
    }
    return {};
}

std::string loaded_driver_t::activate() const {
    std::array<BYTE, 2> set_to_active{1, 1};
    std::array<BYTE, 1> active{};
    if (!control(ZPD_IOCTL_ACTIVATION, set_to_active, active) || active[0] != 1) {
        return fmt::format("the service could not be activated (error {})", GetLastError());
    }
    return {};
}

std::optional<bool> loaded_driver_t::is_active() const {
    std::array<BYTE, 1> query{0};
    std::array<BYTE, 1> active{};
    return control(ZPD_IOCTL_ACTIVATION, query, active) ? std::optional(active[0] != 0) : std::nullopt;
}

std::optional<uint32_t> loaded_driver_t::inbox_size() const {
    std::array<BYTE, 1> query{0};
    std::array<BYTE, 4> size{};
    return control(ZPD_IOCTL_INCOMING_DIR_SIZE, query, size) ? std::optional(base::reader_t(size).u32()) : std::nullopt;
}

std::string preset_activation() {
    constexpr std::array<BYTE, 4> active{1, 0, 0, 0};
    HKEY key = nullptr;
    LONG error = RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT(ZPD_SETTINGS_KEY), 0, nullptr, 0, KEY_READ | KEY_WRITE,
                                 nullptr, &key, nullptr);
    if (error == ERROR_SUCCESS) {
        error = RegSetValueExW(key, TEXT(ZPD_SETTING_ACTIVATED), 0, REG_DWORD, active.data(), active.size());
        RegCloseKey(key);
    }
    return error == ERROR_SUCCESS ? std::string()
                                  : fmt::format("the activation cannot be stored in {}: end what holds the file",
                                                (platform::home() / "registry.sqlite").native());
}
