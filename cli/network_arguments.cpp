#include "cli/network_arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "cli/phone_number.h"
#include "network/fault_table.h"

namespace {

struct behind_number_t {
    std::string number;
    std::optional<std::string> rest;  // none without a colon
};

behind_number_t behind_number(const std::string& text) {
    const size_t colon = text.find(':');
    return colon == std::string::npos ? behind_number_t{text, std::nullopt}
                                      : behind_number_t{text.substr(0, colon), text.substr(colon + 1)};
}

}  // namespace

std::vector<std::string> numbers_of(const std::vector<std::string>& arguments) {
    std::vector<std::string> numbers(arguments.size());
    std::ranges::transform(arguments, numbers.begin(), [](const auto& text) { return behind_number(text).number; });
    return numbers;
}

std::string repeated_number(const std::vector<std::string>& arguments) {
    std::set<std::string> digits;
    for (const std::string& number : numbers_of(arguments)) {
        if (!digits.insert(number.substr(number.starts_with('+') ? 1 : 0)).second) {
            return number;
        }
    }
    return {};
}

std::string check_networked_phone(const std::string& text) {
    const behind_number_t phone = behind_number(text);
    if (std::string error = check_number(phone.number); !error.empty()) {
        return error;
    }
    return !phone.rest || network::technology_named(*phone.rest)
               ? std::string()
               : fmt::format("\"{}\" names no network after the number; see zpd network --help", text);
}

first_fault_t first_fault_of(const std::string& text) {
    const behind_number_t fault = behind_number(text);
    return {fault.number, fault.rest.value_or("")};
}

std::string check_first_fault(const std::string& text) {
    const behind_number_t fault = behind_number(text);
    return fault.rest ? network::set_fault(nullptr, *fault.rest) : fmt::format("\"{}\" is no NUMBER:FAULT", text);
}

listening_t listening_of(const std::string& text) {
    const behind_number_t listening = behind_number(text);
    return {listening.number, network::tcp_address_named(listening.rest.value_or(""))};
}

std::string check_listening(const std::string& text) {
    const listening_t listening = listening_of(text);
    if (std::string error = check_number(listening.number); !error.empty()) {
        return error;
    }
    return listening.address ? std::string() : fmt::format("\"{}\" is no NUMBER:[ADDRESS:]PORT", text);
}

std::string check_seed(const std::string& text) {
    return text.find_first_not_of("0123456789") == std::string::npos
               ? std::string()
               : fmt::format("\"{}\" is no seed: digits are wanted", text);
}
