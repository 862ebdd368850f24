/// A phone's outbox as a client of its device sees it. Each call has a connection of its own, and waits for a service
/// that starts again.
#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "client/client.h"
#include "tests/system/process.h"

class outbox_client_t {
  public:
    explicit outbox_client_t(std::string device) : device_(std::move(device)) {}

    /// The message's id; none when the service went before it answered.
    std::optional<uint64_t> try_add(const std::string& octets, const std::string& number, uint64_t expires = 0) const {
        auto device = client::client_t::connect(device_);
        if (!device) {
            return std::nullopt;
        }
        const auto message = device->outbox_add({.card = {.octets = octets, .is_utf8 = false},
                                                 .number = number,
                                                 .file = "card.vcf",
                                                 .expires = expires,
                                                 .token = {}});
        return message ? std::optional<uint64_t>(nlohmann::json::parse(*message)["id"]) : std::nullopt;
    }
    uint64_t add(const std::string& octets, const std::string& number, uint64_t expires = 0) const {
        const auto id = try_add(octets, number, expires);
        EXPECT_TRUE(id) << octets.substr(0, 40);
        return id.value_or(0);
    }
    uint64_t add_leased(const std::string& octets, const std::string& number, const std::string& token,
                        uint32_t seconds) const {
        const auto message = request([&](auto& device) {
            return device.outbox_add({.card = {.octets = octets, .is_utf8 = false},
                                      .number = number,
                                      .file = "card.vcf",
                                      .token = token,
                                      .lease = seconds});
        });
        EXPECT_EQ(message["token"], token);
        EXPECT_EQ(message["leased"], true);
        return message["id"];
    }
    /// Those that have no lease any more.
    std::vector<uint64_t> renew(uint32_t seconds, const std::vector<uint64_t>& ids) const {
        auto device = client::client_t::connect(device_);
        const auto gone = device->outbox_renew(seconds, ids);
        EXPECT_TRUE(gone) << gone.failure().text;
        return *gone;
    }
    nlohmann::json message(uint64_t id) const {
        return request([&](auto& device) { return device.outbox_watch(id, 0, 0); });
    }
    nlohmann::json cancel(uint64_t id) const {
        return request([&](auto& device) { return device.outbox_cancel(id); });
    }
    nlohmann::json retry(uint64_t id, uint64_t expires = 0) const {
        return request([&](auto& device) { return device.outbox_retry(id, expires); });
    }
    nlohmann::json status() const {
        return request([&](auto& device) { return device.service_status(); });
    }
    nlohmann::json events() const {
        return request([&](auto& device) { return device.events(0, 0, 0); })["events"];
    }
    /// Those that are not over.
    size_t left() const {
        return request([&](auto& device) { return device.outbox_list(0, false); })["messages"].size();
    }
    bool becomes(uint64_t id, const std::string& state, std::chrono::seconds limit = std::chrono::seconds(60)) const {
        return eventually([&] { return message(id)["state"] == state; }, limit);
    }

  private:
    template <typename call_t>
    nlohmann::json request(const call_t& call) const {
        auto device = client::client_t::connect(device_);
        EXPECT_TRUE(device) << device.failure().text;
        const auto answer = device ? call(*device) : client::answer_t<std::string>(device.failure());
        EXPECT_TRUE(answer) << answer.failure().text;
        return answer ? nlohmann::json::parse(*answer) : nlohmann::json::object();
    }

    std::string device_;
};
