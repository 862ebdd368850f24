/// zpd_event_t: something that happened, as the service tells of it.
#pragma once

#include <zpd/client.h>

#include <string>

#include "client/library/values.h"

struct zpd_event {
    uint64_t id = 0;
    uint64_t time = 0;
    int kind = ZPD_EVENT_OTHER;
    std::string kind_text;
    std::string text;
    uint64_t message = 0;
    uint64_t card = 0;
    std::string number;
    std::string json;
};

namespace library {

zpd_event event_of(const json_t& object);

}  // namespace library
