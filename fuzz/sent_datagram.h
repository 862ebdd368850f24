/// Datagrams of strangers, as a modem delivers them: octets of any kind, or well-formed around parts that are not.
#pragma once

#include <string>

#include "air/cdma.h"
#include "air/tpdu.h"
#include "fuzz/input.h"
#include "radio/ril_message.h"

struct sent_datagram_t {
    radio::technology_t technology;
    air::octets_t octets;
};

/// A few senders, whose numbers no other `series` has.
inline air::address_t sender(input_t& input, unsigned series) {
    using enum air::number_type_t;
    const std::string digits = std::to_string(series % 10'000'000);
    const air::address_t senders[] = {{international, 1, "49" + digits},
                                      {unknown, 1, "49" + digits},
                                      {national, 0, "*#abc" + digits},
                                      {alphanumeric, 0, "Ann" + digits},
                                      {alphanumeric, 0, "+49" + digits}};
    return senders[input.below(std::size(senders))];
}

/// Few references, parts and amounts, so that messages become whole; with foreign elements ahead or behind.
inline std::string header(input_t& input) {
    const std::string port("\x05\x04\x23\xF4\0\0", 6);
    const auto octet = [&](size_t most) { return std::string(1, static_cast<char>(input.below(most))); };
    switch (input.below(8)) {
        case 0:
            return input.piece(140);
        case 1:
            return port;
        case 2:
            return input.piece(16) + std::string("\0\3", 2) + octet(3) + octet(4) + octet(5) + port;
        case 3:
            return port + std::string("\x08\x04", 2) + octet(2) + octet(3) + octet(4) + octet(5) + input.piece(16);
        case 4:
            return std::string("\x08\x04\0", 3) + octet(3) + octet(4) + octet(5) + port;
        default:
            return std::string("\0\3", 2) + octet(3) + octet(4) + octet(5) + port;
    }
}

inline air::octets_t gsm_octets(const air::address_t& sender, const air::octets_t& user_data, uint8_t data_coding) {
    const bool septets = air::alphabet_of(data_coding) == air::alphabet_t::gsm7;
    const air::deliver_t deliver{
        .originator = sender,
        .data_coding = data_coding,
        .header_indicator = true,
        .user_data_length = static_cast<uint8_t>(septets ? user_data.size() * 8 / 7 : user_data.size()),
        .user_data = user_data};
    return air::encode(deliver).value_or(air::octets_t());
}

inline air::octets_t cdma_octets(const air::address_t& sender, const air::octets_t& user_data) {
    const air::cdma::message_t deliver{.type = air::cdma::message_type_t::deliver,
                                       .address = sender,
                                       .header_indicator = true,
                                       .user_data = {{air::cdma::encoding_t::octets, user_data}}};
    return air::cdma::encode(deliver).value_or(air::octets_t());
}

inline sent_datagram_t sent_datagram(input_t& input, unsigned series) {
    using enum radio::technology_t;
    const unsigned kind = input.octet();
    const auto technology = kind % 4 == 0 ? cdma : gsm;
    if (kind % 16 < 2) {
        const std::string octets = input.piece(250);
        return {technology, {octets.begin(), octets.end()}};
    }
    const air::address_t address = sender(input, series);
    const std::string elements = header(input);
    const std::string body = input.piece(input.below(8) == 0 ? 140 : 4);
    std::string user_data = static_cast<char>(elements.size()) + elements + body;
    user_data.resize(std::min(user_data.size(), air::max_user_data));
    const air::octets_t octets(user_data.begin(), user_data.end());
    constexpr uint8_t codings[] = {0x04, 0x04, 0x04, 0xF5, 0x00, 0x08};
    const uint8_t coding = codings[kind / 16 % std::size(codings)];
    return {technology, technology == gsm ? gsm_octets(address, octets, coding) : cdma_octets(address, octets)};
}
