/// An emulated network and the phones on it, each its own process, in a temporary folder that goes with them.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/system/process.h"

inline const std::string alice = "+447700900101";
inline const std::string bob = "+447700900102";
inline const std::string carol = "+447700900103";

/// What a test does by hand at length: the number in this variable of the environment.
int told_number(const char* name, int otherwise);

arguments_t joined(arguments_t first, const arguments_t& more);

class folder_t {
  public:
    folder_t();
    ~folder_t();
    folder_t(const folder_t&) = delete;
    folder_t& operator=(const folder_t&) = delete;

    std::string operator/(const std::string& name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

/// The modems of alice, bob and carol, or of `phones` as `zpd network` takes them. Running once it is made, or the test
/// fails.
class network_t {
  public:
    explicit network_t(const folder_t& folder, const std::string& phones = alice + "," + bob + "," + carol);
    std::string modem(const std::string& number) const { return directory_ + "/" + number; }

  private:
    std::string directory_;
    process_t process_;
};

/// A driver on a modem: `zpd serve` with a home and a device of its own.
class phone_t {
  public:
    /// `name` names its home and its device in the folder. It does not run yet.
    phone_t(const folder_t& folder, const std::string& name, std::string modem);

    /// Starts it; waiting for its "ready" is left to the caller, so that several can start at once.
    process_t& start(const arguments_t& more = {});
    bool ready() { return serve_->wait_for_line("ready"); }
    process_t& serve() { return *serve_; }

    /// Runs a command against this phone's device.
    outcome_t zpd(const arguments_t& arguments) const;
    /// `zpd inbox` on this phone's home.
    outcome_t inbox(const arguments_t& arguments) const;
    /// `zpd ioctl --json`, its object as text.
    outcome_t ioctl(const std::string& code, const arguments_t& more = {}) const;

    const std::string& home() const { return home_; }
    const std::string& device() const { return device_; }
    const std::string& modem() const { return modem_; }
    /// The stored messages: whole files, as the driver wrote them.
    std::vector<std::filesystem::path> stored() const;

  private:
    std::string home_;
    std::string device_;
    std::string modem_;
    std::unique_ptr<process_t> serve_;
};

/// How often each card lies in a phone's inbox.
std::map<std::string, int> stored_cards(const phone_t& phone);

std::string read_file(const std::filesystem::path& file);
std::string write_file(const std::string& path, const std::string& octets);

/// The SMS-SUBMITs of a card to bob (3GPP TS 23.040 9.2.2.2) in hexadecimal digits, with parts of `size` octets.
std::vector<std::string> submissions(const std::string& card, unsigned reference, size_t size);
