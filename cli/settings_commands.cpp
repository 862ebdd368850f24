/// zpd settings, zpd contacts-setting.
#include "base/hex.h"
#include "base/safe_text.h"
#include "base/text.h"
#include "cli/command.h"
#include "cli/log_level.h"
#include "cli/output.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

using client::client_t;
using nlohmann::ordered_json;

// Types of registry values.
constexpr uint32_t type_text = 1;
constexpr uint32_t type_u32 = 4;

/// The driver's debug output, the second of its log options, goes nowhere on this platform: it is left as it is.
struct log_change_t {
    bool enabled = false;
    std::optional<int> file_level;
};

struct settings_t {
    std::optional<log_change_t> log;
    std::optional<uint8_t> capacity;
    std::optional<uint32_t> inbox_size;
};

client::answer_t<client::log_options_t> change_log(client_t& client, const std::optional<log_change_t>& change) {
    auto options = client.log_options();
    if (!options || !change) {
        return options;
    }
    options->enabled = change->enabled ? 1 : 0;
    if (change->file_level) {
        options->file_level = static_cast<uint8_t>(*change->file_level);
    } else if (change->enabled && options->file_level == 0) {  // on, and without a file as the driver begins
        options->file_level = most_log_level;
    }
    return client.log_options(*options);
}

std::string log_words(const client::log_options_t& log) {
    if (log.enabled == 0) {
        return "off: the driver logs nothing";
    }
    if (log.file_level == 0) {
        return "on, but without a log file: nothing is kept";
    }
    return fmt::format("on, level {} ({}): {} (zpd log)", log.file_level, log_level_name(log.file_level),
                       log.file_level == most_log_level
                           ? "all that the driver does goes into its log file"
                           : "this and what is more urgent goes into the driver's log file");
}

void say_settings(const client::log_options_t& log, uint8_t capacity, uint32_t inbox_size) {
    say("log         {}", log_words(log));
    say("capacity    {} with the radio at once, at most", counted(capacity, "datagram"));
    say("inbox-size  {}", inbox_size == 0 ? "any number of cards in the inbox"
                                          : fmt::format("no card is stored while the inbox holds more than {}",
                                                        counted(inbox_size, "card")));
}

/// Sets what is given, and shows what then holds.
int settings(client_t& client, const settings_t& changes, bool json) {
    const auto log = change_log(client, changes.log);
    if (!log) {
        return fail(log.failure().text);
    }
    const auto capacity = client.capacity(changes.capacity);
    if (!capacity) {
        return fail(capacity.failure().text);
    }
    const auto inbox_size = client.incoming_dir_size(changes.inbox_size);
    if (!inbox_size) {
        return fail(inbox_size.failure().text);
    }
    if (json) {
        say_json({{"log", {{"enabled", log->enabled != 0}, {"output", log->output_level}, {"file", log->file_level}}},
                  {"capacity", *capacity},
                  {"inbox_size", *inbox_size}});
    } else {
        say_settings(*log, *capacity, *inbox_size);
    }
    return exit_done;
}

std::string shown_value(const client::contacts_value_t& value) {
    const client::octets_t octets(value.octets.begin(), value.octets.end());
    base::reader_t reader(octets);
    if (value.type == type_u32 && octets.size() == 4) {
        return std::to_string(*reader.u32());
    }
    if (value.type != type_text) {
        return base::to_hex(octets);
    }
    std::u16string text;
    for (size_t index = 0; index + 1 < octets.size(); index += 2) {
        text += static_cast<char16_t>(octets[index] | octets[index + 1] << 8);
    }
    while (text.ends_with(u'\0')) {
        text.pop_back();
    }
    return base::to_utf8(text);
}

int contacts_setting(client_t& client, const std::string& name, bool json) {
    const auto value = client.contacts_setting(name);
    if (!value && value.failure().code == ZPD_ERROR_NOT_FOUND) {
        return fail(fmt::format("the contacts settings have no value {}", base::escaped(name)));
    }
    if (!value && value.failure().code == ZPD_ERROR_ACCESS) {
        return fail("the contacts settings cannot be read: this phone may have none (error 5)");
    }
    if (!value) {
        return fail(value.failure().text);
    }
    const client::octets_t octets(value->octets.begin(), value->octets.end());
    if (json) {
        say_json(
            {{"name", name}, {"type", value->type}, {"value", shown_value(*value)}, {"octets", base::to_hex(octets)}});
    } else {
        say_line(base::escaped(shown_value(*value)));
    }
    return exit_done;
}

