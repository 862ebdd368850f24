/// The arguments that are cards, of the commands that read them.
#pragma once

#include "cli/card.h"
#include "cli/command.h"

struct card_arguments_t {
    std::vector<std::string> paths;
    card_options_t options;

    std::vector<card_t> read(std::string_view command) const { return read_cards(paths, options, command); }
};

/// CARD…, --split, --convert, --force, --binary, --long-reference and --json. The arguments must outlive the command.
void add_card_arguments(CLI::App* command, context_t& context, card_arguments_t& arguments);
