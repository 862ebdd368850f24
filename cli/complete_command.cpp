/// zpd complete: what shells ask for when somebody presses the tabulator. Its answer is a line for each value that goes
/// on from what was typed, with its meaning behind a tabulator; a line that begins with one says which files can stand
/// there: files, folders or cards.
#include <sys/time.h>
#include <unistd.h>

#include <csignal>

#include "base/safe_text.h"
#include "cli/completion.h"
#include "cli/output.h"

namespace {

constexpr int patience = 800000;  // microseconds: a service that hangs must not hold up a person

/// Without an answer, and without a word.
void end_in_time() {
    std::signal(SIGALRM, [](int) { _exit(exit_done); });
    const itimerval once{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = patience}};
    setitimer(ITIMER_REAL, &once, nullptr);
}

int complete(const CLI::App& program, context_t& context, const std::vector<std::string>& words) {
    end_in_time();
    const typed_place_t place = place_in(program, words);
    suggestions_t suggestions;
    suggest_names(place, suggestions);
    suggest_values(place, context, suggestions);
    std::string lines = suggestions.files.empty() ? "" : "\t" + suggestions.files + "\n";
    for (const auto& [value, meaning] : suggestions.values) {
        if (value.starts_with(place.begun) && base::escaped(value) == value) {
            lines += fmt::format("{}{}\t{}\n", place.kept, value, base::escaped(meaning));
        }
    }
    say_octets(lines);
    return exit_done;
}

}  // namespace

void add_complete_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("complete", "Tell a shell what can stand at the end of these words");
    command->group("");  // nobody types it
    const auto words = std::make_shared<std::vector<std::string>>();
    command->add_option("word", *words, "the words behind zpd, the last one as far as it is typed");
    command->callback(
        [&app, &context, words] { context.run = [&app, &context, words] { return complete(app, context, *words); }; });
}
