#include "cli/manual/command_page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "cli/configuration.h"
#include "cli/manual/footer.h"
#include "cli/manual/roff.h"

namespace {

std::vector<const CLI::App*> commands_below(const CLI::App& above) {
    return above.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); });
}

const CLI::App* above_of(const CLI::App& command) {
    return command.get_parent();
}

/// "zpd inbox export", or with another separator a page's name.
std::string full_name(const CLI::App& command, std::string_view separator) {
    const CLI::App* above = above_of(command);
    return above == nullptr ? command.get_name()
                            : full_name(*above, separator) + std::string(separator) + command.get_name();
}

std::string with_first(std::string text, int (*change)(int)) {
    if (!text.empty()) {
        text[0] = static_cast<char>(change(static_cast<unsigned char>(text[0])));
    }
    return text;
}

std::string uppercase(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    return text;
}

std::string sentence(const std::string& text) {
    return with_first(text, std::toupper) + (text.ends_with('.') ? "" : ".");
}

/// A command takes over the words of the one above it when it has none of its own.
std::string own_footer(const CLI::App& command) {
    const CLI::App* above = above_of(command);
    return above != nullptr && above->get_footer() == command.get_footer() ? std::string() : command.get_footer();
}

/// What stands for the value: "FILE", "on|off".
std::string value_of(const CLI::Option& option) {
    std::string type = option.get_type_name();
    if (const size_t choices = type.find(":{"); choices != std::string::npos) {
        type = type.substr(choices + 2, type.size() - choices - 3);
        std::ranges::replace(type, ',', '|');
    }
    return option.get_expected_min() == 0 ? "" : type;
}

/// As a file has it.
std::string setting_value(const CLI::Option& option) {
    const std::string value = value_of(option);
    return value.empty()                         ? roff_bold("true|false")
           : option.get_items_expected_max() > 1 ? "[" + roff_italic(value) + ", ...]"
                                                 : roff_italic(value);
}

std::string names_of(const CLI::Option& option) {
    if (option.get_lnames().empty()) {
        return roff_italic(option.get_single_name()) + (option.get_items_expected_max() > 1 ? "..." : "");
    }
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) {
        names.push_back(roff_bold("-" + name));
    }
    for (const std::string& name : option.get_lnames()) {
        names.push_back(roff_bold("--" + name));
    }
    const std::string value = roff_italic(value_of(option));
    return fmt::format("{}{}{}", fmt::join(names, ", "), value.empty() ? "" : " ", value);
}

std::string listed(const std::string& words, const std::set<CLI::Option*>& options) {
    std::vector<std::string> names;
    std::ranges::transform(options, std::back_inserter(names), [](const CLI::Option* option) {
        return (option->get_lnames().empty() ? "" : "--") + option->get_single_name();
    });
    return names.empty() ? "" : fmt::format(" {} {}.", words, fmt::join(names, " or "));
}

std::string meaning_of(const CLI::Option& option) {
    const std::string usual = option.get_default_str();
    return sentence(option.get_description()) + (usual.empty() ? "" : fmt::format(" Default: {}.", usual)) +
           (option.get_required() && !option.get_lnames().empty() ? " Required." : "") +
           listed("Not with", option.get_excludes()) + listed("Only with", option.get_needs());
}

/// The command above one that is not the program; null when there is none.
const CLI::App* group_of(const CLI::App& command) {
    const CLI::App* above = above_of(command);
    return above == nullptr || above_of(*above) == nullptr ? nullptr : above;
}

/// An option that a command has in common with the one above it is told there.
bool is_above(const CLI::App& command, const CLI::Option& option) {
    const CLI::App* group = group_of(command);
    const CLI::Option* same = group == nullptr ? nullptr : group->get_option_no_throw("--" + option.get_single_name());
    return same != nullptr && same->get_description() == option.get_description();
}

