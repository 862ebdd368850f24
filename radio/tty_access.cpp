#include "radio/tty_access.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

namespace radio {

std::string access_advice(mode_t mode, uid_t owner, gid_t group) {
    constexpr mode_t for_group = S_IRGRP | S_IWGRP;
    if ((mode & for_group) == for_group && group != 0) {
        const struct group* known = getgrgid(group);  // NOLINT(concurrency-mt-unsafe): no other thread asks
        return fmt::format("become a member of its group, {}, and log in again",
                           known != nullptr ? known->gr_name : std::to_string(group));
    }
    const passwd* user = getpwuid(owner);  // NOLINT(concurrency-mt-unsafe): the same
    return fmt::format(
        "only its owner, {}, may use it: a udev rule with GROUP=\"dialout\", MODE=\"0660\" gives it to the members of "
        "that group (65-zpd-phone.rules among zpd's examples is one)",
        user != nullptr ? user->pw_name : std::to_string(owner));
}

}  // namespace radio
