#include "cli/network_orders.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "base/hex.h"

namespace {

using nlohmann::ordered_json;

/// An answer begins no further phone behind so many octets; a hundred fit mostly.
constexpr size_t enough_octets = 64'000;
constexpr size_t phones_at_once = 100;
/// Of the cards that were not expected.
constexpr size_t others_told = 5;

ordered_json refusal(const std::string& error) {
    return {{"error", error}};
}

/// A text of an order; empty when it has none of the name.
std::string text_in(const nlohmann::json& order, const char* name) {
    const auto member = order.find(name);
    return member != order.end() && member->is_string() ? member->get<std::string>() : std::string();
}

std::vector<std::string> texts_in(const nlohmann::json& order, const char* name) {
    std::vector<std::string> texts;
    const auto member = order.find(name);
    for (const nlohmann::json& text : member != order.end() && member->is_array() ? *member : nlohmann::json::array()) {
        texts.push_back(text.is_string() ? text.get<std::string>() : std::string());
    }
    return texts;
}

ordered_json state_object(const network::phone_state_t& phone) {
    ordered_json memories = ordered_json::array();
    for (const auto& memory : phone.memories) {
        memories.push_back({{"name", memory.name}, {"used", memory.used}, {"places", memory.places}});
    }
    return {{"number", phone.number},
            {"network", phone.technology},
            {"tty", phone.tty},
            {"listens_at", phone.listens_at},
            {"registration", phone.registration},
            {"memories", memories},
            {"waiting", phone.waiting},
            {"faults", phone.faults}};
}

}  // namespace

ordered_json network_orders_t::execute(const nlohmann::json& order) {
    constexpr struct {
        const char* name;
        ordered_json (network_orders_t::*run)(const nlohmann::json&);
    } orders[] = {{"fault", &network_orders_t::set_faults},
                  {"show", &network_orders_t::show},
                  {"submit", &network_orders_t::submit},
                  {"expect", &network_orders_t::expect}};
    for (const auto& known : orders) {
        if (order.is_object() && order.contains(known.name) && order[known.name].is_object()) {
            return (this->*known.run)(order[known.name]);
        }
    }
    return refusal("that is no order");
}

/// Stops at the first that is none.
ordered_json network_orders_t::set_faults(const nlohmann::json& order) {
    for (const std::string& fault : texts_in(order, "faults")) {
        if (const std::string error = network_.set_fault(text_in(order, "phone"), fault); !error.empty()) {
            return refusal(error);
        }
    }
    return refusal("");
}

ordered_json network_orders_t::show(const nlohmann::json& order) {
    const std::string number = text_in(order, "phone");
    std::vector<network::phone_state_t> phones;
    if (number.empty()) {
        phones = network_.phones(text_in(order, "after"), phones_at_once);
    } else if (auto phone = network_.phone(number)) {
        phones.push_back(std::move(*phone));
    } else {
        return refusal(fmt::format("the network has no phone {}", number));
    }
    ordered_json answer = refusal("");
    answer["phones"] = ordered_json::array();
    size_t octets = 0;
    for (size_t i = 0; i < phones.size() && octets < enough_octets; ++i) {
        answer["phones"].push_back(state_object(phones[i]));
        octets += answer["phones"].back().dump(-1, ' ', false, ordered_json::error_handler_t::replace).size();
    }
    return answer;
}

ordered_json network_orders_t::submit(const nlohmann::json& order) {
    const std::string to = text_in(order, "to");
    const std::string kind = text_in(order, "kind");
    const auto octets = base::from_hex(text_in(order, "octets"));
    if (!octets) {
        return refusal("these are no octets");
    }
    if (kind == "tpdu") {
        return submit_tpdu(order, *octets);
    }
    const uint8_t reference = next_reference_++;
    const network::composed_t messages =
        order.contains("text")
            ? network::compose_text(text_in(order, "text"), to, reference)
            : network::compose_octets(*octets, kind == "push" ? network::push_ports : network::card_ports, to,
                                      reference);
    return messages.empty() ? refusal("there is nothing in it, or more than 255 datagrams hold")
                            : submit_all(text_in(order, "from"), messages);
}

/// One of a phone's goes to its destination, or to another when the order names one; all else is a service centre's.
ordered_json network_orders_t::submit_tpdu(const nlohmann::json& order, const air::octets_t& tpdu) {
    const std::string to = text_in(order, "to");
    if (!network::is_submission(tpdu)) {
        ordered_json answer = refusal(network_.deliver(to, tpdu));
        answer["datagrams"] = 1;
        return answer;
    }
    const auto submission = network::readdressed(tpdu, to);
    return submission ? submit_all(text_in(order, "from"), {*submission}) : refusal("the PDU is no whole SMS-SUBMIT");
}

ordered_json network_orders_t::submit_all(const std::string& from, const network::composed_t& messages) {
    ordered_json answer = refusal(network_.submit(from, messages));
    answer["datagrams"] = messages.size();
    return answer;
}

ordered_json network_orders_t::expect(const nlohmann::json& order) {
    const std::string number = text_in(order, "at");
    const auto card = base::from_hex(text_in(order, "card"));
    if (!network_.phone(number)) {
        return refusal(fmt::format("the network has no phone {}", number));
    }
    ordered_json answer = refusal("");
    answer["arrived"] = card && network_.take_arrival(number, *card);
    const auto others = network_.arrivals_at(number);
    answer["other_count"] = others.size();
    answer["others"] = ordered_json::array();
    for (const auto& other : std::span(others).first(std::min(others.size(), others_told))) {
        answer["others"].push_back(
            {{"from", other.from}, {"octets", other.octets}, {"have", other.have}, {"parts", other.parts}});
    }
    return answer;
}
