/// Where received cards come from: the folder of a home, or a service, which may be that of another user. A card is the
/// JSON object "card" of docs/json.md. For one thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/service.h"

class received_cards_t {
  public:
    /// False: enough.
    using take_t = std::function<bool(const nlohmann::ordered_json& card)>;

    received_cards_t() = default;
    virtual ~received_cards_t() = default;
    received_cards_t(const received_cards_t&) = delete;
    received_cards_t& operator=(const received_cards_t&) = delete;

    /// Gives `take` the cards with numbers after this one in the order of arrival, then those without a number. Returns
    /// what could not be had, and why.
    virtual std::vector<std::string> list(uint64_t after, const take_t& take) = 0;
    virtual client::answer_t<std::string> octets(const nlohmann::ordered_json& card) = 0;
    virtual client::answer_t<client::done_t> remove(const nlohmann::ordered_json& card) = 0;

    /// Whether list may give others than the last time.
    virtual bool has_changed() const { return true; }
    /// Why cards have no numbers, as of the last list; empty when they have.
    virtual std::string problem() const = 0;
    /// For "no cards {}": "in /home/ann/…", "at device ZPD1".
    virtual std::string place() const = 0;
};

std::unique_ptr<received_cards_t> cards_of_home(const std::filesystem::path& home);
std::unique_ptr<received_cards_t> cards_of_service(std::unique_ptr<client::service_t> service, std::string device);
