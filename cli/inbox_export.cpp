/// zpd inbox export, and zpd inbox open.
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>

#include "base/text.h"
#include "cli/exported_file.h"
#include "cli/inbox.h"
#include "cli/output.h"

namespace {

using nlohmann::ordered_json;
namespace fs = std::filesystem;

/// Returns the path of the file, or why it could not be written.
client::answer_t<fs::path> export_card(received_cards_t& inbox, const ordered_json& card, const fs::path& file,
                                       bool overwrite) {
    const auto octets = inbox.octets(card);
    if (!octets) {
        return octets.failure();
    }
    if (std::string error = write_whole(file, *octets, overwrite); !error.empty()) {
        return client::failure_t{0, std::move(error)};
    }
    return fs::absolute(file).lexically_normal();
}

int write_to_output(received_cards_t& inbox, const ordered_json& card) {
    const auto octets = inbox.octets(card);
    if (!octets) {
        return fail(octets.failure().text);
    }
    say_octets(*octets);
    return exit_done;
}

/// What is wrong with the options together; empty when they fit.
std::string misfit(const context_t& context, const inbox_options_t& options) {
    if (!options.output.empty() && (options.all || options.cards.size() > 1 || !options.directory.empty())) {
        return "-o is for a single card; for several: -d DIR";
    }
    return options.output == "-" && context.json ? "--json goes with files; -o - writes the card's own octets" : "";
}

std::string make_folder(const fs::path& directory) {
    std::error_code failed;
    fs::create_directories(directory, failed);
    return failed ? fmt::format("cannot make the folder {}: {}", directory.native(), failed.message()) : std::string();
}

/// A new folder that only this user sees into. It stays for the program that opens what is in it.
client::answer_t<fs::path> private_folder() {
    std::string name = (fs::temp_directory_path() / "zpd-cards-XXXXXX").native();
    if (mkdtemp(name.data()) == nullptr) {
        return client::failure_t{0, fmt::format("cannot make a folder {}: {}", name, base::errno_text(errno))};
    }
    return fs::path(name);
}

/// Returns an empty text, or what went wrong.
std::string open_file(const fs::path& file) {
    std::string program = "xdg-open";
    std::string argument = file.native();
    char* const arguments[] = {program.data(), argument.data(), nullptr};
    pid_t child = 0;
    if (const int error = posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ); error != 0) {
        return error == ENOENT ? fmt::format(
                                     "there is no xdg-open on this machine, which opens files on a desktop; "
                                     "the card is in {}",
                                     argument)
                               : fmt::format("cannot run xdg-open: {}", base::errno_text(error));
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? std::string()
                                                         : fmt::format("xdg-open cannot open {}", argument);
}

}  // namespace

int export_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox) {
    if (const std::string wrong = misfit(context, options); !wrong.empty()) {
        return fail_usage(wrong);
    }
    int status = exit_done;
    const auto cards = chosen_cards(options, inbox, status);
    if (options.output == "-" && !cards.empty()) {
        return write_to_output(inbox, cards.front());
    }
    if (const std::string error = make_folder(options.directory); !options.directory.empty() && !error.empty()) {
        return fail(error);
    }
    ordered_json exported = ordered_json::array();
    readable_names_t names;
    for (const ordered_json& card : cards) {
        const fs::path file =
            options.output.empty() ? options.directory / names.name_for(card) : fs::path(options.output);
        const auto written = export_card(inbox, card, file, options.overwrite);
        if (!written) {
            status = fail(written.failure().text);
        } else if (context.json) {
            exported.push_back({{"number", card.at("number")}, {"file", card.at("file")}, {"path", written->native()}});
        } else {
            say_line(file.native());
        }
    }
    if (context.json && status != exit_usage) {
        say_json({{"exported", exported}});
    }
    return status;
}

int open_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox) {
    if (context.json) {
        return fail_usage("--json does not go with open");
    }
    int status = exit_done;
    const auto cards = chosen_cards(options, inbox, status);
    if (cards.empty()) {
        return status;
    }
    const auto folder = private_folder();
    if (!folder) {
        return fail(folder.failure().text);
    }
    readable_names_t names;
    for (const ordered_json& card : cards) {
        const auto file = export_card(inbox, card, *folder / names.name_for(card), false);
        const std::string error = file ? open_file(*file) : file.failure().text;
        status = error.empty() ? status : fail(error);
    }
    return status;
}
