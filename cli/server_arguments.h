/// How commands reach a fleet's server, besides its address: --credentials and --tls-…, or the environment.
#pragma once

#include <CLI/CLI.hpp>

#include "relay/nats.h"

/// The server outlives the command.
void add_server_options(CLI::App* command, nats::server_t& server);

/// For the help of commands with them.
extern const char* const server_environment_help;
