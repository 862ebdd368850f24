#include "network/identity.h"

namespace network {

namespace {

/// The last `count` digits of a number, with zeros before a shorter one.
std::string last_digits(std::string_view number, size_t count) {
    number.remove_prefix(number.starts_with('+') ? 1 : 0);
    const std::string padded = std::string(count, '0') + std::string(number);
    return padded.substr(padded.size() - count);
}

/// The check digit that follows these digits, 3GPP TS 23.003 B.2 and ITU-T E.118 alike: every other one is doubled, the
/// last among them.
char check_digit(std::string_view digits) {
    unsigned sum = 0;
    for (size_t i = 0; i < digits.size(); ++i) {
        const unsigned digit = static_cast<unsigned>(digits[i] - '0') * ((digits.size() - i) % 2 + 1);
        sum += digit / 10 + digit % 10;
    }
    return static_cast<char>('0' + (10 - sum % 10) % 10);
}

/// Two digits an octet, the first in the low half.
air::octets_t swapped(std::string_view digits) {
    air::octets_t octets;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        octets.push_back(static_cast<uint8_t>((digits[i + 1] - '0') << 4 | (digits[i] - '0')));
    }
    return octets;
}

}  // namespace

std::string equipment_identity(std::string_view number) {
    std::string identity = "001017" + last_digits(number, 8);
    identity += check_digit(identity);
    return identity;
}

std::string subscriber_identity(std::string_view number) {
    return std::string(network_code) + last_digits(number, 10);
}

std::string card_identity(std::string_view number) {
    constexpr std::string_view telecommunication = "89";
    std::string identity = std::string(telecommunication) + std::string(network_code) + last_digits(number, 12);
    identity += check_digit(identity);
    return identity;
}

air::octets_t subscriber_identity_file(std::string_view number) {
    constexpr std::string_view odd_count = "9";  // 9 in the first half octet: an odd number of digits follows
    air::octets_t octets = swapped(std::string(odd_count) + subscriber_identity(number));
    octets.insert(octets.begin(), static_cast<uint8_t>(octets.size()));
    return octets;
}

air::octets_t card_identity_file(std::string_view number) {
    return swapped(card_identity(number));
}

}  // namespace network
