#include "service/replies.h"

#include <nlohmann/json.hpp>

#include "device/device_socket.h"
#include "device/service_requests.h"

device::reply_t json_reply(const nlohmann::ordered_json& json) {
    const std::string text = json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    if (text.size() > device::max_output) {
        return refused(device::error_value, "the answer is too large");
    }
    return {.result = true, .last_error = 0, .output = {text.begin(), text.end()}};
}

device::reply_t refused(uint32_t error, std::string_view reason) {
    return {.result = false, .last_error = error, .output = {reason.begin(), reason.end()}};
}
