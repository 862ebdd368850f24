/// What a modem and the program at its other end, its host, speak over. Not thread-safe.
#pragma once

#include <string>

namespace network {

class host_line_t {
  public:
    virtual ~host_line_t() = default;
    /// Appends what the host has written, a bounded piece at a time; nothing when there is none.
    virtual void read(std::string& into) = 0;
    /// Removes from `from` what the line has taken.
    virtual void write(std::string& from) = 0;
};

}  // namespace network
