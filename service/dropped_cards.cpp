#include "service/dropped_cards.h"

#include <fmt/format.h>

#include <cstdio>

#include "base/safe_text.h"

void dropped_cards_t::tell(const std::string& sender) const {
    const std::string text = fmt::format("zpd serve: dropped a card from {}: {}", sender, reason());
    std::fputs((base::escaped(text) + '\n').c_str(), stderr);
}

// The driver returns no reason; its settings hold it, unless they were changed just now.
std::string dropped_cards_t::reason() const {
    const loaded_driver_t* const driver = driver_;
    if (driver != nullptr && driver->is_active() == false) {
        return "activation is off; zpd activation on";
    }
    if (const uint32_t files = driver != nullptr ? driver->inbox_size().value_or(0) : 0; files != 0) {
        return fmt::format("the inbox holds more than {} files; zpd inbox remove, or zpd settings inbox-size", files);
    }
    return "the driver's log has the reason";
}
