// A complete message becomes a file in the incoming directory.
#include <ctime>
#include <optional>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

namespace {

/// A path for the message that no file has: a driver that is started again within a second begins with the same random
/// numbers. None when no name can be made.
std::optional<wide_string_t> unused_path(const sms_message_t& message, const wide_string_t& directory) {
    while (const std::optional<std::string> name = message.stored_name()) {
        wide_string_t path = directory + TEXT("\\") + widen(*name);
        if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
            return path;
        }
    }
    return std::nullopt;
}

}  // namespace

/// False when the message was refused. A failed write is not reported and the message not retried: deliberately.
bool daemon_t::save_complete_message(const sms_message_t& message) {
    if (!message.is_complete()) {
        QM_ERROR("can't save incomplete message");
        return false;
    }
    if (!activation_state->is_active()) {
        QM_ERROR("the daemon state is 'not activated' => dropping the message");
        return false;
    }
    const octet_string_t data = message.get_concatenated_data();
    if (!make_directory(incoming_directory)) {
        QM_ERROR("the directory for the incoming messages can't be created => message can't be saved");
        return false;
    }
    if (!check_incoming_directrory_size()) {
        QM_ERROR("incoming directory full, dropping message");
        return false;
    }
    // "%u:%s\n%s" of the time, the address and the data, which may hold any octet.
    const std::string content = std::to_string(static_cast<uint32_t>(time(nullptr))) + ZPD_STORED_AFTER_TIME +
                                message.get_address() + ZPD_STORED_AFTER_SENDER + data;
    const std::optional<wide_string_t> free_path = unused_path(message, path_of(incoming_directory));
    if (!free_path) {
        QM_ERROR("no digest for the name of the message => message can't be saved");
        return false;
    }
    const wide_string_t& path = *free_path;
    if (saveas(path, content)) {
        QM_DEBUG("successfully saved message as '%s'", narrow(path).c_str());
    } else {
        QM_ERROR("failed to write message to '%s'", narrow(path).c_str());
    }
    return true;
}

/// Whether there is room for one more file. Every entry counts. A directory that holds exactly the bound is not full
/// yet, so that one file more than the bound accumulates: deliberately.
bool daemon_t::check_incoming_directrory_size() {
    if (incoming_dir_size == 0) {
        QM_DEBUG("incoming_dir_size is zero, don't check for directory size");
        return true;
    }
    WIN32_FIND_DATAW entry;
    HANDLE find = FindFirstFileW((path_of(incoming_directory) + TEXT("\\*")).c_str(), &entry);
    if (find == INVALID_HANDLE_VALUE) {
        QM_NOTICE("Can't read a single file, directory not present or empty?");
        return true;
    }
    uint32_t counter = 0;
    bool fetched;
    do {
        counter += 1;
        QM_DEBUG("File #%d found: '%s'", counter, narrow(entry.cFileName).c_str());
        fetched = FindNextFileW(find, &entry) != FALSE;
    } while (fetched && counter <= incoming_dir_size);
    FindClose(find);
    const bool not_full = counter <= incoming_dir_size;
    QM_DEBUG("incoming_dir_size=%d, counter=%d, directory_is_not_full=%d", incoming_dir_size, counter,
             not_full ? 1 : 0);
    return not_full;
}
