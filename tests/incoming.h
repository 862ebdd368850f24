/// Where the cards lie that a phone has stored.
#pragma once

#include <filesystem>

#include "com/zpd/zpd_ioctl.h"

inline std::filesystem::path incoming_folder(std::filesystem::path home) {
    for (const char* name : {ZPD_INCOMING_DIRECTORY}) {
        home /= name;
    }
    return home;
}
