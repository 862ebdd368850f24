/// Questions to a modem, one after the other, as its set-up and its diagnosis ask them: what to ask and what follows
/// from the answer is the same for both, when to give up is not.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "radio/at_dialogue.h"

namespace radio {

class inquiry_t {
  public:
    virtual ~inquiry_t() = default;
    /// The reply, or the refusal, which is a modem's right; reply lines begin with `prefix`. None when nothing more is
    /// to be asked: the modem is gone, say. Whoever asks then stops there; the inquiry knows why.
    [[nodiscard]] virtual std::optional<reply_t> ask(const std::string& line, std::string_view prefix = {}) = 0;
};

}  // namespace radio