void add_options(manual_page_t& page, const CLI::App& command, bool positional) {
    std::vector<std::string> also;
    for (const CLI::Option* option : command.get_options()) {
        const bool is_told = option == command.get_help_ptr() && group_of(command) != nullptr;
        if (option->get_lnames().empty() != positional || option->get_group().empty() || is_told) {
            continue;
        }
        if (is_above(command, *option)) {
            also.push_back("--" + option->get_single_name());
        } else {
            page.item(names_of(*option), meaning_of(*option));
        }
    }
    if (!also.empty()) {
        page.paragraph(fmt::format("Also {}, as above.", fmt::join(also, ", ")));
    }
}

/// "zpd inbox export [OPTIONS] [card...]"
std::string synopsis(const CLI::App& command) {
    std::string words = roff_bold(full_name(command, " ")) + " [" + roff_italic("OPTIONS") + "]";
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_lnames().empty()) {
            words += option->get_required() ? " " + names_of(*option) : " [" + names_of(*option) + "]";
        } else if (option->get_required()) {
            words += " " + names_of(*option);
        }
    }
    return words;
}

void add_blocks(manual_page_t& page, const footer_t& footer) {
    for (const auto& block : footer.blocks) {
        if (block.is_table) {
            page.literal(block.lines);
        } else {
            page.paragraph(block.lines.front());
        }
    }
}

void add_rows(manual_page_t& page, std::string_view name, const std::vector<footer_t::row_t>& rows) {
    if (rows.empty()) {
        return;
    }
    page.section(name);
    for (const auto& [what, meaning] : rows) {
        page.item(roff_bold(what), sentence(meaning));
    }
}

/// The pages of the commands that the words name, and of those whose options can stand in files.
std::vector<std::string> see_also(const CLI::App& program, const CLI::App& command, const std::string& words) {
    std::set<std::string> pages;
    for (const CLI::App* other : commands_below(program)) {
        if (other != &command && words.find("zpd " + other->get_name()) != std::string::npos) {
            pages.insert("zpd-" + other->get_name() + "(1)");
        }
    }
    if (command.get_configurable() || &command == &program) {
        pages.insert("zpd.conf(5)");
    }
    std::vector<std::string> all(pages.begin(), pages.end());
    if (&command != &program) {
        all.insert(all.begin(), "zpd(1)");
    }
    return all;
}

void add_see_also(manual_page_t& page, const std::vector<std::string>& pages) {
    page.section("SEE ALSO");
    page.line(roff_prose(fmt::format("{}", fmt::join(pages, ", "))));
}

void add_synopsis(manual_page_t& page, const CLI::App& command) {
    page.section("SYNOPSIS");
    page.line(synopsis(command));
    for (const CLI::App* below : commands_below(command)) {
        page.line(".br");
        page.line(synopsis(*below));
    }
}

/// The commands below one, or those of the program.
void add_subcommands(manual_page_t& page, const CLI::App& command) {
    const auto below = commands_below(command);
    if (below.empty()) {
        return;
    }
    page.section("COMMANDS");
    for (const CLI::App* one : below) {
        if (above_of(command) == nullptr) {
            page.item(roff_bold("zpd-" + one->get_name()) + "(1)", sentence(one->get_description()));
            continue;
        }
        page.subsection(roff_plain(full_name(*one, " ")));
        page.line(roff_prose(sentence(one->get_description())));
        add_options(page, *one, true);
        add_options(page, *one, false);
        add_blocks(page, read_footer(own_footer(*one)));
    }
}

/// What a command, and those below it, say in their help.
std::string all_words(const CLI::App& command) {
    std::string words = command.get_description() + "\n" + own_footer(command);
    for (const CLI::Option* option : command.get_options()) {
        words += "\n" + option->get_description();
    }
    for (const CLI::App* below : commands_below(command)) {
        words += "\n" + all_words(*below);
    }
    return words;
}

