/// A program of the user's own that is run for a received card. No shell is between. It is told of the card by its
/// environment, beside that of the service:
///
///   ZPD_CARD_FILE    the absolute path of the stored file: the sender's line, then the card
///   ZPD_CARD_NUMBER  the card's number, as `zpd inbox` has it
///   ZPD_CARD_SENDER  the phone number that it came from, which can be forged
///   ZPD_CARD_TIME    when it was stored, in seconds since 1970
///   ZPD_CARD_NAME    the name of the first contact on it, in UTF-8, without control characters; may be empty
///   ZPD_HOME         the phone's home, in which it starts
///
/// and has the card's own octets on its standard input, which it may leave unread. What it writes goes where the
/// service writes. The texts of a card are a stranger's.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

struct received_card_t {
    std::filesystem::path file;
    uint64_t number = 0;
    std::string sender;
    uint64_t time = 0;
    std::string name;
    std::string octets;
};

class card_program_t {
  public:
    struct limits_t {
        std::chrono::milliseconds run = std::chrono::minutes(2);    // then it is told to end, by SIGTERM
        std::chrono::milliseconds leave = std::chrono::seconds(5);  // and then killed, with its process group
    };

    /// Both paths are absolute.
    card_program_t(std::filesystem::path program, std::filesystem::path home, limits_t limits);

    /// Runs the program and waits for its end, or for `end` to be readable, which is one for it too. Returns an empty
    /// text when it ended with status 0, or how it ended: "it ended with status 3". Any thread.
    [[nodiscard]] std::string run(const received_card_t& card, int end) const;

    /// Why a file cannot be run as a program; empty when it can.
    static std::string problem(const std::filesystem::path& program);

  private:
    const std::filesystem::path program_;
    const std::filesystem::path home_;
    const limits_t limits_;
};
