/// The commands below `zpd network`, which ask a running one. Each is in the file of its subject.
#pragma once

#include <filesystem>

#include "cli/command.h"

void add_network_send_command(CLI::App* network, context_t& context);
void add_network_show_command(CLI::App* network, context_t& context);
void add_network_expect_command(CLI::App* network, context_t& context);

/// --dir, which must be given.
void add_network_directory(CLI::App* command, std::filesystem::path& directory);
/// A phone's number, which is made a bare one.
CLI::Option* add_number_option(CLI::App* command, const std::string& name, std::string& number,
                               const std::string& help);
