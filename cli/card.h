/// Cards to send: read from files and checked before anything is queued.
#pragma once

#include <string>
#include <string_view>

struct card_t {
    std::string path;
    std::string octets;

    /// For people: the file's name without its folders.
    std::string label() const;
};

struct card_options_t {
    bool binary = false;          // any octets, cut anywhere
    bool long_reference = false;  // 16-bit concatenation reference
};

/// Reads `card->path` into `card->octets`. Returns an empty text, or why the card cannot be sent: missing, unreadable,
/// empty, too long, or (unless binary) not UTF-8.
[[nodiscard]] std::string read_card(card_t* card, const card_options_t& options);

/// "40000 octets; at most 32640 …" for a card of this size.
std::string size_and_limit(size_t size, const card_options_t& options);
