/// Answers the requests of device/service_requests.h that are about the outbox and the events. Any thread.
#pragma once

#include <cstdint>

#include "device/packet.h"
#include "service/feeder.h"
#include "service/loaded_driver.h"
#include "service/outbox.h"

class outbox_requests_t {
  public:
    /// All outlive the object.
    outbox_requests_t(outbox_t& outbox, feeder_t& feeder, const loaded_driver_t& driver);

    /// None when the code is not among them.
    std::optional<device::reply_t> answer(const device::request_t& request) const;

  private:
    using input_t = base::reader_t;
    device::reply_t add(input_t input) const;
    device::reply_t renew(input_t input) const;
    device::reply_t list(input_t input, size_t room) const;
    device::reply_t watch(input_t input) const;
    device::reply_t cancel(input_t input) const;
    device::reply_t retry(input_t input) const;
    device::reply_t events(input_t input, size_t room) const;

    device::reply_t reply(const std::optional<outbox_t::view_t>& view, const problem_t& problem) const;
    nlohmann::ordered_json json(const outbox_t::view_t& view) const;
    std::string what_hinders() const;

    outbox_t& outbox_;
    feeder_t& feeder_;
    const loaded_driver_t& driver_;
    const uint64_t begun_;  // tick64
};
