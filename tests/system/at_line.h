/// The host's end of a modem's tty, spoken to by hand: for what another program does on the same network.
#pragma once

#include <string>

class at_line_t {
  public:
    explicit at_line_t(const std::string& tty);
    ~at_line_t();
    at_line_t(const at_line_t&) = delete;
    at_line_t& operator=(const at_line_t&) = delete;

    /// Sends one line and returns all that came until its final result code or prompt; what came until then when the
    /// modem is silent for ten seconds.
    std::string ask(const std::string& line);
    /// Submits a TPDU given in hexadecimal digits.
    std::string submit(const std::string& tpdu);

  private:
    int descriptor_ = -1;
};
