#include "service/incoming.h"

std::vector<radio::incomplete_message_t> incomplete_messages(const std::filesystem::path& home, std::string* error) {
    return radio::incomplete_messages(home, error);
}
