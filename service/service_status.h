/// What the service does and has counted, as it tells: device::service_status.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "service/device_manager.h"
#include "service/loaded_driver.h"
#include "service/outbox.h"

nlohmann::ordered_json service_status(const serve_options_t& options, const loaded_driver_t& driver, outbox_t& outbox);

/// The same in a line, for a person. None when the driver does not answer, or the modem's thread does not come back
/// from what it does; does not return while the driver or the outbox is stuck.
std::optional<std::string> service_line(const loaded_driver_t& driver, outbox_t& outbox);
