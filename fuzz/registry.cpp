// A registry whose rows may hold anything, as the platform reads it and the driver begins with it. What must hold: the
// size of a value is told as it then reads, what is written reads back the same beside all that, and a driver that
// begins has settings within their ranges.
#include <algorithm>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/fuzzed_phone.h"
#include "fuzz/hostile_rows.h"

namespace {

const std::string settings_key = "HKEY_LOCAL_MACHINE" ZPD_SETTINGS_KEY;
const std::vector<std::string> plausible = {settings_key,
                                            settings_key,
                                            settings_key,
                                            "activated",
                                            "logging_enabled",
                                            "log_level_retail",
                                            "log_level_file",
                                            "ril_capacity",
                                            "next_message_id",
                                            "incoming_dir_size",
                                            "applications",
                                            "x;;y",
                                            "HKEY_LOCAL_MACHINE\\Software"};

void read(HKEY key, LPCWSTR name) {
    DWORD size = 0;
    DWORD type = 0;
    if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
        return;
    }
    std::vector<BYTE> data(size + 1);
    DWORD type_again = 0;
    DWORD room = size;
    must(RegQueryValueExW(key, name, nullptr, &type_again, data.data(), &room) == ERROR_SUCCESS);
    must(room == size && type == type_again && data.back() == 0);
    if (size > 0) {
        std::vector<BYTE> short_data(size - 1);
        room = size - 1;
        short_data.reserve(1);  // never null
        must(RegQueryValueExW(key, name, nullptr, nullptr, short_data.data(), &room) == ERROR_MORE_DATA);
        must(room == size);
    }
}

void write(HKEY key, LPCWSTR name, DWORD type, const std::string& octets) {
    const std::vector<BYTE> data(octets.begin(), octets.end());
    must(RegSetValueExW(key, name, 0, type, data.data(), static_cast<DWORD>(data.size())) == ERROR_SUCCESS);
    std::vector<BYTE> again(data.size() + 1);
    auto room = static_cast<DWORD>(again.size());
    DWORD type_again = 0;
    must(RegQueryValueExW(key, name, nullptr, &type_again, again.data(), &room) == ERROR_SUCCESS);
    must(type_again == type && room == data.size() && std::equal(data.begin(), data.end(), again.begin()));
}

void use(input_t& input) {
    HKEY key = nullptr;
    must(RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT(ZPD_SETTINGS_KEY), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key,
                         nullptr) == ERROR_SUCCESS);
    for (const std::string& name : plausible) {
        read(key, widen(name).c_str());
    }
    const std::string name = input.piece(20);
    const DWORD type = input.below(8);
    write(key, widen(name).c_str(), type, input.piece(40));
    must(RegCloseKey(key) == ERROR_SUCCESS);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzzed_phone_t phone;
    static hostile_rows_t rows(phone.home() / "registry.sqlite");
    phone.stop();
    input_t input(data, size);
    rows.replace(input, plausible);
    use(input);
    phone.start();
    const std::string log = phone.request(ZPD_IOCTL_LOG_OPTIONS, u8(0)).output;
    must(log.size() == 3 && log[0] <= 1 && log[1] <= 7 && log[2] <= 7 && std::ranges::min(log) >= 0);
    must(phone.request(ZPD_IOCTL_ACTIVATION, u8(0)).output.at(0) <= 1);
    must(phone.request(ZPD_IOCTL_RIL_CAPACITY, u8(0)).output.at(0) != 0);
    must(u32_at(phone.request(ZPD_IOCTL_INCOMING_DIR_SIZE, u8(0)).output, 0) <= ZPD_INCOMING_DIR_SIZE_MAX);
    phone.log(false);
    phone.begin();
    return 0;
}
