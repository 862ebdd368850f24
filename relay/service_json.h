/// What a service tells (docs/json.md), read so that one of another version, or a stranger's text, does no harm: what
/// is not there, or of another kind, is empty.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace fleet {

using json_t = nlohmann::ordered_json;

/// Discarded when it is none.
inline json_t read_json(std::string_view text) {
    return json_t::parse(text, nullptr, false);
}
/// One line in ASCII.
inline std::string text_of(const json_t& json) {
    return json.dump(-1, ' ', true, json_t::error_handler_t::replace);
}

/// A member, null where there is none.
const json_t& member(const json_t& object, const char* name);
std::string text(const json_t& object, const char* name);
uint64_t number(const json_t& object, const char* name);
bool is_true(const json_t& object, const char* name);

/// The token of a card of the queue in an outbox. A stream that is made anew counts its cards anew: `created` tells one
/// from the other (nanoseconds since 1970). And the nodes of a cluster have been seen to differ in which card has a
/// number, after all of them were ended at once: `digest` tells them apart (digest_of).
std::string token_of(int64_t created, uint64_t card, uint64_t digest);
/// The card that a token is of; none for another stream's, and for what was handed in otherwise.
struct card_name_t {
    uint64_t card = 0;
    uint64_t digest = 0;
};
std::optional<card_name_t> card_of(std::string_view token, int64_t created);

/// A message of an outbox, or an event about one, as it is told to the fleet: under the card's id in place of the
/// outbox's own, with the modem that has it; `digest` in place of the token.
json_t for_fleet(json_t message, uint64_t card, const std::string& modem);
json_t event_for_fleet(json_t event, uint64_t card, const std::string& modem);

}  // namespace fleet
