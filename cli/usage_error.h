/// What is said of a command line that cannot be read.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// The commands that were given, from the program's name on: "zpd inbox show".
std::string command_line_of(const CLI::App& app);

/// "; did you mean 'send'?" when a command, or an option, of `app` is spelt almost like `word`; else empty.
std::string did_you_mean(const CLI::App& app, const std::string& word);

/// For CLI::App::failure_message: what is wrong, of which command, what was perhaps meant, and where to read on.
std::string usage_error(const CLI::App* app, const CLI::Error& error);
