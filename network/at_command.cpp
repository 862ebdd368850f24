#include "network/at_command.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace network {

namespace {

constexpr std::string_view extended_prefixes = "+*#$%^";

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

char to_upper(char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

/// Where `separator` stands first outside quotes, or the end of the text.
size_t find_unquoted(std::string_view text, char separator) {
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') {
            quoted = !quoted;
        } else if (text[i] == separator && !quoted) {
            return i;
        }
    }
    return text.size();
}

void read_form(std::string_view tail, at_command_t& command) {
    if (tail == "?") {
        command.form = at_form_t::read;
    } else if (tail == "=?") {
        command.form = at_form_t::test;
    } else if (tail.starts_with('=')) {
        command.form = at_form_t::set;
        command.value = tail.substr(1);
    }
}

/// V.250 5.4.1: up to ";" or the end of the line.
std::optional<at_command_t> next_extended(std::string_view& line) {
    const size_t end = find_unquoted(line, ';');
    const std::string_view text = line.substr(0, end);
    line.remove_prefix(std::min(end + 1, line.size()));
    const size_t name_length = std::min(text.find_first_of("=?"), text.size());
    at_command_t command;
    std::transform(text.begin(), text.begin() + name_length, std::back_inserter(command.name), to_upper);
    const std::string_view tail = text.substr(name_length);
    if (name_length < 2 || (tail.starts_with('?') && tail.size() > 1)) {
        return std::nullopt;
    }
    read_form(tail, command);
    return command;
}

std::string take_digits(std::string_view& line) {
    const auto end = std::find_if_not(line.begin(), line.end(), is_digit);
    std::string digits(line.begin(), end);
    line.remove_prefix(digits.size());
    return digits;
}

/// V.250 5.3.1 and 5.3.2: a letter, or "&" and a letter, and a number; or a register.
std::optional<at_command_t> next_basic(std::string_view& line) {
    const size_t name_length = line.front() == '&' ? 2 : 1;
    if (line.size() < name_length || std::isalpha(static_cast<unsigned char>(line[name_length - 1])) == 0) {
        return std::nullopt;
    }
    at_command_t command;
    std::transform(line.begin(), line.begin() + name_length, std::back_inserter(command.name), to_upper);
    line.remove_prefix(name_length);
    if (command.name == "S") {
        command.name += take_digits(line);
        if (line.starts_with('?')) {
            line.remove_prefix(1);
            command.form = at_form_t::read;
            return command;
        }
        if (!line.starts_with('=')) {
            return std::nullopt;
        }
        line.remove_prefix(1);
        command.form = at_form_t::set;
    }
    command.value = take_digits(line);
    return command;
}

}  // namespace

std::optional<at_command_t> next_command(std::string_view& line) {
    if (line.starts_with(';')) {  // between a basic command and an extended one it is allowed, not needed
        line.remove_prefix(1);
    }
    if (line.empty()) {
        return std::nullopt;
    }
    return extended_prefixes.find(line.front()) != std::string_view::npos ? next_extended(line) : next_basic(line);
}

at_parameters_t::at_parameters_t(std::string_view value) {
    while (!value.empty()) {
        const size_t end = find_unquoted(value, ',');
        values_.emplace_back(value.substr(0, end));
        value.remove_prefix(std::min(end + 1, value.size()));
    }
}

std::optional<unsigned> at_parameters_t::number(size_t index, unsigned highest) const {
    if (!given(index)) {
        return std::nullopt;
    }
    const std::string& digits = values_[index];
    unsigned number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size() || number > highest) {
        return std::nullopt;
    }
    return number;
}

std::optional<unsigned> at_parameters_t::number_or(size_t index, unsigned highest, unsigned missing) const {
    return given(index) ? number(index, highest) : missing;
}

std::optional<std::string> at_parameters_t::text(size_t index) const {
    if (!given(index)) {
        return std::nullopt;
    }
    const std::string& quoted = values_[index];
    if (quoted.size() < 2 || quoted.front() != '"' || quoted.back() != '"') {
        return std::nullopt;
    }
    return quoted.substr(1, quoted.size() - 2);
}

}  // namespace network
