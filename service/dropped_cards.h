/// Cards that the driver takes and does not store, as its settings have it: said to whom they matter, the user.
#pragma once

#include <atomic>
#include <string>

#include "service/loaded_driver.h"

class dropped_cards_t {
  public:
    /// The driver of which the reasons are asked from now on; null for none. It outlives this, or the next call.
    void ask(const loaded_driver_t* driver) { driver_ = driver; }
    /// Says on the standard error stream that a card of this sender is gone, and what to do for the next ones. For the
    /// radio's thread, see radio::modem_options_t.
    void tell(const std::string& sender) const;

  private:
    std::string reason() const;

    std::atomic<const loaded_driver_t*> driver_ = nullptr;
};
