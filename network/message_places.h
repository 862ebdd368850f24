/// One memory of a modem for messages (<mem> of 3GPP TS 27.005 3.1): a fixed number of places, numbered from 1.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "network/air_message.h"

namespace network {

/// <stat>, 3GPP TS 27.005 3.1.
enum class message_status_t : unsigned { unread = 0, read = 1, unsent = 2, sent = 3 };

struct stored_message_t {
    message_status_t status = message_status_t::unread;
    air_message_t message;
};

class message_places_t {
  public:
    explicit message_places_t(size_t count) : places_(count) {}

    size_t count() const { return places_.size(); }
    size_t used() const {
        return static_cast<size_t>(
            std::count_if(places_.begin(), places_.end(), [](const auto& place) { return place.has_value(); }));
    }
    /// The lowest free place, or none when the memory is full.
    std::optional<size_t> put(stored_message_t message) {
        const auto place = std::find(places_.begin(), places_.end(), std::nullopt);
        if (place == places_.end()) {
            return std::nullopt;
        }
        *place = std::move(message);
        return static_cast<size_t>(place - places_.begin()) + 1;
    }
    /// Null when the place is empty or there is none of that number.
    stored_message_t* at(size_t index) { return exists(index) && places_[index - 1] ? &*places_[index - 1] : nullptr; }
    bool exists(size_t index) const { return index >= 1 && index <= places_.size(); }
    void erase(size_t index) { places_[index - 1].reset(); }
    /// What is stored beyond them is lost.
    void set_count(size_t count) { places_.resize(count); }

  private:
    std::vector<std::optional<stored_message_t>> places_;
};

}  // namespace network
