/// What is said of a command line that cannot be read.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/// The commands that were given, from the program's name on: "zpd inbox show".
std::string command_line_of(const CLI::App& app);

/// "; did you mean 'modem'?" when one of those that are known is spelt almost like `word`; else empty.
std::string did_you_mean(const std::vector<std::string>& known, const std::string& word);
/// "; did you mean 'send'?" when a command, or an option, of `app` is spelt almost like `word`; else empty.
std::string did_you_mean(const CLI::App& app, const std::string& word);

/// What is said of a command that there is none of.
std::string no_command(const CLI::App& app, const std::string& name);

/// For CLI::App::failure_message: what is wrong, of which command, what was perhaps meant, and where to read on.
std::string usage_error(const CLI::App* app, const CLI::Error& error);
