// The values of a registry key: raw, 32-bit and text.
#include <utility>
#include <vector>

#include "com/miscio/reg.h"
#include "com/miscio/text.h"
#include "com/qmlog/api2.h"

reg_value_t::reg_value_t(reg_t& reg, std::string value_name) : owner(reg), name(std::move(value_name)) {}

bool reg_value_t::registry_available() const {
    return owner.key() != nullptr;
}

bool reg_value_t::reg_read_raw(std::string& bytes, uint32_t& type) const {
    if (!registry_available()) {
        QM_ERROR("can't read '%s': registry not available", name.c_str());
        return false;
    }
    const wide_string_t wide_name = widen(name);
    DWORD size = 0;
    uint32_t result =
        static_cast<uint32_t>(RegQueryValueExW(owner.key(), wide_name.c_str(), nullptr, nullptr, nullptr, &size));
    if (result != ERROR_SUCCESS) {
        QM_ERROR("can't query size of field '%s': error=0x%08X", name.c_str(), result);
        return false;
    }
    constexpr int max_reallocations = 9;  // the value may grow between two queries
    for (int reallocations = 0; reallocations <= max_reallocations; ++reallocations) {
        std::vector<BYTE> buffer(size + 1);  // one more: the platform wants a buffer also for no octets
        const uint32_t allocated = size;
        DWORD found_type = 0;
        result = static_cast<uint32_t>(
            RegQueryValueExW(owner.key(), wide_name.c_str(), nullptr, &found_type, buffer.data(), &size));
        if (result == ERROR_SUCCESS) {
            QM_INFO("read %d bytes from registry field '%s' (type=0x%X)", static_cast<uint32_t>(size), name.c_str(),
                    static_cast<uint32_t>(found_type));
            bytes.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
            type = found_type;
            return true;
        }
        if (result != ERROR_MORE_DATA) {
            QM_ERROR("can't read registry field '%s': error=0x%08X", name.c_str(), result);
            return false;
        }
        if (reallocations < max_reallocations) {
            QM_ERROR("reading registry field '%s': buffer[%d] too short, allocating %d bytes", name.c_str(), allocated,
                     static_cast<uint32_t>(size));
        }
    }
    QM_ERROR("give up reading registry field '%s' after %d buffer re-allocation", name.c_str(), max_reallocations);
    return false;
}

bool reg_value_t::reg_write_raw(const std::string& bytes, uint32_t type) const {
    if (!registry_available()) {
        QM_ERROR("can't write field '%s': registry not available", name.c_str());
        return false;
    }
    const auto size = static_cast<uint32_t>(bytes.size());
    uint32_t result = static_cast<uint32_t>(
        RegSetValueExW(owner.key(), widen(name).c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()), size));
    if (result != ERROR_SUCCESS) {
        QM_ERROR("can't write registry field '%s':error=0x%08X", name.c_str(), result);
        return false;
    }
    QM_INFO("wrote %d bytes to registry field '%s'", size, name.c_str());
    result = static_cast<uint32_t>(RegFlushKey(owner.key()));
    if (result != ERROR_SUCCESS) {
        QM_WARNING("can't flush registry tree, value could be lost; error=0x%08X", result);
    }
    return true;
}

reg_value_uint32_t::reg_value_uint32_t(reg_t& reg, const std::string& value_name, uint32_t least, uint32_t most,
                                       uint32_t initial)
    : reg_value_t(reg, value_name), maximum(most), minimum(least), default_value(initial), current(initial) {
    if (!registry_available()) {
        QM_WARNING("reg field '%s': registry can't be used, taking default value", name.c_str());
        return;
    }
    uint32_t stored = 0;
    if (!reg_read_uint32(stored)) {
        QM_WARNING("reg field '%s': can't read registry field, taking default value", name.c_str());
    } else if (!in_interval(stored)) {
        QM_WARNING("reg field '%s': value of registry field ouside of interval [%u,%u], taking default value",
                   name.c_str(), minimum, maximum);
    } else {
        current = stored;
        return;
    }
    if (!reg_write_uint32()) {
        QM_WARNING("reg field '%s': can't write registry field, value will be lost", name.c_str());
    }
}