std::string page_text(const CLI::App& program, const CLI::App& command) {
    const footer_t footer = read_footer(command.get_footer());
    const bool is_program = &command == &program;
    std::vector<std::string> names{full_name(command, "-")};
    std::vector<std::string> examples = footer.examples;
    for (const CLI::App* below : is_program ? std::vector<const CLI::App*>() : commands_below(command)) {
        names.push_back(full_name(*below, "-"));
        const auto more = read_footer(own_footer(*below)).examples;
        examples.insert(examples.end(), more.begin(), more.end());
    }
    std::string about = with_first(command.get_description(), std::tolower);
    about.erase(about.find_last_not_of('.') + 1);
    manual_page_t page(names.front(), 1, names, about);
    if (is_program) {
        page.section("SYNOPSIS");
        page.line(roff_bold("zpd") + " [" + roff_italic("OPTIONS") + "] " + roff_italic("COMMAND") + " ...");
    } else {
        add_synopsis(page, command);
    }
    page.section("DESCRIPTION");
    page.line(roff_prose(sentence(command.get_description())));
    add_blocks(page, footer);
    if (!command.get_options([](const CLI::Option* one) { return one->get_lnames().empty(); }).empty()) {
        page.section("ARGUMENTS");
        add_options(page, command, true);
    }
    page.section("OPTIONS");
    add_options(page, command, false);
    add_subcommands(page, command);
    page.section("EXIT STATUS");
    page.line(roff_prose(
        sentence(footer.exit_status.empty() ? read_footer(program.get_footer()).exit_status : footer.exit_status)));
    add_rows(page, "FILES", footer.files);
    add_rows(page, "ENVIRONMENT", footer.environment);
    if (!examples.empty()) {
        page.section("EXAMPLES");
        page.literal(examples);
    }
    add_see_also(page, see_also(program, command, is_program ? "" : all_words(command)));
    return page.text();
}

}  // namespace

std::vector<page_file_t> command_pages(const CLI::App& program) {
    std::vector<page_file_t> pages{{"man1/zpd.1", page_text(program, program)}};
    for (const CLI::App* command : commands_below(program)) {
        const std::string file = fmt::format("man1/{}.1", full_name(*command, "-"));
        pages.push_back({file, page_text(program, *command)});
        for (const CLI::App* below : commands_below(*command)) {
            pages.push_back({fmt::format("man1/{}.1", full_name(*below, "-")), fmt::format(".so {}\n", file)});
        }
    }
    return pages;
}

page_file_t configuration_page(const CLI::App& program) {
    manual_page_t page("zpd.conf", 5, {"zpd.conf"}, "configuration of zpd(1)");
    page.section("DESCRIPTION");
    for (const auto& block : read_footer(configuration_form()).blocks) {
        page.paragraph(block.lines.front());
    }
    std::vector<std::string> pages{"zpd(1)"};
    for (const CLI::App* command : commands_below(program)) {
        if (!command->get_configurable()) {
            continue;
        }
        pages.push_back("zpd-" + command->get_name() + "(1)");
        page.section(fmt::format("\"SETTINGS OF ZPD {}\"", uppercase(command->get_name())));
        for (const CLI::Option* option : configurable_options(*command)) {
            page.item(roff_bold(option->get_single_name()) + " = " + setting_value(*option), meaning_of(*option));
        }
    }
    auto files = read_footer(program.get_footer()).files;
    std::erase_if(files, [](const auto& row) { return row.meaning.find("configuration") == std::string::npos; });
    add_rows(page, "FILES", files);
    page.section("EXAMPLES");
    page.line("The file of a user:");
    page.literal({"device = ZPD2", "", "[serve]", "modem = /dev/serial/by-id/usb-...", "activate = true",
                  "set = [submission=120, prompt=30]", "", "[send]", "expires = 36h"});
    page.paragraph("One with all settings is written by 'zpd serve --print-config'.");
    add_see_also(page, pages);
    return {"man5/zpd.conf.5", page.text()};
}
