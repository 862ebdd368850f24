/// A fleet of modems as what answers for cards: what is asked of one phone's service is asked of the streams of a group
/// (relay/fleet_names.h) and of the relays beside the modems. A message's id and a received card's number are places in
/// streams.
///
/// For one thread. A server that is away is connected to again; meanwhile calls fail within `nats::longest_call`, with
/// obstacle_t::no_answer.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>

#include "client/service.h"
#include "relay/fleet_names.h"
#include "relay/nats.h"
#include "relay/service_json.h"

namespace fleet {

using client::answer_t;

class fleet_t final : public client::service_t {
  public:
    /// A server that cannot be reached now is a failure.
    static answer_t<std::unique_ptr<fleet_t>> open(const address_t& address);

    /// {"fleet": {group, server, cards: {waiting, taken}, modems}}
    answer_t<std::string> service_status() override;
    /// Makes the group, if the server lets it and nobody has.
    answer_t<std::string> outbox_add(const client::handed_in_card_t& card) override;
    answer_t<std::string> outbox_list(uint64_t after, bool all) override;
    answer_t<std::string> outbox_watch(uint64_t id, uint64_t version, uint32_t milliseconds) override;
    answer_t<std::string> outbox_cancel(uint64_t id) override;
    answer_t<std::string> outbox_retry(uint64_t id, uint64_t expires) override;
    answer_t<std::string> events(uint64_t after, uint64_t since, uint32_t milliseconds) override;
    answer_t<std::string> inbox_list(uint64_t after) override;
    answer_t<std::string> inbox_octets(uint64_t number) override;
    answer_t<client::done_t> inbox_remove(uint64_t number) override;

  private:
    fleet_t(std::unique_ptr<nats::connection_t> connection, names_t names)
        : connection_(std::move(connection)), names_(std::move(names)) {}

    /// Why it failed, where the server alone does not say so.
    client::failure_t explained(const client::failure_t& failure) const;
    bool is_missing() const;
    client::failure_t missing() const;
    /// Reading from a stream that is not there has no answer for seconds.
    answer_t<client::done_t> look_for_group();

    struct card_counts_t {
        uint64_t waiting = 0;
        uint64_t taken = 0;
    };
    answer_t<card_counts_t> card_counts();

    answer_t<nats::stored_t> store(const client::handed_in_card_t& card);
    answer_t<std::optional<nats::message_t>> last_result(uint64_t id) const;
    answer_t<std::optional<json_t>> result_of(uint64_t id);
    answer_t<std::optional<json_t>> waiting_of(uint64_t id);
    /// A message by its last result, else as it waits.
    answer_t<json_t> message_of(uint64_t id);
    answer_t<json_t> order(const char* what, const json_t& message, const json_t& request, nats::milliseconds wait);

    answer_t<client::done_t> read_results(bool all);
    answer_t<std::optional<json_t>> next_message(uint64_t after);

    answer_t<uint64_t> first_event(uint64_t after, uint64_t since);
    answer_t<client::done_t> follow_events(uint64_t after, uint64_t since);
    answer_t<nats::message_t> received(uint64_t number);

    const std::unique_ptr<nats::connection_t> connection_;
    const names_t names_;
    bool is_found_ = false;

    std::set<uint64_t> cancelling_;  // of which a relay said so, and whose results may take a while

    /// Of the pages of a list: the messages with results that count in it.
    struct results_t {
        bool all = false;
        std::set<uint64_t> ids;
    };
    std::optional<results_t> results_;

    /// The events from where the last request ended.
    struct followed_t {
        nats::subscription_t events;
        uint64_t after;     // what the next request says when it goes on
        uint64_t position;  // all up to this one have come
    };
    std::optional<followed_t> followed_;
};

}  // namespace fleet
