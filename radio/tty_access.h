/// Who may use a tty, by its mode.
#pragma once

#include <sys/types.h>

#include <string>

namespace radio {

/// What a user can do who may not read and write a tty of this mode, owner and group. Nobody is told to join the group
/// root. To be called while no other thread asks for users and groups.
std::string access_advice(mode_t mode, uid_t owner, gid_t group);

}  // namespace radio
