#include "platform/linux/home.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <list>
#include <mutex>
#include <system_error>

#include "base/own_file.h"

namespace platform {
namespace {

// Every home that was ever set stays: a thread may hold a reference to it while a test sets the next one.
struct homes_t {
    std::mutex mutex;
    std::list<std::filesystem::path> all{std::filesystem::path{}};
    std::atomic<const std::filesystem::path*> current{&all.front()};
};

homes_t& homes() {
    static auto& instance = *new homes_t;
    return instance;
}

std::string problem(const char* tried, const std::filesystem::path& folder, const std::error_code& error) {
    return std::string("cannot ") + tried + " the home folder '" + folder.string() + "': " + error.message();
}

}  // namespace

std::string set_home(const std::filesystem::path& folder) {
    std::error_code error;
    if (std::filesystem::create_directories(folder, error)) {
        // Messages of other people will lie in it.
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
    }
    if (error) {
        return problem("create", folder, error);
    }
    const std::filesystem::path real = std::filesystem::canonical(folder, error);
    if (error) {
        return problem("find", folder, error);
    }
    if (std::string unsafe = base::own_folder_problem("the home folder", real); !unsafe.empty()) {
        return unsafe;
    }
    if (access(real.c_str(), R_OK | W_OK | X_OK) != 0) {
        return problem("use", folder, {errno, std::generic_category()});
    }
    const std::lock_guard lock(homes().mutex);
    homes().current = &homes().all.emplace_back(real);
    return {};
}

const std::filesystem::path& home() {
    return *homes().current;
}

}  // namespace platform
