/// Directories and files of the object store. Paths are Windows CE paths; failures come back as false and are logged.
#pragma once

#include <string>

#include "com/miscio/text.h"

/// The names of the directories from the top down, ended by null.
using path_components_t = const char* const*;

/// "\c1\c2…" of the components.
wide_string_t path_of(path_components_t components);

/// Whether a path exists and is a directory.
bool is_directory(const wide_string_t& path);

/// Makes a directory and those above it that are missing.
[[nodiscard]] bool make_directory(path_components_t components);

/// Writes a whole file, replacing one that is there. False unless everything was written and the file closed; what
/// was begun is removed then.
[[nodiscard]] bool saveas(const wide_string_t& path, const std::string& octets);
