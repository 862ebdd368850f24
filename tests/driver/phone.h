/// A phone that runs the driver: a home and a registry of its own, the entry points from Init to IOControl, and what a
/// test wants to know afterwards: the log, the registry and the incoming directory.
///
/// Request buffers are written by hand (octets.h). One phone at a time in a process. Nothing here sleeps: the clock is
/// moved.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/testing.h"
#include "tests/driver/home.h"
#include "tests/driver/octets.h"
#include "tests/driver/scripted_radio.h"

/// What a control request came to.
struct reply_t {
    uint32_t error;      // the last error, 0 when it is done
    std::string output;  // as many octets as were returned
    bool operator==(const reply_t&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const reply_t& reply) {
        return stream << "error " << reply.error << ", output " << testing::PrintToString(reply.output);
    }
};
inline reply_t done(std::string output = {}) {
    return {0, std::move(output)};
}
inline reply_t failed(uint32_t error, std::string output = {}) {
    return {error, std::move(output)};
}

constexpr DWORD no_network = RIL_SYSTEMTYPE_NONE;
constexpr DWORD gsm = RIL_SYSTEMTYPE_GSM;
constexpr DWORD cdma = RIL_SYSTEMTYPE_IS95A;

using lines_t = std::vector<std::string>;

class phone_t {
  public:
    phone_t();   // an empty home, the driver not yet started
    ~phone_t();  // ends the driver
    phone_t(const phone_t&) = delete;
    phone_t& operator=(const phone_t&) = delete;

    void preset(const std::string& name, uint32_t value) { preset(name, REG_DWORD, u32(value)); }
    void preset(const std::string& name, DWORD type, const std::string& octets,
                const std::string& key = R"(\Software\Varkon\Drivers\ZPD\daemon)");
    void preset_logging() { preset("logging_enabled", 1), preset("log_level_file", 7); }
    /// The octets of a value of the driver's key, "(none)" when it is not there.
    std::string registry(const std::string& name) const;
    void install(const std::string& name) { create_directories(home() / "Applications" / "Install" / name); }

    void start();
    /// Starts, answers the first question for the network, and lets the ten seconds after it pass.
    void start_on(DWORD system_type);
    void stop();
    bool is_running() const { return running_; }

    reply_t request(DWORD code, const std::string& input = {}, DWORD capacity = 4096);
    reply_t send(const std::string& card, const wide_string_t& number = TEXT("+491711234567"), bool utf8 = false,
                 bool long_reference = false);
    /// Sends a binary card and returns its id.
    uint32_t send_card(size_t octets);
    reply_t close(uint32_t id) { return request(ZPD_IOCTL_MESSAGE_CLOSE, u32(id)); }
    /// The statuses of a message's datagrams; empty when there is no such message.
    std::vector<int32_t> status(uint32_t id);
    std::vector<uint32_t> list();

    /// Moves the clock and has the sender look at it.
    void pass(uint64_t milliseconds);
    /// Rounds that the sender has begun. Needs the log, as does the next.
    size_t rounds() const;
    /// Wakes the sender and returns when it has since held a whole round. Needs a network.
    void let_sender_look();

    /// The stored files, by their names.
    std::map<std::string, std::string> incoming() const;
    /// "address:data" of each stored card, sorted.
    std::vector<std::string> cards() const;

    /// The log: "LEVEL text", or "LEVEL @function" for an entry trace without text.
    lines_t log() const;
    /// How often the log has a line; '~' in it stands for some hexadecimal digits.
    size_t logged(const std::string& line) const;
    /// The states that a datagram went through, as the log tells: "QUEUED DISPATCHER …".
    std::string states(uint32_t message, unsigned ordinal) const;

    const std::filesystem::path& home() const { return home_.path(); }
    scripted_radio_t& radio = scripted_radio_t::instance();

  private:
    home_t home_;
    std::atomic<bool> running_ = false;
    DWORD network_ = no_network;
};

std::string read_file(const std::filesystem::path& path);

/// Yields until the predicate holds; a test failure after 60 s.
void eventually(const std::function<bool()>& predicate);

/// Runs each on a thread of its own, all from the same moment on; returns when all have ended.
void all_at_once(const std::vector<std::function<void()>>& acts);

/// The lines occur in the log in this order, others between them. Behind an empty line it begins anew: threads that
/// write at once take turns as they like.
void expect_in_order(const lines_t& log, const lines_t& expected);

/// A GSM deliver message with everything present.
RILMESSAGE deliver_message(const std::string& header, const std::string& data,
                           const wide_string_t& address = TEXT("+123"));
/// The header of part `ordinal`: concatenation, then the service port.
std::string part_header(unsigned reference, unsigned amount, unsigned ordinal, bool long_reference = false);
inline const std::string port_header("\x05\x04\x23\xF4\x00\x00", 6);

/// Those that begin with '#' left out.
lines_t lines_of(const std::filesystem::path& file);

class driver_test : public ::testing::Test {
  protected:
    /// Compares the phone's log with logs/NAME.txt, NAME being the running test's.
    void expect_log();

    phone_t phone;
    scripted_radio_t& radio = phone.radio;
};
