#include "service/phone_home.h"

#include <fmt/format.h>

#include <vector>

#include "base/own_file.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/home.h"
#include "platform/linux/registry.h"
#include "radio/journal_file.h"
#include "radio/sim_pin.h"
#include "service/inbox.h"
#include "service/on_card_marks.h"
#include "service/outbox_file.h"

namespace {

std::filesystem::path log_file(std::filesystem::path home) {
    for (const char* const name : {ZPD_LOG_DIRECTORY, ZPD_LOG_FILE}) {
        home /= name;
    }
    return home;
}

/// The lock is looked at where it is taken.
std::vector<std::filesystem::path> files_to_open(const std::filesystem::path& home) {
    std::vector<std::filesystem::path> files{radio::pin_marks(), log_file(home)};
    for (const std::filesystem::path& database :
         {home / "registry.sqlite", radio::journal_file::path(home), outbox_file::path(home),
          inbox_t::numbers_file(home), on_card_marks_t::path(home)}) {
        for (const char* const suffix : {"", "-wal", "-shm"}) {
            files.emplace_back(database.native() + suffix);
        }
    }
    return files;
}

}  // namespace

std::string take_home(const std::filesystem::path& folder, instance_lock_t& lock) {
    if (std::string error = platform::set_home(folder); !error.empty()) {
        return error;
    }
    const std::filesystem::path& home = platform::home();
    for (const std::filesystem::path& file : files_to_open(home)) {
        if (std::string problem = base::own_file_problem(file); !problem.empty()) {
            return problem;
        }
    }
    if (std::string error = lock.take(home / "lock", fmt::format("home {} is already in use", folder.native()));
        !error.empty()) {
        return error;
    }
    return platform::open_registry();
}
