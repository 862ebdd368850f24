/// zpd doctor.
#include "base/end_signals.h"
#include "base/safe_text.h"
#include "cli/command.h"
#include "cli/output.h"
#include "radio/diagnosis.h"

namespace {

using nlohmann::ordered_json;
using radio::diagnosis_t;

/// A line of the report; none for what the modem did not tell.
void say_about(const char* subject, const std::string& text) {
    if (!text.empty()) {
        say("{:<16}{}", subject, base::escaped(text));
    }
}

/// The texts that are there, with commas between them.
std::string listed(const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += line.empty() || text.empty() ? text : ", " + text;
    }
    return line;
}

/// Enough to tell two modems apart: a report is passed on to others.
std::string masked(const std::string& serial_number) {
    constexpr size_t shown = 4;
    return serial_number.size() <= shown ? serial_number : "..." + serial_number.substr(serial_number.size() - shown);
}

void say_memories(const diagnosis_t& found) {
    std::vector<std::string> memories;
    for (const auto& [name, level] : found.memories) {
        memories.push_back(fmt::format("{} holds {} of {}{}", name, level.used, level.total,
                                       name == found.receiving_memory ? " (new messages go there)" : ""));
    }
    say_about("memories", listed(memories));
}

void say_report(const diagnosis_t& found) {
    say_about("modem", listed({found.maker, found.model, found.revision}));
    say_about("serial number", masked(found.serial_number));
    say_about("SIM", listed({found.sim, found.pin_tries ? fmt::format("tries left: {}", *found.pin_tries) : ""}));
    say_about("network", listed({found.registration, found.operator_name, found.technology,
                                 found.signal ? fmt::format("{} dBm", *found.signal) : ""}));
    say_memories(found);
    say_about("service centre", found.service_centre);
    say_about("delivery", found.delivery);
    for (const std::string& offer : found.offers) {
        say_about("it offers", offer);
    }
    for (const radio::finding_t& finding : found.findings) {
        say("{}: {}", finding.hinders ? "hindrance" : "warning", base::escaped(finding.text));
        if (!finding.advice.empty()) {
            say("    {}", base::escaped(finding.advice));
        }
    }
    say_line(found.usable() ? "cards can be sent and received" : "cards cannot be sent and received");
}

/// What the modem did not tell is null.
ordered_json told(const std::string& text) {
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json told(const std::optional<int>& number) {
    return number ? ordered_json(*number) : ordered_json(nullptr);
}

ordered_json as_json(const diagnosis_t& found) {
    ordered_json memories = ordered_json::array();
    for (const auto& [name, level] : found.memories) {
        memories.push_back({{"name", name},
                            {"used", level.used},
                            {"total", level.total},
                            {"receives", name == found.receiving_memory}});
    }
    ordered_json findings = ordered_json::array();
    for (const radio::finding_t& finding : found.findings) {
        findings.push_back({{"hinders", finding.hinders}, {"text", finding.text}, {"advice", told(finding.advice)}});
    }
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
            {"memories", memories},
            {"service_centre", told(found.service_centre)},
            {"delivery", told(found.delivery)},
            {"offers", found.offers},
            {"findings", findings}};
}

}  // namespace

void add_doctor_command(CLI::App& app, context_t& context) {
    auto* command =
        app.add_subcommand("doctor", "Tell what a modem is, and what keeps cards from being sent or received");
    const auto modem = std::make_shared<std::string>();
    command->add_option("--modem", *modem, "the modem's tty")
        ->type_name("TTY")
        ->check(not_empty("the modem's tty"))
        ->required();
    add_json_option(command, context);
    command->footer(
        "Asks the modem, and changes nothing on it: no PIN is entered, no message read or deleted.\n"
        "No service may run on it meanwhile. Exit status 0 when cards can be sent and received,\n"
        "1 when something stands against it. The serial number is whole only with --json.\n\n"
        "Example:\n  zpd doctor --modem /dev/ttyUSB0");
    command->callback([&context, modem] {
        context.run = [&context, modem] {
            // Its end puts back what was changed on the modem.
            const base::end_signals_t signals;
            const diagnosis_t found = radio::diagnose(*modem, [&signals] { return signals.wait(0); });
            context.json ? say_json(as_json(found)) : say_report(found);
            return found.usable() ? exit_done : exit_failed;
        };
    });
}