bool reg_value_uint32_t::set(uint32_t value) {
    if (!in_interval(value)) {
        QM_ERROR("reg uint32 field '%s': value %u outside of interval [%u,%u]", name.c_str(), value, minimum, maximum);
        return false;
    }
    if (value == current) {
        QM_INFO("reg uint32 field '%s': not writting the same value '%u' to registry", name.c_str(), value);
        return true;
    }
    current = value;
    if (!reg_write_uint32()) {
        QM_WARNING("reg uint32 field '%s': can't write new value '%u', it will be lost", name.c_str(), value);
    }
    return true;
}

bool reg_value_uint32_t::reg_read_uint32(uint32_t& value) const {
    std::string bytes;
    uint32_t type = 0;
    if (!reg_read_raw(bytes, type)) {
        QM_ERROR("can't read uint32 value from registry field '%s'", name.c_str());
        return false;
    }
    if (bytes.size() != 4) {
        QM_ERROR("wrong registry field '%s' size %d (expected 4 bytes)", name.c_str(),
                 static_cast<uint32_t>(bytes.size()));
        return false;
    }
    if (type != REG_DWORD) {
        QM_ERROR("wrong registry field '%s' type: type=0x%08X", name.c_str(), type);
        return false;
    }
    value = 0;
    for (int i = 3; i >= 0; --i) {
        value = value << 8 | static_cast<uint8_t>(bytes[static_cast<size_t>(i)]);
    }
    QM_INFO("read registry field '%s', value='%u'", name.c_str(), value);
    return true;
}

bool reg_value_uint32_t::reg_write_uint32() const {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(current >> shift & 0xFF);
    }
    if (!reg_write_raw(bytes, REG_DWORD)) {
        QM_INFO("can't write registry field '%s', value='%u'", name.c_str(), current);  // INFO deliberately
        return false;
    }
    QM_INFO("wrote registry field '%s', value='%u'", name.c_str(), current);
    return true;
}

reg_value_string_t::reg_value_string_t(reg_t& reg, const std::string& value_name, std::string initial)
    : reg_value_t(reg, value_name), default_value(std::move(initial)), current(default_value) {
    if (!registry_available()) {
        QM_WARNING("reg field '%s': registry can't be used, taking default value", name.c_str());
        return;
    }
    if (reg_read_string(current)) {
        return;
    }
    QM_WARNING("reg field '%s': can't read registry field, taking default value", name.c_str());
    if (!reg_write_string()) {
        QM_WARNING("reg field '%s': can't write registry field, value will be lost", name.c_str());
    }
}

void reg_value_string_t::set(const std::string& value) {
    // These two texts say "uint32" deliberately.
    if (value == current) {
        QM_INFO("reg uint32 field '%s': not writting the same value '%s' to registry", name.c_str(), value.c_str());
        return;
    }
    current = value;
    if (!reg_write_string()) {
        QM_WARNING("reg uint32 field '%s': can't write new value '%s', it will be lost", name.c_str(), value.c_str());
    }
}

bool reg_value_string_t::reg_read_string(std::string& value) const {
    std::string bytes;
    uint32_t type = 0;
    if (!reg_read_raw(bytes, type)) {
        QM_ERROR("can't read string from registry field '%s'", name.c_str());
        return false;
    }
    if (type != REG_BINARY) {
        QM_ERROR("wrong registry field '%s' type: type=0x%08X", name.c_str(), type);
        return false;
    }
    value = std::move(bytes);
    return true;
}

bool reg_value_string_t::reg_write_string() const {
    // "%x" and "%u" stand where the text would: the lines show its length instead, so that they stay one line each.
    const auto length = static_cast<uint32_t>(current.size());
    if (!reg_write_raw(current, REG_BINARY)) {
        QM_INFO("can't write registry field '%s', value='%u'", name.c_str(), length);
        return false;
    }
    QM_INFO("wrote registry field '%s', value='%x'", name.c_str(), length);
    return true;
}
