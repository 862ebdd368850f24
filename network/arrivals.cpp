#include "network/arrivals.h"

#include <algorithm>
#include <utility>

#include "network/composition.h"

namespace network {

namespace {

/// What each one costs besides its octets, so that a flood of small ones is bounded, too.
constexpr size_t overhead = 200;

size_t octets_of(const auto& parts) {
    size_t octets = 0;
    for (const auto& [number, body] : parts) {
        octets += overhead + body.size();
    }
    return octets;
}

}  // namespace

void arrivals_t::add(const std::string& digits, const air::deliver_t& deliver) {
    const auto user_data = deliver.header_indicator ? air::split_user_data(deliver.user_data) : std::nullopt;
    if (!user_data || air::destination_port(user_data->header) != card_ports.destination) {
        return;
    }
    const auto place = air::place_of(user_data->header);
    if (!place) {
        return;
    }
    const std::string from = air::number_from_address(deliver.originator);
    if (place->parts == 1) {
        add_whole({digits, from, air::octets_t(user_data->body.begin(), user_data->body.end()), 1});
    } else {
        add_part({digits, from, place->width, place->reference, place->parts}, place->part, user_data->body);
    }
}

/// Other octets under a number that is taken begin another card: references come round.
void arrivals_t::add_part(const key_t& key, uint8_t part, air::octets_view_t body) {
    auto known = begun_by_key_.find(key);
    if (known != begun_by_key_.end()) {
        const auto taken = known->second->parts.find(part);
        if (taken != known->second->parts.end() && !std::ranges::equal(taken->second, body)) {
            forget(known->second);
            known = begun_by_key_.end();
        }
    }
    if (known == begun_by_key_.end()) {
        known = begun_by_key_.emplace(key, begun_.insert(begun_.end(), {key, {}})).first;
    }
    begun_t& begun = *known->second;
    if (begun.parts.try_emplace(part, body.begin(), body.end()).second) {
        begun_octets_ += overhead + body.size();
    }
    if (begun.parts.size() == key.parts) {
        air::octets_t octets;
        for (const auto& [number, piece] : begun.parts) {
            octets.insert(octets.end(), piece.begin(), piece.end());
        }
        forget(known->second);
        add_whole({key.to, key.from, std::move(octets), key.parts});
    }
    while (begun_octets_ > room_) {
        forget(begun_.begin());
    }
}

void arrivals_t::add_whole(card_t card) {
    whole_octets_ += overhead + card.octets.size();
    whole_.push_back(std::move(card));
    while (whole_octets_ > room_) {
        whole_octets_ -= overhead + whole_.front().octets.size();
        whole_.pop_front();
    }
}

void arrivals_t::forget(all_begun_t::iterator begun) {
    begun_octets_ -= octets_of(begun->parts);
    begun_by_key_.erase(begun->key);
    begun_.erase(begun);
}

bool arrivals_t::take(std::string_view digits, air::octets_view_t card) {
    const auto arrived = std::ranges::find_if(
        whole_, [&](const card_t& whole) { return whole.to == digits && std::ranges::equal(whole.octets, card); });
    if (arrived == whole_.end()) {
        return false;
    }
    whole_octets_ -= overhead + arrived->octets.size();
    whole_.erase(arrived);
    return true;
}

std::vector<arrivals_t::told_t> arrivals_t::at(std::string_view digits) const {
    std::vector<told_t> told;
    for (const card_t& whole : whole_) {
        if (whole.to == digits) {
            told.push_back({whole.from, whole.octets.size(), whole.parts, whole.parts});
        }
    }
    for (const begun_t& begun : begun_) {
        if (begun.key.to == digits) {
            told.push_back({begun.key.from, octets_of(begun.parts) - overhead * begun.parts.size(),
                            static_cast<uint8_t>(begun.parts.size()), begun.key.parts});
        }
    }
    return told;
}

}  // namespace network
