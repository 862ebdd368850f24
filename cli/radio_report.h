/// What is known of a modem, in words for people: by a running service (device::service_status), and by the doctor.
/// The objects are theirs, and what is missing in them was not told.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "client/service.h"

/// The service's status.
client::answer_t<nlohmann::ordered_json> status_of_service(client::service_t& service);

/// The object "radio" of it as lines, the findings last.
void say_radio(const nlohmann::ordered_json& radio);
/// An array "findings".
void say_findings(const nlohmann::ordered_json& findings);
/// An array "memories" in one line.
std::string memory_words(const nlohmann::ordered_json& memories);
/// Enough to tell two modems apart: a report is passed on to others.
std::string masked(const std::string& serial_number);
/// The texts that are there, with commas between them.
std::string listed(const std::vector<std::string>& texts);

/// Whether a modem is there, and nothing is known that keeps cards from being sent or received.
bool is_usable(const nlohmann::ordered_json& radio);
