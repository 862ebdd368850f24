/// Values in the JSON that the service answers with. It may be of another version: what it does not tell, or tells as
/// something else, is "" or 0.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "client/errors.h"

namespace library {

using json_t = nlohmann::ordered_json;

/// `path` is a JSON pointer (RFC 6901).
std::string text_at(const json_t& object, const char* path);
uint64_t number_at(const json_t& object, const char* path);
/// What the array of this name has; nothing when there is none.
const json_t& list_at(const json_t& object, const char* name);
/// The names of the contacts on a card, ", " between them.
std::string contact_names(const json_t& card);

/// In ASCII: other characters are escaped.
std::string text_of(const json_t& object);
/// An object, or a failure of a service that answers otherwise.
client::answer_t<json_t> read_object(std::string_view text);

}  // namespace library
