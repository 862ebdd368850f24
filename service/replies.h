/// What the service answers to its own requests.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "device/packet.h"

/// The object, its text in UTF-8; a refusal when it is longer than any answer may be.
device::reply_t json_reply(const nlohmann::ordered_json& json);
/// An error of device/service_requests.h, and the reason in words.
device::reply_t refused(uint32_t error, std::string_view reason);
