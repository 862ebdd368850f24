/// zpd activation, zpd apps, zpd launch: who uses the service, and whether it stores what it receives.
#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/output.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

using client::client_t;

int activation(client_t& client, const std::string& change, bool json) {
    const auto active = change.empty() ? client.activation() : client.set_activation(change == "on");
    if (!active) {
        return fail(active.failure().text);
    }
    if (json) {
        say_json({{"activated", *active}});
    } else {
        say_line(*active ? "on: received cards are stored" : "off: received cards are dropped");
    }
    return exit_done;
}

int list_applications(client_t& client, bool json) {
    const auto names = client.applications();
    if (!names) {
        return fail(names.failure().text);
    }
    if (json) {
        say_json({{"applications", *names}});
    }
    for (const std::string& name : *names) {
        if (!json) {
            say_line(base::escaped(name));
        }
    }
    return exit_done;
}

int done(const client::answer_t<client::done_t>& answer) {
    return answer ? exit_done : fail(answer.failure().text);
}

int add_application(client_t& client, const std::string& name, bool json) {
    const int status = done(client.register_application(name));
    if (status == exit_done && json) {
        return list_applications(client, json);
    }
    if (status == exit_done) {
        say("registered. Its folder is Applications/Install/{} in the phone's home: when no registered application\n"
            "has one, the list is emptied and the activation goes off at the next start or received card.",
            base::escaped(name));
    }
    return status;
}

int clear_applications(client_t& client, bool json) {
    const int status = done(client.clear_applications());
    return status == exit_done && json ? list_applications(client, json) : status;
}

int launch(client_t& client, const std::string& uri) {
    const auto launched = client.launch(uri);
    if (!launched && launched.failure().code == ZPD_ERROR_LAUNCH_FAILED) {
        return fail(
            fmt::format("no application could be started for {}; the service needs xdg-open and an application "
                        "for such URIs (error {})",
                        base::escaped(uri), ZPD_ERROR_LAUNCH_FAILED));
    }
    return done(launched);
}

/// Sets what the command does, on a connection to the device.
void runs(CLI::App* command, context_t& context, std::function<int(client_t&)> use) {
    command->callback([&context, use = std::move(use)] {
        if (!context.run) {  // a command below this one was chosen
            context.run = [&context, use] { return with_device(context, use); };
        }
    });
}

void add_apps_command(CLI::App& app, context_t& context) {
    auto* apps = app.add_subcommand("apps", "List, register or clear the applications that use the service");
    apps->require_subcommand(0, 1);
    apps->footer(
        "Without applications the activation alone decides. With some, received cards are stored\n"
        "as long as one of them is installed, that is, has a folder Applications/Install/NAME in\n"
        "the phone's home. When none is, the list is emptied and the activation goes off at the\n"
        "next start or received card.\n\nExamples:\n  zpd apps\n  zpd apps add cards\n  zpd apps clear");
    add_device_option(apps, context);
    add_json_option(apps, context);
    auto* add = apps->add_subcommand("add", "Register an application");
    const auto name = std::make_shared<std::string>();
    add->add_option("name", *name, "the application's name")
        ->type_name("NAME")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return text.empty() || text.find(';') != std::string::npos ? "a name is not empty and holds no ';'"
                                                                           : "";
            },
            ""))
        ->required();
    add_device_option(add, context);
    runs(add, context, [name, &context](client_t& client) { return add_application(client, *name, context.json); });
    auto* clear = apps->add_subcommand("clear", "Unregister all applications");
    add_device_option(clear, context);
    runs(clear, context, [&context](client_t& client) { return clear_applications(client, context.json); });
    runs(apps, context, [&context](client_t& client) { return list_applications(client, context.json); });
}

}  // namespace

void add_service_commands(CLI::App& app, context_t& context) {
    auto* activate = app.add_subcommand("activation", "Tell or set whether received cards are stored");
    const auto change = std::make_shared<std::string>();
    activate->add_option("state", *change, "the new state")->check(CLI::IsMember({"on", "off"}));
    add_device_option(activate, context);
    add_json_option(activate, context);
    activate->footer("Examples:\n  zpd activation\n  zpd activation on");
    runs(activate, context, [change, &context](client_t& client) { return activation(client, *change, context.json); });

    add_apps_command(app, context);

    auto* launch_command = app.add_subcommand("launch", "Have the service launch the application for a URI");
    const auto uri = std::make_shared<std::string>();
    launch_command->add_option("uri", *uri, "the URI")->type_name("URI")->required();
    add_device_option(launch_command, context);
    launch_command->footer("Example:\n  zpd launch https://example.org/");
    runs(launch_command, context, [uri](client_t& client) { return launch(client, *uri); });
}
