#include "service/loaded_driver.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/octets.h"
#include "base/text.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/home.h"

namespace {

constexpr DWORD process_attach = 1;
constexpr DWORD process_detach = 0;

constexpr uint32_t most_datagrams = 255;
constexpr size_t status_size = 4 + most_datagrams * 8;

base::writer_t encoded(const loaded_driver_t::outgoing_t& card) {
    return base::writer_t().string(card.octets).flag(card.is_utf8).flag(card.long_reference);
}

}  // namespace

loaded_driver_t::loaded_driver_t() {
    DllMain(nullptr, process_attach, nullptr);
    device_ = ZPD_Init(TEXT("Drivers\\BuiltIn\\ZPD"), nullptr);
}

loaded_driver_t::~loaded_driver_t() {
    ZPD_Deinit(device_);
    DllMain(nullptr, process_detach, nullptr);
}

// The driver only reads the input.
loaded_driver_t::reply_t loaded_driver_t::request(DWORD code, std::span<const BYTE> input,
                                                  std::span<BYTE> output) const {
    std::vector<BYTE> octets(input.begin(), input.end());
    DWORD returned = 0;
    const DWORD open = ZPD_Open(device_, 0, 0);
    const BOOL done = ZPD_IOControl(open, code, octets.data(), static_cast<DWORD>(octets.size()), output.data(),
                                    static_cast<DWORD>(output.size()), &returned);
    const uint32_t error = done != FALSE ? ERROR_SUCCESS : GetLastError();
    ZPD_Close(open);
    return {done != FALSE, error, returned};
}

// All of the output is wanted.
bool loaded_driver_t::control(DWORD code, std::span<const BYTE> input, std::span<BYTE> output) const {
    const reply_t reply = request(code, input, output);
    return reply.done && reply.returned == output.size();
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

loaded_driver_t::answer_t loaded_driver_t::count(const outgoing_t& card) const {
    std::array<BYTE, 4> output{};
    const reply_t reply = request(ZPD_IOCTL_COUNT_DATAGRAMS, encoded(card).octets(), output);
    return {base::reader_t(output).u32().value_or(0), reply.error};
}

// The message that got the id 0 is reported as a failure, and sent.
loaded_driver_t::answer_t loaded_driver_t::send(const outgoing_t& card, std::string_view number) const {
    std::array<BYTE, 4> output{};
    const base::writer_t input = encoded(card).string16(base::to_utf16(number));
    const reply_t reply = request(ZPD_IOCTL_SEND_MESSAGE, input.octets(), output);
    const uint32_t id = base::reader_t(output).u32().value_or(0);
    const bool is_zero =
        reply.returned != 0 && reply.error == ZPD_ERROR_DEVICE_NOT_AVAILABLE && id == ZPD_MESSAGE_ID_ZERO;
    return is_zero ? answer_t{} : answer_t{id, reply.error};
}

std::optional<std::vector<uint32_t>> loaded_driver_t::datagrams(uint32_t message) const {
    std::vector<BYTE> output(status_size);
    const reply_t reply = request(ZPD_IOCTL_MESSAGE_STATUS, base::writer_t().u32(message).octets(), output);
    if (!reply.done) {
        return std::nullopt;
    }
    base::reader_t reader(output);
    std::vector<uint32_t> statuses(std::min<uint32_t>(reader.u32().value_or(0), most_datagrams));
    for (uint32_t& status : statuses) {
        status = reader.u32().value_or(ZPD_STATUS_RELEASED);
        reader.u32();
    }
    return statuses;
}

void loaded_driver_t::close(uint32_t message) const {
    request(ZPD_IOCTL_MESSAGE_CLOSE, base::writer_t().u32(message).octets(), {});
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
