/// zpd send.
#include "cli/card_arguments.h"
#include "cli/delivery.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "cli/question.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

using client::client_t;
using nlohmann::ordered_json;

struct send_options_t {
    card_arguments_t cards;
    std::vector<std::string> numbers;
    bool no_wait = false;
};

/// Nothing is said against it, or the person at the terminal wants it sent all the same.
bool is_wanted(const card_t& card) {
    if (!card.problem.empty()) {
        fail(card.problem);
        return false;
    }
    if (card.doubt.empty()) {
        return true;
    }
    if (can_ask()) {
        return ask(card.doubt + "; send it all the same?");
    }
    fail(card.doubt + "; " + card.advice);
    return false;
}

/// All cards are looked at before the first one is handed in. None when one of them is not to be sent.
std::optional<std::vector<card_t>> read_cards(const send_options_t& options) {
    auto cards = options.cards.read("send");
    bool all = true;
    for (const card_t& card : cards) {
        all = is_wanted(card) && all;
        if (!card.remark.empty()) {
            remark(card.remark);
        }
    }
    return all ? std::optional(std::move(cards)) : std::nullopt;
}

client::outgoing_card_t outgoing(const card_t& card, const card_options_t& options) {
    return {.octets = card.octets, .is_utf8 = !options.binary, .long_reference = options.long_reference};
}

/// What the driver's refusal of a card means.
int refuse(const card_t& card, const client::failure_t& failure) {
    if (failure.code == ZPD_ERROR_DEVICE_NOT_AVAILABLE) {
        return fail(
            fmt::format("{} was not queued: the driver's radio is not available; look whether the modem of "
                        "the service is there (error {})",
                        card.label(), failure.code));
    }
    return fail(fmt::format("{} was not queued: {}", card.label(), failure.text));
}

/// Sends cards one after another, on one connection.
class sender_t {
  public:
    sender_t(client_t& client, const send_options_t& options, bool json)
        : client_(client), options_(options), json_(json), progress_(json) {}

    int send(const std::vector<card_t>& cards) {
        bool all_done = true;
        for (const std::string& number : options_.numbers) {
            for (auto card = cards.begin(); card != cards.end() && !stop_; ++card) {
                all_done = send(*card, number) && all_done;
            }
        }
        if (json_) {
            say_json({{"messages", messages_}});
        }
        return all_done ? exit_done : exit_failed;
    }

  private:
    bool send(const card_t& card, const std::string& number) {
        const auto id = client_.send(outgoing(card, options_.cards.options), number);
        if (!id) {
            refuse(card, id.failure());
            stop_ = id.failure().code == 0;
            return false;
        }
        messages_.push_back({{"card", card.path}, {"id", *id}});
        if (options_.no_wait) {
            if (!json_) {
                say("{}", *id);
            }
            return true;
        }
        const std::string label = fmt::format("{} (message {})", card.label(), *id);
        const delivery_t delivery = watch_delivery(client_, *id, label, progress_, signals_);
        progress_.clear();
        report(delivery.tally);
        return finish(*id, label, delivery);
    }

    void report(const tally_t& tally) {
        messages_.back().update({{"datagrams", tally.total},
                                 {"sent", tally.sent},
                                 {"failed", tally.failed},
                                 {"deferred", tally.deferred},
                                 {"waiting", tally.queued + tally.submitted}});
    }

    bool finish(uint32_t id, const std::string& label, const delivery_t& delivery) {
        switch (delivery.end) {
            case delivery_t::end_t::interrupted:
                stop_ = true;
                fail(fmt::format(
                    "{}: {}. The message stays with the driver; see it with 'zpd status {}', and when it is "
                    "sent release it with 'zpd close {}'",
                    label, describe(delivery.tally), id, id));
                return false;
            case delivery_t::end_t::lost:
                stop_ = true;
                fail(fmt::format("{}: {}; whether all of it was sent is not known", label, delivery.error));
                return false;
            case delivery_t::end_t::over:
                break;
        }
        if (const auto closed = client_.close(id); !closed) {
            fail(fmt::format("{}: cannot close it: {}", label, closed.failure().text));
        }
        if (!delivery.tally.all_sent()) {
            fail(fmt::format("{}: {}. The modem or the network did not accept it; check the number and try again",
                             label, describe(delivery.tally)));
            return false;
        }
        progress_.note(fmt::format("{}: sent, {}", label, counted(delivery.tally.total, "datagram")));
        return true;
    }

    client_t& client_;
    const send_options_t& options_;
    const bool json_;
    progress_t progress_;
    const base::end_signals_t signals_;
    ordered_json messages_ = ordered_json::array();
    bool stop_ = false;  // the next card would fare no better
};

int run_send(const context_t& context, const send_options_t& options) {
    const auto cards = read_cards(options);
    if (!cards) {
        return exit_failed;
    }
    return with_device(context, [&](client_t& client) { return sender_t(client, options, context.json).send(*cards); });
}

}  // namespace

void add_send_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("send", "Send cards to phones");
    const auto options = std::make_shared<send_options_t>();
    add_card_arguments(command, context, options->cards);
    add_device_option(command, context);
    command->add_option("--to", options->numbers, "a phone number, with + before an international one; may come again")
        ->type_name("NUMBER")
        ->allow_extra_args(false)
        ->transform(CLI::Validator([](std::string& number) { return read_number(number); }, ""))
        ->required();
    command->add_flag("--no-wait", options->no_wait, "queue the cards, print their message ids and return");
    command->footer(
        "Shows each datagram's progress and releases the message when it is sent. Ctrl-C ends\n"
        "the command and leaves the message with the driver, which goes on trying.\n"
        "\n"
        "Examples:\n"
        "  zpd send ada.vcf --to +12025550100\n"
        "  zpd send *.vcf --to 5550100 --to 5550199 --no-wait");
    command->callback(
        [&context, options] { context.run = [&context, options] { return run_send(context, *options); }; });
}
