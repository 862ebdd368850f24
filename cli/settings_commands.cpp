/// zpd settings, zpd contacts-setting.
#include "base/hex.h"
#include "base/safe_text.h"
#include "base/text.h"
#include "cli/command.h"
#include "cli/output.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

using client::client_t;
using nlohmann::ordered_json;

// Types of registry values.
constexpr uint32_t type_text = 1;
constexpr uint32_t type_u32 = 4;

struct settings_t {
    std::optional<client::log_options_t> log;
    std::optional<uint8_t> capacity;
    std::optional<uint32_t> inbox_size;
};

/// Sets what is given, and shows what then holds.
int settings(client_t& client, const settings_t& changes, bool json) {
    const auto log = client.log_options(changes.log);
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
        say_json({{"log", {{"enabled", log->enabled}, {"output", log->output_level}, {"file", log->file_level}}},
                  {"capacity", *capacity},
                  {"inbox_size", *inbox_size}});
        return exit_done;
    }
    say("log         {}, debug output level {}, file level {}", log->enabled != 0 ? "on" : "off", log->output_level,
        log->file_level);
    say("capacity    {} with the radio at once", counted(*capacity, "datagram"));
    say("inbox-size  {}", *inbox_size == 0 ? "any number of files" : counted(*inbox_size, "file"));
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
        ->check(CLI::Range(low, high))
        ->required();
}

void add_log_setting(CLI::App* above, context_t& context, const std::shared_ptr<settings_t>& changes) {
    auto* log = above->add_subcommand("log", "Set the logging: on or off, and the levels");
    const auto options = [changes]() -> client::log_options_t& {
        if (!changes->log) {
            changes->log.emplace();
        }
        return *changes->log;
    };
    add_number<uint8_t>(log, "enabled", 0U, 1U, "1 on, 0 off", [options](uint8_t value) { options().enabled = value; });
    add_number<uint8_t>(log, "output", 0U, 7U, "level of the debug output: 0 nothing, 3 errors, 7 everything",
                        [options](uint8_t value) { options().output_level = value; });
    add_number<uint8_t>(log, "file", 0U, 7U, "level of the log file; 0 for none",
                        [options](uint8_t value) { options().file_level = value; });
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
        "  zpd settings log 1 3 7        errors on the debug output, everything in the log file (zpd log)\n"
        "  zpd settings capacity 1       one datagram with the radio at a time\n"
        "  zpd settings inbox-size 100   0 for any number of files");
    add_log_setting(above, context, changes);
    auto* capacity = above->add_subcommand("capacity", "Set how many datagrams may be with the radio at once");
    add_number<uint8_t>(capacity, "datagrams", 1U, 255U, "1 to 255",
                        [changes](uint8_t value) { changes->capacity = value; });
    runs_settings(capacity, context, changes);
    auto* inbox_size = above->add_subcommand(
        "inbox-size", "Set how many files the incoming folder may hold before cards are refused; one more gets in");
    add_number<uint32_t>(inbox_size, "files", 0U, ZPD_INCOMING_DIR_SIZE_MAX, "0 for any number",
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
