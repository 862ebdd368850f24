/// zpd version.
#include "cli/command.h"
#include "cli/output.h"
#include "cli/service_connection.h"

namespace {

client::answer_t<uint32_t> interface_version(const std::string& device) {
    auto client = connect_device(device);
    return client ? client->version() : client::answer_t<uint32_t>(client.failure());
}

/// As scripts read it.
const char* service_word(const client::answer_t<uint32_t>& version) {
    if (version) {
        return "running";
    }
    switch (version.failure().obstacle) {
        case client::obstacle_t::no_service:
            return "none";
        case client::obstacle_t::access:
            return "no access";
        case client::obstacle_t::busy:
            return "busy";
        case client::obstacle_t::request:
        case client::obstacle_t::no_answer:
            break;
    }
    return "no answer";
}

/// That no service runs is an answer; that one cannot be asked is a failure.
int run_version(const context_t& context) {
    const auto version = interface_version(context.device);
    const std::string service = service_word(version);
    if (context.json) {
        const nlohmann::ordered_json number = version ? nlohmann::ordered_json(*version) : nullptr;
        say_json({{"program", ZPD_PROGRAM_VERSION}, {"interface", number}, {"service", service}});
    } else {
        say("zpd {}", ZPD_PROGRAM_VERSION);
    }
    if (!version && service != "none") {
        return fail(version.failure().text);
    }
    if (!context.json) {
        say("{} on device {}", version ? fmt::format("driver interface {}", *version) : "no service runs",
            shown_device(context.device));
    }
    return exit_done;
}

}  // namespace

void add_version_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("version", "Tell the versions of the program and of the running driver");
    add_device_option(command, context);
    add_json_option(command, context);
    command->footer(
        "It is no failure that no service runs; that one does, and cannot be asked, is. In JSON\n"
        "\"service\" is \"running\", \"none\", \"no access\", \"busy\" or \"no answer\".\n\n"
        "Example:\n  zpd version --json");
    command->callback([&context] { context.run = [&context] { return run_version(context); }; });
}
