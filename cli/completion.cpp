#include "cli/completion.h"

namespace {

bool takes_value(const CLI::Option& option) {
    return option.get_expected_min() != 0;
}

bool takes_several(const CLI::Option& option) {
    return option.get_items_expected_max() > 1;
}

bool is_shown(const CLI::Option& option) {
    return !option.get_group().empty();
}

std::vector<const CLI::App*> commands_of_place(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); });
}

/// Takes word after word as the parser does, and lets pass what it would not.
class walk_t {
  public:
    explicit walk_t(const CLI::App& program) { place_.command = &program; }

    void pass(const std::string& word) {
        if (pending_ != nullptr) {
            give(*std::exchange(pending_, nullptr), word);
        } else if (only_arguments_ || !word.starts_with('-') || word == "-") {
            pass_name(word);
        } else if (word == "--") {
            only_arguments_ = true;
        } else {
            pass_option(word);
        }
    }

    typed_place_t end_at(const std::string& word) {
        place_.begun = word;
        place_.value_of = pending_;
        if (pending_ != nullptr) {
            return place_;
        }
        const size_t equals = word.find('=');
        if (only_arguments_ || !word.starts_with('-')) {
            place_.is_argument = true;
            place_.value_of = argument();
        } else if (word.starts_with("--") && equals != std::string::npos) {
            place_.kept = word.substr(0, equals + 1);
            place_.begun = word.substr(equals + 1);
            place_.value_of = place_.command->get_option_no_throw(word.substr(0, equals));
        }
        return place_;
    }

  private:
    void give(const CLI::Option& option, const std::string& value) {
        place_.given[option.get_single_name()].push_back(value);
    }

    void pass_name(const std::string& word) {
        for (const CLI::App* below : commands_of_place(*place_.command)) {
            if (below->get_name() == word && arguments_ == 0) {
                place_.command = below;
                return;
            }
        }
        if (const CLI::Option* option = argument(); option != nullptr) {
            give(*option, word);
        }
        ++arguments_;
    }

    void pass_option(const std::string& word) {
        const bool is_long = word.starts_with("--");
        const size_t end = is_long ? std::min(word.find('='), word.size()) : 2;
        const CLI::Option* option = place_.command->get_option_no_throw(word.substr(0, end));
        if (option == nullptr) {
            return;
        }
        if (takes_value(*option) && end == word.size()) {
            pending_ = option;
        } else {
            give(*option, word.substr(std::min(end + (is_long ? 1 : 0), word.size())));
        }
    }

    /// The one that the next word would be.
    const CLI::Option* argument() const {
        size_t index = 0;
        for (const CLI::Option* option : place_.command->get_options()) {
            if (option->get_lnames().empty() && option->get_snames().empty()) {
                if (index == arguments_ || takes_several(*option)) {
                    return option;
                }
                ++index;
            }
        }
        return nullptr;
    }

    typed_place_t place_;
    const CLI::Option* pending_ = nullptr;
    size_t arguments_ = 0;
    bool only_arguments_ = false;
};

/// Not again what comes once, nor what cannot stand beside another.
bool can_come(const CLI::Option& option, const typed_place_t& place) {
    for (const CLI::Option* other : option.get_excludes()) {
        if (place.given.contains(other->get_single_name())) {
            return false;
        }
    }
    return is_shown(option) && (takes_several(option) || !place.given.contains(option.get_single_name()));
}

}  // namespace

std::string typed_place_t::given_value(const std::string& name) const {
    const auto found = given.find(name);
    return found == given.end() ? "" : found->second.back();
}

typed_place_t place_in(const CLI::App& program, const std::vector<std::string>& words) {
    walk_t walk(program);
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        walk.pass(words[i]);
    }
    return walk.end_at(words.empty() ? "" : words.back());
}

void suggest_names(const typed_place_t& place, suggestions_t& suggestions) {
    if (place.is_argument) {
        for (const CLI::App* command : commands_of_place(*place.command)) {
            suggestions.values.push_back({command->get_name(), command->get_description()});
        }
    } else if (place.value_of == nullptr && place.kept.empty()) {
        for (const CLI::Option* option : place.command->get_options()) {
            if (!option->get_lnames().empty() && can_come(*option, place)) {
                suggestions.values.push_back({"--" + option->get_lnames().front(), option->get_description()});
            }
        }
    }
}
