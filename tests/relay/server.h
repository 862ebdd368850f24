/// A nats-server without passwords, on a port of this machine that was free, with a store that goes with it. Running
/// once it is made, or the test fails.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>

#include "relay/fleet_names.h"

/// Debian's; its folder is in nobody's PATH but root's.
inline constexpr const char* nats_server_program = "/usr/sbin/nats-server";

class server_t {
  public:
    server_t();
    ~server_t();
    server_t(const server_t&) = delete;
    server_t& operator=(const server_t&) = delete;

    /// At once, as by a loss of power.
    void kill();
    /// Again, where it was, with what it had stored.
    void start();

    fleet::address_t address(const std::string& group) const { return {{url_, "", "", "", ""}, group}; }
    /// Null, and the test fails, when there is none.
    std::unique_ptr<nats::connection_t> connect() const;

  private:
    std::filesystem::path folder_;
    std::string port_ = "-1";
    std::string url_;
    pid_t process_ = -1;
};
