#include "cli/configuration.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <set>

#include "cli/config_file.h"
#include "cli/service_connection.h"
#include "cli/usage_error.h"

namespace {

// What may stand above the sections of the user's file.
constexpr std::array<const char*, 2> common_settings{"device", "home"};

constexpr std::string_view form_of_files =
    "Configuration of zpd. The user's file has device and home, for all commands, above its sections, and in the "
    "sections [serve], [send] and [relay] options of these commands. A file of --config has options of its command, "
    "and no "
    "sections.\n\n"
    "A line is NAME = VALUE; the name is an option's without its dashes. What follows a # is a comment. A value may "
    "stand in double quotes, with \\\" and \\\\ and \\n in them, or in single quotes, as it is. Without quotes, a # in "
    "it does not follow a space. An option that may come again takes a list: [VALUE, VALUE]. One that takes no value "
    "is true or false. A path begins with / or with ~/ for the user's home, or goes on from the folder of the file.\n\n"
    "An option of the command line takes the place of the file's, with all its values. What is wrong in a file is told "
    "with its line, and nothing is done. It must be the user's own or root's, and nobody else may write it.";

std::filesystem::path resolved(const std::string& value, const std::filesystem::path& folder) {
    return (value.starts_with("~/") ? user_home() / value.substr(2) : folder / value).lexically_normal();
}

/// Of a device.
bool is_path(const std::string& device) {
    return !is_fleet(device) && device.find_first_of("/.") != std::string::npos;
}

/// By what stands for the value in the help.
bool names_file(const CLI::Option& option, const std::string& value) {
    const std::string type = option.get_type_name();
    return type == "FILE" || type == "DIR" || type == "TTY" || type == "PROGRAM" ||
           (type == "NAME|PATH|URL" && is_path(value));
}

bool is_flag(const CLI::Option& option) {
    return option.get_expected_min() == 0;
}

bool is_configurable(const CLI::Option& option) {
    return option.get_configurable() && !option.get_lnames().empty();
}

/// One that a file may set; null when there is none.
CLI::Option* configurable_option(CLI::App& command, const std::string& name) {
    CLI::Option* option = command.get_option_no_throw("--" + name);
    return option != nullptr && is_configurable(*option) ? option : nullptr;
}

/// By its name, or by an option of that name before the command.
const CLI::Option* given_option(const CLI::App& command, const std::string& name) {
    for (const CLI::App* app = &command; app != nullptr; app = app->get_parent()) {
        const CLI::Option* option = app->get_option_no_throw("--" + name);
        if (option != nullptr && option->count() > 0) {
            return option;
        }
    }
    return nullptr;
}

/// The settings of a file on their way into the options of a command.
class configured_t {
  public:
    configured_t(std::filesystem::path file, CLI::App& command, std::string command_line)
        : file_(std::move(file)), command_(command), command_line_(std::move(command_line)) {}

    std::vector<setting_t> read() const {
        std::vector<setting_t> settings;
        if (const std::string problem = read_config_file(file_, &settings); !problem.empty()) {
            throw CLI::ConfigError(problem);
        }
        return settings;
    }

    [[noreturn]] void fail(const setting_t& setting, const std::string& problem) const {
        throw CLI::ConfigError(fmt::format("{}:{}: {}", file_.native(), setting.line, problem));
    }

    /// False when the option stays as it is: it has a value, or is excluded by one that the command line has.
    bool set(const setting_t& setting) {
        CLI::Option* option = configurable_option(command_, setting.name);
        if (option == nullptr) {
            fail_unknown(setting);
        }
        const auto values = values_for(*option, setting);
        if (given_option(command_, setting.name) != nullptr || is_excluded(*option, setting) ||
            (is_flag(*option) && values.front() == "false")) {
            return false;
        }
        try {
            option->add_result(values);
            option->run_callback();
        } catch (const CLI::Error& error) {
            const std::string_view problem = error.what();
            fail(setting, std::string(problem.substr(problem.starts_with("--") ? 2 : 0)));
        }
        set_.insert(option);
        return true;
    }

  private:
    [[noreturn]] void fail_unknown(const setting_t& setting) const {
        std::vector<std::string> known;
        for (const CLI::Option* option : configurable_options(command_)) {
            known.push_back(option->get_single_name());
        }
        fail(setting,
             fmt::format("'{}' is no setting of {}{}", setting.name, command_line_, did_you_mean(known, setting.name)));
    }

    std::vector<std::string> values_for(const CLI::Option& option, const setting_t& setting) const {
        auto values = setting.values;
        if (is_flag(option) && (values.size() != 1 || (values[0] != "true" && values[0] != "false"))) {
            fail(setting, fmt::format("{} is true or false", setting.name));
        }
        for (std::string& value : values) {
            if (names_file(option, value) && !value.empty()) {
                value = resolved(value, std::filesystem::absolute(file_).parent_path());
            }
        }
        return values;
    }

    bool is_excluded(const CLI::Option& option, const setting_t& setting) const {
        bool is_excluded = false;
        for (const CLI::Option* other : option.get_excludes()) {
            if (set_.contains(other)) {
                fail(setting, fmt::format("{} excludes {}", setting.name, other->get_single_name()));
            }
            is_excluded = is_excluded || other->count() > 0;
        }
        return is_excluded;
    }

