/// One command of a command line, V.250 5.3 and 5.4, and the reading of its parameters. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace network {

enum class at_form_t { execute, set, read, test };

struct at_command_t {
    std::string name;  // in capitals: "+CMGS", "E", "&F", "S3"
    at_form_t form = at_form_t::execute;
    std::string value;  // what follows "="; for a basic command the digits that follow its name
};

/// Takes the next command off the front of a command line (without "AT" and its end). None when the line is malformed.
std::optional<at_command_t> next_command(std::string_view& line);

/// The highest value of a parameter whose range the command itself checks.
inline constexpr unsigned any_number = 65'535;

/// Parameters separated by commas; numbers are decimal digits, texts stand in quotes.
class at_parameters_t {
  public:
    explicit at_parameters_t(std::string_view value);

    size_t count() const { return values_.size(); }
    bool given(size_t index) const { return index < values_.size() && !values_[index].empty(); }
    /// None when it is missing, no number or over `highest`.
    std::optional<unsigned> number(size_t index, unsigned highest) const;
    /// The same, with a value for a missing one.
    std::optional<unsigned> number_or(size_t index, unsigned highest, unsigned missing) const;
    /// The text between the quotes; none when it is missing or has no quotes.
    std::optional<std::string> text(size_t index) const;

  private:
    std::vector<std::string> values_;
};

}  // namespace network
