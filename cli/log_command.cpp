/// zpd log: what the driver has logged, read from the phone's home; no service needs to run.
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <utility>

#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/log_files.h"
#include "cli/log_level.h"
#include "cli/log_line.h"
#include "cli/output.h"

namespace {

struct log_command_t {
    bool follow = false;
    std::optional<int> level;
};

void say_as_json(const log_line_t& line) {
    nlohmann::ordered_json value = nlohmann::ordered_json::object();
    if (!line.time.empty()) {
        value["time"] = std::string(line.time).replace(line.time.find(' '), 1, "T") + "Z";
    }
    if (!line.thread.empty()) {
        value["thread"] = line.thread;
    }
    value["level"] = line.level;
    value["text"] = line.text;
    say_json(value);
}

/// Waits less while lines come: of two turns between two looks, the first would not be seen. False when nobody reads
/// standard output any more.
bool wait_for_more(bool is_busy) {
    const int interval = is_busy ? 10 : 200;  // ms
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, interval) <= 0 && std::ferror(stdout) == 0;
}

int show_log(const context_t& context, const log_command_t& options) {
    log_files_t files(context.home);
    log_reader_t reader;
    bool is_busy = false;
    const auto say_one = [&](std::string_view text) {
        is_busy = true;
        const log_line_t line = reader.read(text);
        if (line.level > options.level.value_or(most_log_level)) {
            return;
        }
        if (context.json) {
            say_as_json(line);
        } else {
            say_line(base::escaped(text));
        }
    };
    const bool is_there = files.read(say_one);
    if (!is_there && !options.follow) {
        return fail(
            fmt::format("there is no log {}; 'zpd settings log on' has the driver write one", files.path().native()));
    }
    while (options.follow) {
        const bool has_turned = files.has_turned();
        if (!wait_for_more(std::exchange(is_busy, false) || has_turned)) {
            break;
        }
        if (has_turned) {
            files.turn(say_one);
        }
        files.read(say_one);
    }
    return exit_done;
}

}  // namespace

void add_log_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("log", "Show what the driver has logged");
    const auto options = std::make_shared<log_command_t>();
    add_home_option(command, context);
    command->add_flag("--follow", options->follow, "go on with what comes, until interrupted");
    add_log_level(command, "--level", options->level, "show lines of this level and more urgent ones");
    command->add_flag("--json", context.json, "print one JSON object a line, for scripts");
    command->footer("Levels: " + log_levels_help() +
                    ".\n"
                    "What is logged at all is set by 'zpd settings log'. Times are UTC. A datagram that was\n"
                    "sent is logged as an error.\n"
                    "\n"
                    "The driver logs what it is told as it comes: names of applications, URIs, the numbers of\n"
                    "senders and recipients, what a radio answers. Here their control characters appear\n"
                    "as \\x0A, but a line end in them ends the line in the log, too: whoever may use the device\n"
                    "can make lines of any form.\n"
                    "\n"
                    "Examples:\n"
                    "  zpd log --level warning           warnings and errors\n"
                    "  zpd log --follow\n"
                    "  zpd log --json | jq -r .text");
    command->callback([&context, options] {
        context.run = on_home(context, [&context, options] { return show_log(context, *options); });
    });
}
