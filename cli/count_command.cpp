/// zpd count.
#include "cli/card_arguments.h"
#include "cli/output.h"

namespace {

using nlohmann::ordered_json;

ordered_json as_json(const card_t& card, const std::string& problem) {
    ordered_json object{{"card", card.path}};
    if (card.parts != 0) {
        object.update({{"part", card.part}, {"parts", card.parts}});
    }
    if (!problem.empty()) {
        object["error"] = problem;
    } else {
        object.update({{"octets", card.octets.size()}, {"datagrams", card.datagrams}});
    }
    return object;
}

std::string sizes(size_t octets, size_t datagrams) {
    return fmt::format("{}, {}", counted(octets, "octet"), counted(datagrams, "datagram"));
}

int run_count(const card_arguments_t& arguments, bool json) {
    ordered_json list = ordered_json::array();
    size_t cards = 0, octets = 0, datagrams = 0;
    for (const card_t& card : arguments.read("count")) {
        const std::string problem =
            card.problem.empty() && !card.doubt.empty() ? card.doubt + "; " + card.advice : card.problem;
        list.push_back(as_json(card, problem));
        if (!problem.empty()) {
            fail(problem);
            continue;
        }
        if (!card.remark.empty()) {
            remark(card.remark);
        }
        ++cards;
        octets += card.octets.size();
        datagrams += card.datagrams;
        if (!json) {
            say("{}: {}", card.label(), sizes(card.octets.size(), card.datagrams));
        }
    }
    if (json) {
        say_json({{"cards", list}, {"octets", octets}, {"datagrams", datagrams}});
    } else if (list.size() > 1) {
        say("{}: {}", counted(cards, "card"), sizes(octets, datagrams));
    }
    return cards == list.size() ? exit_done : exit_failed;
}

}  // namespace

void add_count_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("count", "Tell how many datagrams cards take");
    const auto arguments = std::make_shared<card_arguments_t>();
    add_card_arguments(command, context, *arguments);
    command->footer(
        "Each datagram costs what an SMS costs. Needs no service; nothing is sent.\n"
        "\n"
        "Examples:\n"
        "  zpd count ada.vcf\n"
        "  zpd count --split contacts.vcf");
    command->callback(
        [&context, arguments] { context.run = [&context, arguments] { return run_count(*arguments, context.json); }; });
}
