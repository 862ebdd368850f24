/// Cards as JSON, in the one form that all requests and commands give them in: docs/json.md.
#pragma once

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "service/inbox_folder.h"

/// The contacts on a card: an array of { name, organisation, telephone }. Whatever is on the card, they take at most
/// 16,000 octets: long texts are cut, and the last contacts are left out. Texts may hold octets that are not UTF-8, to
/// be replaced when they are printed.
nlohmann::ordered_json contacts_json(std::string_view octets);

/// A received card, at most 20,000 octets and six for each of its path. Without a `number`: null. `file` is an absolute
/// path.
nlohmann::ordered_json card_json(std::optional<uint64_t> number, const std::filesystem::path& file,
                                 const stored_card_t& card);
