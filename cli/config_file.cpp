#include "cli/config_file.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "base/file.h"
#include "base/own_file.h"
#include "base/text.h"

namespace {

constexpr size_t largest_file = size_t{1} << 20;  // octets
constexpr std::string_view blanks = " \t\r";

/// Goes through the text once. The first thing that is wrong ends it.
class settings_reader_t {
  public:
    settings_reader_t(std::string_view text, std::vector<setting_t>* settings) : rest_(text), settings_(settings) {}

    std::string read() {
        while (skip_to_words(true)) {
            if (!(next_is('[') ? read_section() : read_setting()) || !expect_end()) {
                return fmt::format("{}: {}", line_, error_);
            }
        }
        return {};
    }

  private:
    bool fail(std::string_view error) {
        error_ = error;
        return false;
    }
    bool next_is(char letter) const { return rest_.starts_with(letter); }
    bool at_end_of_line() const { return rest_.empty() || next_is('\n'); }

    std::string_view take(size_t length) {
        const std::string_view taken = rest_.substr(0, length);
        line_ += static_cast<size_t>(std::ranges::count(taken, '\n'));
        rest_.remove_prefix(taken.size());
        return taken;
    }
    static std::string_view trimmed(std::string_view text) {
        text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
        return text.substr(0, text.find_last_not_of(blanks) + 1);
    }

    /// Over blanks and comments, and with `lines` over ends of lines. False when nothing follows.
    bool skip_to_words(bool lines) {
        for (;;) {
            take(rest_.find_first_not_of(blanks));
            if (next_is('#')) {
                take(rest_.find('\n'));
            } else if (!lines || !next_is('\n')) {
                return !rest_.empty();
            } else {
                take(1);
            }
        }
    }

    bool expect_end() {
        skip_to_words(false);
        return at_end_of_line() || fail("there is more on the line than a value");
    }

    bool read_section() {
        take(1);
        section_ = trimmed(take(rest_.find_first_of("]\n")));
        return take(1) == "]" || fail("a section is [NAME]");
    }

    bool read_setting() {
        const size_t line = line_;
        const std::string name(trimmed(take(rest_.find_first_of("=\n#"))));
        if (!next_is('=') || name.empty()) {
            return fail("a line is NAME = VALUE, [SECTION] or # a comment");
        }
        take(1);
        skip_to_words(false);
        std::vector<std::string> values;
        if (!(next_is('[') ? read_list(values) : read_value("\n", values))) {
            return false;
        }
        for (const setting_t& other : *settings_) {
            if (other.section == section_ && other.name == name) {
                return fail(fmt::format("'{}' stands in line {} already", name, other.line));
            }
        }
        settings_->push_back({section_, name, std::move(values), line});
        return true;
    }

    bool read_list(std::vector<std::string>& values) {
        take(1);
        while (skip_to_words(true) && !next_is(']')) {
            if (!read_value(",]\n", values)) {
                return false;
            }
            skip_to_words(true);
            if (next_is(',')) {
                take(1);
            } else if (!next_is(']')) {
                break;
            }
        }
        return take(1) == "]" || fail("a list is [VALUE, VALUE]");
    }

    bool read_value(std::string_view ends, std::vector<std::string>& values) {
        const std::optional<std::string> value = next_is('"')    ? escaped_value()
                                                 : next_is('\'') ? literal_value()
                                                                 : bare_value(ends);
        if (value && value->find('\0') != std::string::npos) {
            return fail("there is a NUL in the value");
        }
        values.push_back(value.value_or(""));
        return value.has_value();
    }

    std::optional<std::string> escaped_value() {
        std::string value;
        for (take(1); !at_end_of_line() && !next_is('"');) {
            const bool escapes = take(next_is('\\') ? 1 : 0) == "\\";
            if (escapes && !next_is('"') && !next_is('\\') && !next_is('n')) {
                fail(R"(in double quotes there is \", \\ and \n)");
                return std::nullopt;
            }
            value += escapes && next_is('n') ? (take(1), "\n") : take(1);
        }
        return closed(std::move(value), "\"");
    }

    std::optional<std::string> literal_value() {
        take(1);
        return closed(std::string(take(rest_.find_first_of("'\n"))), "'");
    }

    std::optional<std::string> closed(std::string value, std::string_view quote) {
        if (!rest_.starts_with(quote)) {
            fail("a quote is not closed");
            return std::nullopt;
        }
        take(1);
        return value;
    }

    /// Without quotes a # begins a comment only after a blank: names of files have some.
    std::optional<std::string> bare_value(std::string_view ends) {
        size_t length = std::min(rest_.find_first_of(ends), rest_.size());
        for (size_t at = rest_.find('#'); at < length; at = rest_.find('#', at + 1)) {
            if (at == 0 || blanks.find(rest_[at - 1]) != std::string_view::npos) {
                length = at;
            }
        }
        const std::string_view value = trimmed(take(length));
        if (value.empty()) {
            fail("there is no value");
            return std::nullopt;
        }
        return std::string(value);
    }

    std::string_view rest_;
    std::vector<setting_t>* settings_;
    std::string section_;
    size_t line_ = 1;
    std::string error_;
};

}  // namespace

std::string read_settings(std::string_view text, std::vector<setting_t>* settings) {
    return settings_reader_t(text, settings).read();
}

std::string read_config_file(const std::filesystem::path& file, std::vector<setting_t>* settings) {
    std::string problem;
    const base::descriptor_t opened = base::open_trusted_file(file, problem);
    if (!opened) {
        return problem;
    }
    std::string text;
    if (const int error = base::read_file(fmt::format("/proc/self/fd/{}", opened.get()), largest_file, &text);
        error != 0) {
        return fmt::format("cannot read {}: {}", file.native(), base::errno_text(error));
    }
    if (text.size() > largest_file) {
        return fmt::format("{} has more than {} octets", file.native(), largest_file);
    }
    problem = read_settings(text, settings);
    return problem.empty() ? problem : fmt::format("{}:{}", file.native(), problem);
}

std::string quoted_value(std::string_view value) {
    std::string text = "\"";
    for (const char letter : value) {
        if (letter == '"' || letter == '\\') {
            text += '\\';
        }
        text += letter == '\n' ? std::string("\\n") : std::string(1, letter);
    }
    return text + '"';
}
