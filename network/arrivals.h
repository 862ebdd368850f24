/// The cards that have arrived at the phones, put together from their datagrams (application port 9204), and those of
/// which datagrams are still missing. A card has arrived when the phone's modem, or the host that the modem asks, has
/// taken each of its datagrams.
///
/// It holds so many octets and no more: what arrived first is forgotten first. Not thread-safe.
#pragma once

#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "air/tpdu.h"

namespace network {

class arrivals_t {
  public:
    static constexpr size_t usual_room = 1'000'000;  // octets of whole cards, and as many of others

    explicit arrivals_t(size_t room = usual_room) : room_(room) {}

    /// A datagram that the phone with these digits has taken.
    void add(const std::string& digits, const air::deliver_t& deliver);

    /// Whether a card of these octets has arrived at the phone; the same arrival is not found a second time.
    bool take(std::string_view digits, air::octets_view_t card);

    /// Cards at the phone that nobody has taken: whole ones, then others, in the order of their arrival.
    struct told_t {
        std::string from;
        size_t octets;
        uint8_t have;  // datagrams
        uint8_t parts;
    };
    std::vector<told_t> at(std::string_view digits) const;

  private:
    struct card_t {
        std::string to;
        std::string from;
        air::octets_t octets;
        uint8_t parts;
    };
    struct key_t {
        std::string to;
        std::string from;
        uint8_t width;
        uint16_t reference;
        uint8_t parts;

        bool operator<(const key_t& other) const {
            return std::tie(to, from, width, reference, parts) <
                   std::tie(other.to, other.from, other.width, other.reference, other.parts);
        }
    };
    struct begun_t {
        key_t key;
        std::map<uint8_t, air::octets_t> parts;  // by number
    };
    using all_begun_t = std::list<begun_t>;  // the first begun first

    void add_part(const key_t& key, uint8_t part, air::octets_view_t body);
    void add_whole(card_t card);
    void forget(all_begun_t::iterator begun);

    const size_t room_;
    std::deque<card_t> whole_;
    size_t whole_octets_ = 0;
    all_begun_t begun_;
    std::map<key_t, all_begun_t::iterator> begun_by_key_;
    size_t begun_octets_ = 0;
};

}  // namespace network
