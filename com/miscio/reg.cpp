#include "com/miscio/reg.h"

#include <utility>

#include "com/miscio/text.h"
#include "com/qmlog/api2.h"

reg_t::reg_t(HKEY root_key, std::string path) : root(root_key), key_path(std::move(path)) {
    init();
}

reg_t::~reg_t() {
    if (handle == nullptr) {
        return;
    }
    const uint32_t result = static_cast<uint32_t>(RegCloseKey(handle));
    if (result != ERROR_SUCCESS) {
        QM_ERROR("RegCloseKey(0x%X) failed, error=0x%08X", identity(handle), result);
    }
}

void reg_t::init() {
    DWORD disposition = 0;
    const uint32_t result = static_cast<uint32_t>(RegCreateKeyExW(
        root, widen(key_path).c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &handle, &disposition));
    if (result != ERROR_SUCCESS) {
        handle = nullptr;
        // The format lacks the "x" of "0x" deliberately: whoever searches logs searches for this.
        QM_ERROR("can't open key path '%s', error=0%08X", key_path.c_str(), result);
        return;
    }
    const char* outcome = disposition == REG_CREATED_NEW_KEY       ? "created a new"
                          : disposition == REG_OPENED_EXISTING_KEY ? "opened the"
                                                                   : "opened-or-created";
    QM_INFO("successfully %s key for path='%s'; hkey=0x%X", outcome, key_path.c_str(), identity(handle));
}

reg_value_t* reg_t::find(const std::string& name, bool report_missing) const {
    const auto found = cache.find(name);
    if (found == cache.end()) {
        if (report_missing) {
            QM_ERROR("registry field '%s' not found in the cache", name.c_str());
        }
        return nullptr;
    }
    if (!report_missing) {
        QM_ERROR("registry field '%s' already exists in the cache (0x%X)", name.c_str(), identity(found->second.get()));
    }
    return found->second.get();
}

reg_value_uint32_t* reg_t::add_uint32(const std::string& name, uint32_t minimum, uint32_t maximum,
                                      uint32_t default_value) {
    if (find(name, false) != nullptr) {
        return nullptr;
    }
    if (maximum < minimum) {
        QM_ERROR("reg field '%s': invalid value interval [%u,%u]", name.c_str(), minimum, maximum);
        return nullptr;
    }
    if (default_value < minimum || default_value > maximum) {
        QM_ERROR("reg field '%s': default value outside of interval [%u,%u]", name.c_str(), minimum, maximum);
        return nullptr;
    }
    auto value = std::make_unique<reg_value_uint32_t>(*this, name, minimum, maximum, default_value);
    reg_value_uint32_t* registered = value.get();
    cache[name] = std::move(value);
    return registered;
}

reg_value_string_t* reg_t::add_string(const std::string& name, const std::string& default_value) {
    if (find(name, false) != nullptr) {
        return nullptr;
    }
    auto value = std::make_unique<reg_value_string_t>(*this, name, default_value);
    reg_value_string_t* registered = value.get();
    cache[name] = std::move(value);
    return registered;
}

reg_value_uint32_t* reg_t::typed_uint32(const std::string& name) const {
    reg_value_t* const found = find(name, true);
    auto* const value = dynamic_cast<reg_value_uint32_t*>(found);
    if (found != nullptr && value == nullptr) {
        QM_ERROR("reg field '%s' is not of type '%s'", name.c_str(), "uint32");
    }
    return value;
}

bool reg_t::get_uint32(const std::string& name, uint32_t& value) const {
    const auto* field = typed_uint32(name);
    if (field == nullptr) {
        return false;
    }
    value = field->value();
    return true;
}

bool reg_t::set_uint32(const std::string& name, uint32_t value) {
    auto* field = typed_uint32(name);
    return field != nullptr && field->set(value);
}
