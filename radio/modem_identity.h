/// Which modem it is, told by its serial number (3GPP TS 27.007 5.4): two sticks of one make may have the same lasting
/// name, and the SIM of the other is somebody else. Used on the modem's thread.
#pragma once

#include <string>

#include "radio/modem_state.h"
#include "radio/setup_inquiry.h"

namespace radio {

/// Whether the line can be an answer without a name before it: what modems say by themselves begins with a sign, save
/// of calls.
bool is_bare_answer(const std::string& line);

class modem_identity_t {
  public:
    /// It outlives the object.
    explicit modem_identity_t(modem_board_t& board) : board_(board) {}

    /// Asks for the number, and once for the maker and the model; the first number that is told counts from then on.
    /// False when the inquiry is over, and so it is with the number of another. A modem that tells none is taken for
    /// the same.
    [[nodiscard]] bool set_up(setup_inquiry_t& inquiry);
    /// Of a line that is nobody's: true for what was asked for.
    bool take(const std::string& line);

  private:
    [[nodiscard]] bool ask_words(setup_inquiry_t& inquiry, const std::string& name, std::string& words);

    modem_board_t& board_;
    bool asking_ = false;           // for the number
    std::string* words_ = nullptr;  // that are asked for
    std::string maker_, model_;
    std::string told_;
    std::string number_;  // empty until one has been told
};

}  // namespace radio
