/// A fleet in words for people, as the object "fleet" of its status has it (relay/fleet.h).
#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// "north.ZPD1" and the like: fit for a terminal, as all that follows is.
std::string modem_name(const nlohmann::ordered_json& modem);
/// Its number, network and version, and whether it is registered or what hinders it: what does not change all the time.
std::string modem_words(const nlohmann::ordered_json& modem);

/// The group, its cards and its modems, a line each.
void say_fleet(const nlohmann::ordered_json& fleet);
