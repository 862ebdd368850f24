/// What a phone has received in part. No service needs to run on it, nor must it stand still.
#pragma once

#include "radio/incomplete_messages.h"

/// See radio::incomplete_messages.
std::vector<radio::incomplete_message_t> incomplete_messages(const std::filesystem::path& home, std::string* error);