void runs_settings(CLI::App* command, context_t& context, const std::shared_ptr<settings_t>& changes) {
    add_device_option(command, context);
    add_json_option(command, context);
    command->callback([&context, changes] {
        if (!context.run) {  // the command above shows; one below it sets, then shows
            context.run = [&context, changes] {
                return with_device(context, [&](client_t& client) { return settings(client, *changes, context.json); });
            };
        }
    });
}

/// A number of a setting, which is absent until it is read.
template <typename stored_t, typename limit_t>
void add_number(CLI::App* command, const std::string& name, limit_t low, limit_t high, const std::string& help,
                std::function<void(stored_t)> store) {
    command
        ->add_option_function<uint32_t>(
            name, [store = std::move(store)](uint32_t value) { store(static_cast<stored_t>(value)); }, help)
        ->type_name("")
        ->check(CLI::Range(low, high).description(""))
        ->required();
}

void add_log_setting(CLI::App* above, context_t& context, const std::shared_ptr<settings_t>& changes) {
    auto* log = above->add_subcommand("log", "Have the driver log what it does, or not");
    const auto change = std::make_shared<log_change_t>();
    log->add_option_function<std::string>(
           "state", [change](const std::string& state) { change->enabled = state == "on"; }, "on or off")
        ->check(CLI::IsMember({"on", "off"}))
        ->required();
    add_log_level(log, "level", change->file_level,
                  "how much goes into the log file, by name or number (default: as before, at first everything)");
    log->footer("Levels: " + log_levels_help() +
                ".\n\nExamples:\n"
                "  zpd settings log on             everything, or the level of before\n"
                "  zpd settings log on warning     warnings and errors\n"
                "  zpd settings log off");
    log->parse_complete_callback([change, changes] { changes->log = *change; });
    runs_settings(log, context, changes);
}

}  // namespace

void add_settings_commands(CLI::App& app, context_t& context) {
    auto* above = app.add_subcommand("settings", "Show or change the driver's settings");
    const auto changes = std::make_shared<settings_t>();
    above->require_subcommand(0, 1);
    above->footer(
        "Examples:\n"
        "  zpd settings\n"
        "  zpd settings log on           the driver logs what it does (zpd log)\n"
        "  zpd settings capacity 1       one datagram with the radio at a time\n"
        "  zpd settings inbox-size 100   0 for any number of cards");
    add_log_setting(above, context, changes);
    auto* capacity = above->add_subcommand("capacity", "Set how many datagrams may be with the radio at once");
    add_number<uint8_t>(capacity, "datagrams", 1U, 255U, "1 to 255",
                        [changes](uint8_t value) { changes->capacity = value; });
    runs_settings(capacity, context, changes);
    auto* inbox_size = above->add_subcommand(
        "inbox-size", "Set how many cards the inbox may hold before further ones are refused; one more gets in");
    add_number<uint32_t>(inbox_size, "cards", 0U, ZPD_INCOMING_DIR_SIZE_MAX, "0 for any number",
                         [changes](uint32_t value) { changes->inbox_size = value; });
    runs_settings(inbox_size, context, changes);
    runs_settings(above, context, changes);

    auto* contacts = app.add_subcommand("contacts-setting", "Show a value of the contacts application's settings");
    const auto name = std::make_shared<std::string>();
    contacts->add_option("name", *name, "the value's name")->type_name("NAME")->required();
    add_device_option(contacts, context);
    add_json_option(contacts, context);
    contacts->footer("Example:\n  zpd contacts-setting SortOrder");
    contacts->callback([&context, name] {
        context.run = [&context, name] {
            return with_device(context,
                               [&](client_t& client) { return contacts_setting(client, *name, context.json); });
        };
    });
}
