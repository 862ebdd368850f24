/// What the commands below `zpd inbox` share. Each of them is a function in the file of its subject.
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/card_choice.h"
#include "cli/command.h"
#include "cli/received_cards.h"
#include "cli/times.h"

/// What the command line says; not every command has all of it.
struct inbox_options_t {
    bool home_named = false;         // what the configuration has is no more than a default
    std::vector<std::string> cards;  // as card_choice.h takes them
    bool all = false;
    bool follow = false;
    bool raw = false;                 // show
    bool sure = false;                // remove
    bool overwrite = false;           // export
    std::filesystem::path directory;  // export
    std::string output;               // export: a file, or "-"
};

int list_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox);
int show_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox);
int export_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox);
int open_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox);
int remove_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox);

/// The cards that the command line names; none, and told why, when some cannot be had of those that it names one by
/// one. `status` becomes exit_failed when something could not be had.
std::vector<nlohmann::ordered_json> chosen_cards(const inbox_options_t& options, received_cards_t& inbox, int& status);

/// Tells each. Returns exit_done when there are none.
int tell_errors(const std::vector<std::string>& errors);
