/// Cards to send: read from files and looked at before anything is handed in.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct card_options_t {
    bool binary = false;          // any octets, cut anywhere
    bool long_reference = false;  // 16-bit concatenation reference
    bool split = false;           // each vCard of a file is a card
    bool convert = false;         // to UTF-8
    bool force = false;           // also what is no vCard
};

struct card_t {
    std::string path;      // as it was given, or in a folder that was; "-" is the standard input
    std::string octets;    // what is sent
    size_t part = 0;       // its place in its file, from 1, when that was split
    size_t parts = 0;      // into so many
    size_t datagrams = 0;  // that it takes; none of one with a problem
    std::string problem;   // why it cannot be sent, and what helps; mostly empty
    std::string doubt;     // why it may not be what was meant; --force is without doubt
    std::string advice;    // on the doubt
    std::string remark;    // what is worth to be known of it

    /// The file's name without its folders, "names.vcf (2 of 5)".
    std::string name() const;
    /// The same, fit for a terminal.
    std::string label() const;
};

/// The cards of files, of folders (their *.vcf, by name) and of "-". What cannot be read or sent is among them, with
/// its problem; `command` ("send") is named where another call of it helps.
std::vector<card_t> read_cards(const std::vector<std::string>& paths, const card_options_t& options,
                               std::string_view command);
