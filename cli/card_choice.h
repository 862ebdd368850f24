/// Which received cards are meant: by number, by the first digits of their file's name (eight at least, when all of
/// them are decimal: fewer are a number), or by a contact's whole name without regard to case.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/received_cards.h"

struct card_choice_t {
    std::vector<nlohmann::ordered_json> cards;  // each once, in the order in which they are named
    std::vector<std::string> errors;            // what means no card, or several; and what could not be read
};

card_choice_t choose_cards(received_cards_t& inbox, const std::vector<std::string>& names);
card_choice_t all_cards(received_cards_t& inbox);

/// "3"; of a card without a number the first digits of its file's name.
std::string short_name(const nlohmann::ordered_json& card);
