// What the service and its driver are.
#include "client/library/handle.h"

using client::answer_t;
using client::client_t;
using library::answer;

int zpd_driver_version(zpd_client_t* client, uint32_t* version) {
    return answer(client, version, [&] { return client->ask([](client_t& device) { return device.version(); }); });
}

int zpd_status(zpd_client_t* client, const char** json) {
    return answer(client, json, [&]() -> answer_t<const char*> {
        auto status = client->ask([](client_t& device) { return device.service_status(); });
        if (!status) {
            return status.failure();
        }
        client->given = std::move(*status);
        return client->given.c_str();
    });
}

int zpd_activation(zpd_client_t* client, int* active) {
    return answer(client, active, [&] { return client->ask([](client_t& device) { return device.activation(); }); });
}

int zpd_set_activation(zpd_client_t* client, int active) {
    return answer<bool>(client, nullptr, [&] {
        return client->ask([&](client_t& device) { return device.set_activation(active != 0); });
    });
}
