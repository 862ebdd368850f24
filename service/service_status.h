/// What the service does and has counted, as it tells: device::service_status.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "service/device_manager.h"
#include "service/loaded_driver.h"
#include "service/outbox.h"

nlohmann::ordered_json service_status(const serve_options_t& options, const loaded_driver_t& driver, outbox_t& outbox);
