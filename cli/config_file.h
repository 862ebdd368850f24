/// The form of the configuration files, zpd.conf(5): what is read of one, before it is known what the names mean.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// NAME = VALUE, of which a list has several.
struct setting_t {
    std::string section;  // empty above the first one
    std::string name;
    std::vector<std::string> values;
    size_t line = 0;  // from 1
};

/// Fills `settings` in the order of the file; no name stands twice in a section. Returns an empty text, or what is
/// wrong, without the file's name: "3: there is no value".
[[nodiscard]] std::string read_settings(std::string_view text, std::vector<setting_t>* settings);

/// Reads a file that is the user's own or root's, and that nobody else can write: it names programs that are run.
/// Returns an empty text, or what is wrong, with the file's name.
[[nodiscard]] std::string read_config_file(const std::filesystem::path& file, std::vector<setting_t>* settings);

/// A value as read_settings reads it, whatever is in it.
std::string quoted_value(std::string_view value);
