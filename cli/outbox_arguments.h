/// The arguments that are about the outbox, of the commands that read them.
#pragma once

#include "base/duration.h"
#include "cli/command.h"

/// How long a message is tried.
struct expiry_t {
    uint64_t seconds = 2 * base::seconds_a_day;  // 0 for ever

    /// Seconds since 1970; 0 for never.
    uint64_t from_now() const;
};

/// --expires. The expiry must outlive the command.
void add_expires_option(CLI::App* command, expiry_t& expiry);
