/// The cards that arrive in a phone's inbox from now on.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "base/descriptor.h"
#include "base/end_signals.h"
#include "service/inbox_folder.h"

class arrivals_t {
  public:
    explicit arrivals_t(inbox_folder_t inbox) : inbox_(std::move(inbox)) {}

    /// Makes the folder, if need be, and watches it. Returns an empty text, or why it cannot.
    [[nodiscard]] std::string watch();
    /// The next card whose file is written and closed; none when the time is over or a signal comes.
    std::optional<stored_card_t> next(const base::end_signals_t& signals, std::chrono::seconds limit);

    const inbox_folder_t& inbox() const { return inbox_; }

  private:
    /// The names of the files in a buffer of the kernel's events are appended to `names_`.
    bool read_events();

    inbox_folder_t inbox_;
    base::descriptor_t events_;
    std::vector<std::string> names_;
};
