/// Cards, and the datagrams of cards as a peer that is none of ours sends them.
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "tests/network/host.h"

constexpr size_t body_octets = 128;  // of a datagram with a short reference

/// A card of so many datagrams, unlike any other of the run in each of them.
inline std::string card_of(size_t datagrams, size_t serial) {
    std::string card = fmt::format("BEGIN:VCARD\r\nVERSION:2.1\r\nN:Number {}\r\nX-OCTETS:", serial);
    while (card.size() < datagrams * body_octets - 40) {
        card += static_cast<char>((card.size() * (37 + serial % 50) + serial) % 223 + 32);
    }
    return card + "\r\nEND:VCARD\r\n";
}

inline size_t datagrams_of(const std::string& card) {
    return (card.size() + body_octets - 1) / body_octets;
}

inline std::string body_of(const std::string& card, size_t index) {
    return card.substr(index * body_octets, body_octets);
}

/// The datagram with the body at this index, from 0, to a number.
inline air::submit_t datagram_of(const std::string& card, size_t index, const std::string& number, size_t reference) {
    const size_t datagrams = datagrams_of(card);
    air::octets_t header = {0x05, 0x04, 0x23, 0xF4, 0x00, 0x00};
    if (datagrams > 1) {
        header.insert(header.end(), {0x00, 0x03, static_cast<uint8_t>(reference), static_cast<uint8_t>(datagrams),
                                     static_cast<uint8_t>(index + 1)});
    }
    const std::string body = body_of(card, index);
    const air::octets_t octets(body.begin(), body.end());
    air::submit_t message = network::submit_to(number, air::join_user_data(header, octets).value());
    message.header_indicator = true;
    return message;
}
