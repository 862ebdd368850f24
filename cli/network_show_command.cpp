/// zpd network show.
#include "base/safe_text.h"
#include "cli/network_commands.h"
#include "cli/network_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"

namespace {

using nlohmann::ordered_json;

struct phones_options_t {
    std::filesystem::path directory;
    std::vector<std::string> phones;
};

/// "ME 3/100, SM 20/20"
std::string levels_of(const ordered_json& phone) {
    std::string text;
    for (const ordered_json& memory : phone.at("memories")) {
        text += fmt::format("{}{} {}/{}", text.empty() ? "" : ", ", memory.at("name").get<std::string>(),
                            memory.at("used").get<size_t>(), memory.at("places").get<size_t>());
    }
    return text;
}

constexpr auto phone_row = "{:<16}  {:<7}  {:<12}  {:<9}  {:<20}  {:>7}  {}";

void say_heading() {
    say(phone_row, "number", "network", "tty", "state", "messages", "waiting", "faults");
}

void say_phone(const ordered_json& phone) {
    std::string faults;
    for (const ordered_json& fault : phone.at("faults")) {
        faults += (faults.empty() ? "" : " ") + base::escaped(fault.get<std::string>());
    }
    const auto text = [&](const char* name) { return phone.at(name).get<std::string>(); };
    const std::string tty = text("tty").empty() ? "(hung up)" : text("tty");
    const std::string reached_at = text("listens_at").empty() ? tty : tty + " " + text("listens_at");
    say(phone_row, text("number"), text("network"), text("tty").empty() ? "(hung up)" : text("tty"),
        text("registration"), levels_of(phone), phone.at("waiting").get<size_t>(), faults);
}

/// Adds the phones of the answer to `all`. Returns an empty text, or what failed.
std::string ask_for_phones(const phones_options_t& options, const ordered_json& order, ordered_json& all) {
    const ordered_json answer = send_order(options.directory, {{"show", order}});
    for (const ordered_json& phone : answer.value("phones", ordered_json::array())) {
        all.push_back(phone);
    }
    return answer.at("error").get<std::string>();
}

/// All of them, as many at a time as an answer holds.
std::string ask_for_all_phones(const phones_options_t& options, ordered_json& all) {
    for (size_t before = 1; before != all.size() || all.empty();) {
        before = all.size();
        const std::string last = all.empty() ? "" : all.back().at("number").get<std::string>();
        std::string error = ask_for_phones(options, {{"after", last}}, all);
        if (!error.empty() || all.empty()) {
            return error;
        }
    }
    return {};
}

int show_phones(const phones_options_t& options, bool json) {
    ordered_json all = ordered_json::array();
    std::string error = options.phones.empty() ? ask_for_all_phones(options, all) : std::string();
    for (size_t i = 0; i < options.phones.size() && error.empty(); ++i) {
        error = ask_for_phones(options, {{"phone", options.phones[i]}}, all);
    }
    if (!error.empty()) {
        return fail(error);
    }
    if (json) {
        say_json({{"phones", all}});
        return exit_done;
    }
    say_heading();
    for (const ordered_json& phone : all) {
        say_phone(phone);
    }
    return exit_done;
}

}  // namespace

void add_network_show_command(CLI::App* network, context_t& context) {
    auto* command = network->add_subcommand("show", "Show the phones of a running network");
    const auto options = std::make_shared<phones_options_t>();
    add_network_directory(command, options->directory);
    command->add_option("phone", options->phones, "only these phones")
        ->type_name("PHONE")
        ->check(CLI::Validator([](const std::string& number) { return check_number(number); }, ""));
    add_json_option(command, context);
    command->footer(
        "A line a phone: its network, its tty and TCP port, its registration, the messages in its memories and their\n"
        "places, those that the network keeps for it, and the faults in force, as 'zpd fault' sets them.\n\n"
        "Examples:\n"
        "  zpd network show --dir /tmp/network\n"
        "  zpd network show --dir /tmp/network +12025550100 --json");
    command->callback(
        [&context, options] { context.run = [&context, options] { return show_phones(*options, context.json); }; });
}
