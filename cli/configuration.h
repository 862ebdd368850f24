/// What commands take from the user's configuration file, or from that of --config: the options that the command line
/// leaves out. zpd.conf(5) is made of this.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/command.h"

/// --config, for a command whose options a file of its own may hold, without sections.
void add_config_option(CLI::App* command);

/// To be called when the command line is read, before what was chosen runs. What is wrong in the file, or that the one
/// of --config cannot be read, is a CLI::ConfigError; that the user's is missing is not.
///
/// That file has above its sections what holds for all commands, and in the section [send] options of zpd send; it may
/// have sections for the commands that are configurable(). Of those of other commands only the names are looked at.
void configure(CLI::App& app, context_t& context);

/// The user's device and home, for a command that says nothing of a file in which something is wrong.
void configure_common(context_t& context);

/// Those that a file may set.
std::vector<const CLI::Option*> configurable_options(const CLI::App& command);

/// What holds for the command, in the form of the file that it came from or can be put into.
std::string configuration_of(const CLI::App& command);

/// The form of the files in words, with an empty line between paragraphs.
std::string_view configuration_form();
