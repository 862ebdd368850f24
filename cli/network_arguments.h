/// The arguments of `zpd network` that begin with a phone's number, and what is behind its colon. The checks return an
/// empty text, or what is wrong.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "network/tcp_port.h"

/// The numbers of NUMBER[:ANYTHING].
std::vector<std::string> numbers_of(const std::vector<std::string>& arguments);
/// The first that is given twice, "+" or not; empty when none is.
std::string repeated_number(const std::vector<std::string>& arguments);

/// NUMBER[:NETWORK]
std::string check_networked_phone(const std::string& text);

/// NUMBER:FAULT
struct first_fault_t {
    std::string number;
    std::string fault;
};
first_fault_t first_fault_of(const std::string& text);
std::string check_first_fault(const std::string& text);

/// NUMBER:[ADDRESS:]PORT
struct listening_t {
    std::string number;
    std::optional<network::tcp_address_t> address;  // none is wrong
};
listening_t listening_of(const std::string& text);
std::string check_listening(const std::string& text);

/// Digits.
std::string check_seed(const std::string& text);
