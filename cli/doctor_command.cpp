/// zpd doctor.
#include "base/end_signals.h"
#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/output.h"
#include "cli/radio_report.h"
#include "cli/service_connection.h"
#include "radio/diagnosis.h"
#include "radio/modem_search.h"

namespace {

using nlohmann::ordered_json;
using radio::diagnosis_t;

/// A line of the report; none for what the modem did not tell.
void say_about(const char* subject, const std::string& text) {
    if (!text.empty()) {
        say("{:<16}{}", subject, base::escaped(text));
    }
}

/// What the modem did not tell is null.
ordered_json told(const std::string& text) {
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json told(const std::optional<int>& number) {
    return number ? ordered_json(*number) : ordered_json(nullptr);
}

ordered_json memories_of(const diagnosis_t& found) {
    ordered_json memories = ordered_json::array();
    for (const auto& [name, level] : found.memories) {
        memories.push_back({{"name", name},
                            {"used", level.used},
                            {"total", level.total},
                            {"receives", name == found.receiving_memory}});
    }
    return memories;
}

ordered_json findings_of(const diagnosis_t& found) {
    ordered_json findings = ordered_json::array();
    for (const radio::finding_t& finding : found.findings) {
        findings.push_back({{"hinders", finding.hinders}, {"text", finding.text}, {"advice", told(finding.advice)}});
    }
    return findings;
}

int say_verdict(bool usable) {
    say_line(usable ? "cards can be sent and received" : "cards cannot be sent and received");
    return usable ? exit_done : exit_failed;
}

void say_report(const diagnosis_t& found) {
    say_about("modem", listed({found.maker, found.model, found.revision}));
    say_about("serial number", masked(found.serial_number));
    say_about("SIM", listed({found.sim, found.pin_tries ? fmt::format("tries left: {}", *found.pin_tries) : ""}));
    say_about("network", listed({found.registration, found.operator_name, found.technology,
                                 found.signal ? fmt::format("{} dBm", *found.signal) : ""}));
    say_about("memories", memory_words(memories_of(found)));
    say_about("service centre", found.service_centre);
    say_about("delivery", found.delivery);
    for (const std::string& offer : found.offers) {
        say_about("it offers", offer);
    }
    say_findings(findings_of(found));
}

ordered_json as_json(const diagnosis_t& found) {
    return {{"usable", found.usable()},
            {"maker", told(found.maker)},
            {"model", told(found.model)},
            {"revision", told(found.revision)},
            {"serial_number", told(found.serial_number)},
            {"sim", told(found.sim)},
            {"pin_tries", told(found.pin_tries)},
            {"registration", told(found.registration)},
            {"operator", told(found.operator_name)},
            {"technology", told(found.technology)},
            {"signal_dbm", told(found.signal)},
            {"memories", memories_of(found)},
            {"service_centre", told(found.service_centre)},
            {"delivery", told(found.delivery)},
            {"offers", found.offers},
            {"findings", findings_of(found)}};
}

int examine(const radio::modem_options_t& modem, bool json) {
    // Its end puts back what was changed on the modem.
    const base::end_signals_t signals;
    const diagnosis_t found = radio::diagnose(modem, [&signals] { return signals.wait(0); });
    if (json) {
        say_json(as_json(found));
        return found.usable() ? exit_done : exit_failed;
    }
    say_report(found);
    return say_verdict(found.usable());
}

/// Of the modem that the service has.
int ask_service(client::client_t& client, bool json) {
    const auto status = status_of_service(client);
    if (!status) {
        return fail(status.failure().text);
    }
    const ordered_json radio = status->value("radio", ordered_json(nullptr));
    if (!json) {
        say_radio(radio);
        return say_verdict(is_usable(radio));
    }
    ordered_json report = {{"usable", is_usable(radio)}};
    report.update(radio.is_object() ? radio : ordered_json::object());
    say_json(report);
    return is_usable(radio) ? exit_done : exit_failed;
}

/// Where no service runs: which ttys have a modem.
int look_around(const std::string& no_service, bool json) {
    ordered_json ttys = ordered_json::array();
    for (const std::string& tty : radio::modem_ttys()) {
        const std::string problem = radio::try_modem(tty);
        ttys.push_back({{"tty", tty}, {"answers", problem.empty()}, {"problem", told(problem)}});
        if (!json) {
            say("{}: {}", base::escaped(tty),
                problem.empty() ? "a modem answers; see: zpd doctor --modem TTY" : base::escaped(problem));
        }
    }
    if (json) {
        say_json({{"usable", false}, {"ttys", ttys}});
        return exit_failed;
    }
    if (ttys.empty()) {
        say_line("there is no tty of a USB modem: plug it in, or name its tty by --modem");
    }
    return fail(no_service);
}

int ask_around(const context_t& context) {
    auto client = connect_device(context.device);
    if (client) {
        return ask_service(*client, context.json);
    }
    const client::failure_t& failure = client.failure();
    return failure.obstacle == client::obstacle_t::no_service ? look_around(failure.text, context.json)
                                                              : fail(failure.text);
}

}  // namespace

void add_doctor_command(CLI::App& app, context_t& context) {
    auto* command =
        app.add_subcommand("doctor", "Tell what a modem is, and what keeps cards from being sent or received");
    const auto modem = std::make_shared<radio::modem_options_t>();
    auto* tty = add_modem_options(command, *modem);
    for (const char* option : {"--baud", "--flow", "--trace"}) {
        command->get_option(option)->needs(tty);
    }
    add_device_option(command, context);
    add_json_option(command, context);
    command->footer(
        "With --modem it asks the modem, and changes nothing on it: no PIN is entered, no message\n"
        "read or deleted. No service may run on it meanwhile. Without, it asks the service that runs\n"
        "what it knows of its modem; where none runs, it tells which ttys have a modem.\n\n"
        "The serial number is whole only with --json.\n\n"
        "Exit status 0 when cards can be sent and received, 1 when something stands against it.\n\n"
        "Examples:\n  zpd doctor\n  zpd doctor --modem /dev/ttyUSB0");
    command->callback([&context, modem] {
        context.run = [&context, modem] {
            return modem->tty.empty() ? ask_around(context) : examine(*modem, context.json);
        };
    });
}
