/// The home of a phone, taken for the service.
#pragma once

#include <filesystem>
#include <string>

#include "service/instance_lock.h"

/// Sets the home of this process, looks that what the service will open in it are files of the user's own and no links,
/// takes the home's lock and opens the registry. As nobody else can write there, what was looked at stays so. Returns
/// an empty text, or why it cannot be used. `lock` is to last as long as the service.
[[nodiscard]] std::string take_home(const std::filesystem::path& folder, instance_lock_t& lock);
