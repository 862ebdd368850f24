/// The `zpd` command.
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/configuration.h"
#include "cli/output.h"
#include "cli/usage_error.h"

namespace {

/// What the command line cannot be read as; or a demand for help or the version.
int explain(const CLI::App& app, const CLI::ParseError& error) {
    const auto remaining = app.remaining();
    if (app.get_subcommands().empty() && !remaining.empty() && !remaining.front().starts_with('-')) {
        return fail_usage(no_command(app, remaining.front()));
    }
    std::ostringstream text;  // with the words of the command line in it
    const int status = app.exit(error, std::cout, text);
    std::fputs(base::escaped_lines(text.str()).c_str(), stderr);
    return status == 0 ? exit_done : exit_usage;
}

int run(int argc, char** argv) {
    context_t context;
    CLI::App app;
    add_commands(app, context);
    try {
        app.parse(argc, argv);
        if (context.run) {
            configure(app, context);
        }
    } catch (const CLI::ParseError& error) {
        return explain(app, error);
    }
    speak_as(command_line_of(app));
    return context.run ? context.run() : fail_usage("a command is missing; see zpd --help");
}

}  // namespace

int main(int argc, char** argv) {
    // What runs is ended in order, also when nobody reads what it says any more.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return finish(run(argc, argv));
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
