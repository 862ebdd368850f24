// The settings: where they persist, and the control codes that read and change them.
#include <algorithm>
#include <iterator>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

namespace {

constexpr const char* contacts_path = "\\Software\\Microsoft\\Pim\\Contacts\\Settings";

constexpr const char* log_directory_names[] = {ZPD_LOG_DIRECTORY, nullptr};

constexpr uint32_t max_log_options[] = {1, 7, 7};  // enabled, retail level, file level

/// Reads a value of at most `capacity` octets; ERROR_MORE_DATA for a longer one. The client names the capacity, so that
/// memory is taken for what is there only.
uint32_t query_value(HKEY key, const wide_string_t& name, uint32_t capacity, DWORD& type, std::string& value) {
    while (true) {
        DWORD size = 0;
        auto result = static_cast<uint32_t>(RegQueryValueExW(key, name.c_str(), nullptr, nullptr, nullptr, &size));
        if (result != ERROR_SUCCESS) {
            return result;
        }
        const bool fits = size <= capacity;
        size = std::min<DWORD>(size, capacity);
        value.resize(size_t{size} + 1);  // one more: a buffer of no octets is none to the platform
        result = static_cast<uint32_t>(
            RegQueryValueExW(key, name.c_str(), nullptr, &type, reinterpret_cast<BYTE*>(value.data()), &size));
        value.resize(result == ERROR_SUCCESS ? size : 0);
        const bool has_grown = result == ERROR_MORE_DATA && fits;  // between the two queries
        if (!has_grown) {
            return result;
        }
    }
}

}  // namespace

void daemon_t::open_settings() {
    settings = std::make_unique<reg_t>(HKEY_LOCAL_MACHINE, ZPD_SETTINGS_KEY);
    settings->add_uint32("logging_enabled", 0, max_log_options[0], 0);
    settings->add_uint32("log_level_retail", 0, max_log_options[1], 7);
    settings->add_uint32("log_level_file", 0, max_log_options[2], 0);
    settings->add_uint32("ril_capacity", 1, 255, 7);
    settings->add_uint32("next_message_id", 0, ZPD_MESSAGE_ID_MAX, 239);
    settings->add_uint32("incoming_dir_size", 0, ZPD_INCOMING_DIR_SIZE_MAX, 0);

    uint32_t enabled = 0;
    uint32_t retail_level = 7;
    uint32_t file_level = 0;
    (void)settings->get_uint32("logging_enabled", enabled);
    (void)settings->get_uint32("log_level_retail", retail_level);
    (void)settings->get_uint32("log_level_file", file_level);
    apply_log_options(enabled, retail_level, file_level);
}

void daemon_t::read_settings() {
    (void)settings->get_uint32("next_message_id", next_message_id);
    (void)settings->get_uint32("ril_capacity", machine->state_rilled->capacity);
    (void)settings->get_uint32("incoming_dir_size", incoming_dir_size);
}

void daemon_t::apply_log_options(uint32_t enabled, uint32_t retail_level, uint32_t file_level) {
    QM_NOTICE("in: current parameters=(%d:%d:%d); new parameters=(%d:%d:%d)", log_enabled, log_level_retail,
              log_level_file, enabled, retail_level, file_level);
    update_file_sink(enabled != 0 && file_level != 0);
    if (file_log != nullptr) {
        file_log->set_threshold(static_cast<int32_t>(file_level));
    }
    if (qmlog::log_retail* retail = qmlog::process_log().retail()) {
        retail->set_threshold(static_cast<int32_t>(retail_level));
    }
    log_enabled = enabled;
    log_level_retail = retail_level;
    log_level_file = file_level;
    qmlog::logging_enabled = enabled != 0;
    if (enabled != 0) {
        QM_NOTICE("out: set parameters=(%d:%d:%d)", log_enabled, log_level_retail, log_level_file);
    }
}

void daemon_t::update_file_sink(bool wanted) {
    if (wanted && file_log == nullptr) {
        (void)make_directory(log_directory_names);  // without it the file can't be opened, and lines are lost
        file_log = new qmlog::log_file(qmlog::process_log(), narrow(path_of(log_directory_names)) + "\\" ZPD_LOG_FILE,
                                       qmlog::level_debug);
    } else if (!wanted && file_log != nullptr) {
        delete file_log;
        file_log = nullptr;
    }
}

