/// What can stand at the place in a command line where somebody types: read off the commands, so that it is what they
/// take.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "cli/command.h"

/// Where in the words somebody is.
struct typed_place_t {
    const CLI::App* command = nullptr;
    const CLI::Option* value_of = nullptr;  // the option, or argument, whose value is typed; null for none
    bool is_argument = false;               // that it has no name, so that a command can stand there, too
    std::string kept;                       // of the word what is not part of the value: "--modem="
    std::string begun;                      // the rest
    std::map<std::string, std::vector<std::string>> given;  // by the options' and arguments' names

    /// The last one given, or empty.
    std::string given_value(const std::string& name) const;
};

/// The last word is the one that is typed.
typed_place_t place_in(const CLI::App& program, const std::vector<std::string>& words);

struct suggestion_t {
    std::string value;
    std::string meaning;
};

struct suggestions_t {
    std::vector<suggestion_t> values;  // also such that go on from something else than was begun
    std::string files;                 // that files can stand there: "files", "folders", "cards"; or empty
};

/// The commands and options.
void suggest_names(const typed_place_t& place, suggestions_t& suggestions);
/// What the value can be. May ask the service, and read the phone's home.
void suggest_values(const typed_place_t& place, context_t& context, suggestions_t& suggestions);
