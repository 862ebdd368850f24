#include "cli/usage_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <numeric>

namespace {

/// The letters to insert, to remove, to replace, or to exchange with the next, to make the one the other.
size_t distance(std::string_view from, std::string_view to) {
    std::vector<size_t> before;  // the rows of the table of all beginnings' distances
    std::vector<size_t> last;
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 1; i <= from.size(); ++i) {
        before = std::exchange(last, row);
        row[0] = i;
        for (size_t j = 1; j <= to.size(); ++j) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
    }
    return row.back();
}

/// The first letters are as good as one slip; more than a third that is wrong is another word.
bool is_near(const std::string& word, const std::string& name, size_t& difference) {
    difference = word.size() > 1 && name.starts_with(word) ? 1 : distance(word, name);
    return 3 * difference <= std::max(word.size(), name.size()) + 1;
}

std::vector<std::string> options_of(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::vector<std::string> commands_of(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); })) {
        names.push_back(command->get_name());
    }
    return names;
}

const CLI::App& innermost(const CLI::App& app) {
    const auto given = app.get_subcommands();
    return given.empty() ? app : innermost(*given.front());
}

}  // namespace

std::string command_line_of(const CLI::App& app) {
    const auto given = app.get_subcommands();
    return app.get_name() + (given.empty() ? "" : " " + command_line_of(*given.front()));
}

std::string did_you_mean(const std::vector<std::string>& known, const std::string& word) {
    std::string nearest;
    size_t least = std::numeric_limits<size_t>::max();
    for (const std::string& name : known) {
        size_t difference = 0;
        if (is_near(word, name, difference) && difference < least) {
            least = difference;
            nearest = name;
        }
    }
    return nearest.empty() ? nearest : fmt::format("; did you mean '{}'?", nearest);
}

std::string did_you_mean(const CLI::App& app, const std::string& word) {
    const std::string name = word.substr(0, word.find('='));
    return did_you_mean(name.starts_with('-') ? options_of(app) : commands_of(app), name);
}

std::string no_command(const CLI::App& app, const std::string& name) {
    const std::string hint = did_you_mean(app, name);
    return fmt::format("there is no command '{}'{} zpd --help", name, hint.empty() ? "; see" : hint + " See");
}

std::string usage_error(const CLI::App* app, const CLI::Error& error) {
    const CLI::App& command = innermost(*app);
    const std::string given = command_line_of(*app);
    const auto surplus = command.remaining();
    const std::string hint = surplus.empty() ? "" : did_you_mean(command, surplus.front());
    return fmt::format("{}: {}{}{} {} --help\n", given, error.what(), hint, hint.empty() ? "; see" : " See", given);
}
