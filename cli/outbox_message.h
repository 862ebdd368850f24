/// A message of the outbox, as the service tells of it, and in words.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/client.h"

/// Also of a service of another version: what it does not tell is empty, or 0. Times are in seconds since 1970.
struct outbox_card_t {            // NOLINT(bugprone-exception-escape): JSON moves without one
    nlohmann::ordered_json json;  // as it came
    uint64_t id = 0;
    uint64_t version = 0;
    std::string state;
    std::string number;
    std::string file;
    uint64_t total = 0;  // datagrams; 0 when that is not known
    uint64_t sent = 0;
    std::optional<uint32_t> driver_message;

    bool is_over() const { return state == "sent" || state == "cancelled" || state == "set aside"; }
    bool is_sent() const { return state == "sent"; }
    /// Its number was refused, and is tried again later.
    bool is_held_back() const;

    /// Who is on the card, else the name of its file. This and all that follow are fit for a terminal.
    std::string name() const;
    /// How long ago it was handed in.
    std::string age() const;
    /// "3 of 7 datagrams sent"; of a card that no modem has, nobody knows how many there are
    std::string progress() const;
    /// What is waited for, how long it takes; or why it does not go and what helps. May be empty.
    std::string circumstances() const;
};

/// None when it is no message.
std::optional<outbox_card_t> read_message(const nlohmann::ordered_json& json);
/// Of the answer to a request.
client::answer_t<outbox_card_t> read_message(const client::answer_t<std::string>& answer);

/// All that are not sent, or all that are known.
client::answer_t<std::vector<outbox_card_t>> list_outbox(client::service_t& service, bool all);

/// "message 12", "messages 12, 13 and 14"
std::string messages_words(const std::vector<uint64_t>& ids);
/// "12 13 14"
std::string as_arguments(const std::vector<uint64_t>& ids);
