/// What the radio knows of its modem, as the service tells it.
#pragma once

#include <nlohmann/json_fwd.hpp>

/// The object "radio" of device::service_status; null while no modem is attached.
nlohmann::ordered_json radio_status();