    std::filesystem::path file_;
    CLI::App& command_;
    std::string command_line_;
    std::set<const CLI::Option*> set_;  // by the file
};

void take_named_file(configured_t settings) {
    for (const setting_t& setting : settings.read()) {
        if (!setting.section.empty()) {
            settings.fail(setting, fmt::format("a file of --config has no sections: [{}]", setting.section));
        }
        settings.set(setting);
    }
}

void check_place(const CLI::App& app, const configured_t& settings, const setting_t& setting) {
    const auto is_section = [&](const CLI::App* one) {
        return one->get_configurable() && one->get_name() == setting.section;
    };
    if (setting.section.empty() && std::ranges::find(common_settings, setting.name) == common_settings.end()) {
        settings.fail(setting, fmt::format("'{}' stands above all sections, where only {} may", setting.name,
                                           fmt::join(common_settings, " and ")));
    }
    if (!setting.section.empty() && app.get_subcommands(is_section).empty()) {
        settings.fail(setting, fmt::format("there is no section [{}]", setting.section));
    }
}

/// The command's own section comes before what holds for all.
void take_user_file(const CLI::App& app, CLI::App& command, configured_t settings, context_t& context) {
    auto all = settings.read();
    for (const setting_t& setting : all) {
        check_place(app, settings, setting);
    }
    std::stable_partition(all.begin(), all.end(), [](const setting_t& one) { return !one.section.empty(); });
    for (const setting_t& setting : all) {
        const bool is_meant = setting.section.empty() ? configurable_option(command, setting.name) != nullptr
                                                      : setting.section == command.get_name();
        if (is_meant && settings.set(setting) && setting.name == "device") {
            context.usual_device = context.device;
        }
    }
}

CLI::App& chosen_command(CLI::App& app) {
    const auto given = app.get_subcommands();
    return given.empty() ? app : chosen_command(*given.front());
}

/// As comments, a line for people's windows each.
std::string commented(std::string_view text) {
    constexpr size_t columns = 100;
    std::string lines;
    while (!text.empty()) {
        size_t length = std::min(text.find('\n'), text.size());
        if (length > columns) {
            const size_t blank = text.rfind(' ', columns);
            length = blank == std::string_view::npos ? length : blank;
        }
        lines += length == 0 ? "#\n" : fmt::format("# {}\n", text.substr(0, length));
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return lines;
}

/// With quotes where it needs some.
std::string written(const std::string& value) {
    const auto is_plain = [](unsigned char letter) {
        return std::isalnum(letter) != 0 ||
               std::string_view("/._-+:=~@%").find(static_cast<char>(letter)) != std::string_view::npos;
    };
    return !value.empty() && std::ranges::all_of(value, is_plain) ? value : quoted_value(value);
}

std::string setting_of(const CLI::App& command, const CLI::Option& option) {
    const std::string& name = option.get_single_name();
    const CLI::Option* given = given_option(command, name);
    std::vector<std::string> values;
    for (const std::string& value : given != nullptr ? given->results() : std::vector<std::string>()) {
        values.push_back(written(names_file(option, value) ? std::filesystem::absolute(value).native() : value));
    }
    if (given == nullptr) {
        const std::string usual = option.get_default_str();
        values.push_back(is_flag(option) ? "false" : usual.empty() ? option.get_type_name() : written(usual));
    }
    const std::string text = fmt::format("{}", fmt::join(values, ", "));
    return fmt::format("\n{}{}{} = {}\n", commented(option.get_description()), given != nullptr ? "" : "# ", name,
                       option.get_items_expected_max() > 1 ? "[" + text + "]" : text);
}

}  // namespace

void add_config_option(CLI::App* command) {
    command
        ->add_option_function<std::string>(
            "--config", [](const std::string&) {},  // configure() looks at it
            "take options from this file and not from " + default_config().native() + "; see zpd.conf(5)")
        ->type_name("FILE")
        ->check(not_empty("the name of the configuration"))
        ->configurable(false);
}

void configure(CLI::App& app, context_t& context) {
    CLI::App& command = chosen_command(app);
    if (command.get_group().empty()) {  // what shells run
        return;
    }
    const CLI::Option* named = command.get_option_no_throw("--config");
    const bool is_named = named != nullptr && named->count() > 0;
    const std::filesystem::path file = is_named ? std::filesystem::path(named->results().front()) : default_config();
    configured_t settings(file, command, command_line_of(app));
    std::error_code failed;
    if (is_named) {
        take_named_file(std::move(settings));
    } else if (std::filesystem::exists(file, failed) || failed) {
        take_user_file(app, command, std::move(settings), context);
    }
}

void configure_common(context_t& context) {
    std::vector<setting_t> settings;
    const std::filesystem::path file = default_config();
    const bool is_right = read_config_file(file, &settings).empty();
    for (const setting_t& setting : is_right ? settings : std::vector<setting_t>()) {
        const std::string& value = setting.values.empty() ? std::string() : setting.values.front();
        if (setting.section.empty() && setting.name == "device") {
            context.device = is_path(value) ? resolved(value, file.parent_path()).native() : value;
        } else if (setting.section.empty() && setting.name == "home") {
            context.home = resolved(value, file.parent_path());
        }
    }
}

std::vector<const CLI::Option*> configurable_options(const CLI::App& command) {
    return command.get_options([](const CLI::Option* one) { return is_configurable(*one); });
}

std::string configuration_of(const CLI::App& command) {
    const CLI::Option* named = command.get_option_no_throw("--config");
    std::string text = commented(form_of_files);
    if (named == nullptr || named->count() == 0) {
        text += fmt::format("\n[{}]\n", command.get_name());
    }
    for (const CLI::Option* option : configurable_options(command)) {
        text += setting_of(command, *option);
    }
    return text;
}

std::string_view configuration_form() {
    return form_of_files;
}