void daemon_t::set_log_options(request_t& request) {
    uint8_t mode;
    if (!request.input.get_byte(mode)) {
        QM_ERROR("can't read parameter 'mode'");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    if (mode != 0) {
        uint8_t values[std::size(max_log_options)];
        for (int i = 0; i < static_cast<int>(std::size(values)); ++i) {
            if (!request.input.get_byte(values[i])) {
                QM_ERROR("can't read value #%d", i);
                return request.fail(ZPD_ERROR_INVALID_DATA);
            }
            if (values[i] > max_log_options[i]) {
                QM_ERROR("invalid value #%d (%d)", i, values[i]);
                return request.fail(ZPD_ERROR_OUT_OF_RANGE);
            }
        }
        apply_log_options(values[0], values[1], values[2]);
        (void)settings->set_uint32("logging_enabled", log_enabled);
        (void)settings->set_uint32("log_level_retail", log_level_retail);
        (void)settings->set_uint32("log_level_file", log_level_file);
    }
    request.output.put_byte(static_cast<uint8_t>(log_enabled));
    request.output.put_byte(static_cast<uint8_t>(log_level_retail));
    request.output.put_byte(static_cast<uint8_t>(log_level_file));
}

void daemon_t::set_ril_capacity(request_t& request) {
    uint8_t mode;
    if (!request.input.get_byte(mode)) {
        QM_ERROR("can't read parameter 'mode'");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    if (mode != 0) {
        uint8_t new_capacity;
        if (!request.input.get_byte(new_capacity)) {
            QM_ERROR("can't read parameter 'new_capacity'");
            return request.fail(ZPD_ERROR_INVALID_DATA);
        }
        if (new_capacity == 0) {
            QM_ERROR("invalid new_capacity parameter (%d)", new_capacity);
            return request.fail(ZPD_ERROR_OUT_OF_RANGE);
        }
        machine->state_rilled->capacity = new_capacity;
        (void)settings->set_uint32("ril_capacity", new_capacity);
    }
    request.output.put_byte(static_cast<uint8_t>(machine->state_rilled->capacity));
}

void daemon_t::set_incoming_dir_size(request_t& request) {
    uint8_t mode;
    if (!request.input.get_byte(mode)) {
        QM_ERROR("can't read parameter 'mode'");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    if (mode != 0) {
        uint32_t new_size;
        if (!request.input.get_uint32(new_size)) {
            QM_ERROR("can't read parameter 'new_incoming_dir_size'");
            return request.fail(ZPD_ERROR_INVALID_DATA);
        }
        if (new_size > ZPD_INCOMING_DIR_SIZE_MAX) {
            QM_ERROR("invalid new_incoming_dir_size parameter (%d)", new_size);
            return request.fail(ZPD_ERROR_OUT_OF_RANGE);
        }
        incoming_dir_size = new_size;
        (void)settings->set_uint32("incoming_dir_size", new_size);
    }
    request.output.put_uint32(incoming_dir_size);
}

void daemon_t::get_pim_contacts_var(request_t& request) {
    wide_string_t name;
    if (!request.input.get_string16(name)) {
        QM_ERROR("invalid pin contacts setting entry name parameter");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    HKEY key = nullptr;
    auto result = static_cast<uint32_t>(
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, widen(contacts_path).c_str(), 0, KEY_QUERY_VALUE, &key));
    if (result != ERROR_SUCCESS) {
        QM_ERROR("RegOpenKeyExW() failed, error=0x%X", result);
        return request.fail(ZPD_ERROR_ACCESS);
    }
    DWORD type = 0;
    std::string value;
    result = query_value(key, name, request.output.size(), type, value);
    if (result == ERROR_SUCCESS) {
        QM_DEBUG("sucessfully read %d bytes of registry type 0x%X", static_cast<uint32_t>(value.size()),
                 static_cast<uint32_t>(type));
        request.output.put_uint32(type);
        request.output.put_string(value);
    } else if (result == ERROR_FILE_NOT_FOUND) {
        QM_WARNING("RegQueryValueExW() failed: requested field doesn't exist");
        request.fail(ZPD_ERROR_NOT_FOUND);
    } else if (result == ERROR_MORE_DATA) {
        QM_WARNING("RegQueryValueExW() failed: provided buffer is too short");
        request.fail(ZPD_ERROR_INSUFFICIENT_BUFFER);
    } else {
        QM_ERROR("RegQueryValueExW() failed for unclear reason, error=0x%X", result);
        request.fail(ZPD_ERROR_ACCESS);
    }
    result = static_cast<uint32_t>(RegCloseKey(key));
    if (result != ERROR_SUCCESS) {
        QM_WARNING("RegCloseKey(0x%X) failed, error=0x%X", identity(key), result);
    }
}
