/// Which ttys of this machine have a modem.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace radio {

/// The ttys that may have one: by their lasting names in `serial/by-id` of the folder of devices, else those of USB.
std::vector<std::string> modem_ttys(const std::filesystem::path& devices = "/dev");

/// Asks once, which takes a second, or some more on a tty that answers to something else. A tty that another program
/// holds, as far as this user can see, is left alone. Returns an empty text when a modem answers, or why not.
[[nodiscard]] std::string try_modem(const std::string& tty);

}  // namespace radio
