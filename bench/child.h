/// A program that runs beside a measurement: what it costs is the kernel's account of it. It is killed when its object
/// goes, and when the measurement dies.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class child_t {
  public:
    /// Its standard streams go nowhere. Found in the PATH when the program's name has no "/".
    explicit child_t(const std::vector<std::string>& arguments);
    ~child_t() { end(); }
    child_t(const child_t&) = delete;
    child_t& operator=(const child_t&) = delete;

    /// Asks it to end, and waits.
    void end();
    /// Seconds of a core that it has used.
    double core_seconds() const;
    /// Octets of memory that it has now, without what it shares with others.
    double memory() const;

  private:
    pid_t id_;
};

/// Whether a program of this name is in the PATH.
bool is_installed(const std::string& program);
