/// zpd send, zpd count.
#include "cli/card.h"
#include "cli/command.h"
#include "cli/delivery.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "com/zpd/zpd_ioctl.h"

namespace {

using client::client_t;
using nlohmann::ordered_json;

struct send_options_t {
    std::vector<std::string> paths;
    std::string number;
    card_options_t card;
    bool no_wait = false;
};

/// All cards are checked before the first one is queued. None when one of them cannot be sent, which it tells.
std::optional<std::vector<card_t>> read_cards(const send_options_t& options) {
    std::vector<card_t> cards;
    for (const std::string& path : options.paths) {
        card_t& card = cards.emplace_back(card_t{path, {}});
        if (const std::string error = read_card(&card, options.card); !error.empty()) {
            fail(error);
            return std::nullopt;
        }
    }
    return cards;
}

client::outgoing_card_t outgoing(const card_t& card, const card_options_t& options) {
    return {.octets = card.octets, .is_utf8 = !options.binary, .long_reference = options.long_reference};
}

/// What the driver's refusal of a card means.
int refuse(const card_t& card, const client::failure_t& failure, const card_options_t& options) {
    switch (failure.code) {
        case ZPD_ERROR_TOO_MANY_DATAGRAMS:
            return fail(fmt::format("{} is too long: {} (error {})", card.label(),
                                    size_and_limit(card.octets.size(), options), failure.code));
        case ZPD_ERROR_OUT_OF_RANGE:
            return fail(
                fmt::format("{} cannot be cut into datagrams between characters; send it with --binary (error {})",
                            card.label(), failure.code));
        case ZPD_ERROR_DEVICE_NOT_AVAILABLE:
            return fail(
                fmt::format("{} was not queued: the driver's radio is not available; look whether the modem of "
                            "the service is there (error {})",
                            card.label(), failure.code));
        default:
            return fail(fmt::format("{} was not queued: {}", card.label(), failure.text));
    }
}

/// Sends cards one after another, on one connection.
class sender_t {
  public:
    sender_t(client_t& client, const send_options_t& options, bool json)
        : client_(client), options_(options), json_(json), progress_(json) {}

    int send(const std::vector<card_t>& cards) {
        bool all_done = true;
        for (const card_t& card : cards) {
            all_done = send(card) && all_done;
            if (stop_) {
                break;
            }
        }
        if (json_) {
            say_json({{"messages", messages_}});
        }
        return all_done ? exit_done : exit_failed;
    }

  private:
    bool send(const card_t& card) {
        const auto id = client_.send(outgoing(card, options_.card), options_.number);
        if (!id) {
            refuse(card, id.failure(), options_.card);
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

int run_count(const context_t& context, const send_options_t& options) {
    const auto cards = read_cards(options);
    if (!cards) {
        return exit_failed;
    }
    return with_device(context, [&](client_t& client) {
        ordered_json counts = ordered_json::array();
        for (const card_t& card : *cards) {
            const auto count = client.count(outgoing(card, options.card));
            if (!count) {
                return refuse(card, count.failure(), options.card);
            }
            counts.push_back({{"card", card.path}, {"octets", card.octets.size()}, {"datagrams", *count}});
            if (!context.json) {
                say("{}: {}, {}", card.label(), counted(card.octets.size(), "octet"), counted(*count, "datagram"));
            }
        }
        if (context.json) {
            say_json({{"cards", counts}});
        }
        return exit_done;
    });
}

int run_send(const context_t& context, const send_options_t& options) {
    const auto cards = read_cards(options);
    if (!cards) {
        return exit_failed;
    }
    return with_device(context, [&](client_t& client) { return sender_t(client, options, context.json).send(*cards); });
}

void add_card_options(CLI::App* command, context_t& context, const std::shared_ptr<send_options_t>& options) {
    command->add_option("card", options->paths, "the card's file")->type_name("CARD.vcf")->required();
    command->add_flag(
        "--long-reference", options->card.long_reference,
        "number the message's parts with a 16-bit reference: fewer mix-ups, 127 octets a datagram, not 128");
    command->add_flag("--binary", options->card.binary, "the card is not UTF-8 text: any octets, cut anywhere");
    add_device_option(command, context);
    add_json_option(command, context);
}

}  // namespace

void add_send_commands(CLI::App& app, context_t& context) {
    auto* send = app.add_subcommand("send", "Send cards to a phone");
    const auto options = std::make_shared<send_options_t>();
    add_card_options(send, context, options);
    send->add_option("--to", options->number, "the phone number: digits, with + before an international one")
        ->type_name("NUMBER")
        ->check(CLI::Validator([](const std::string& number) { return check_number(number); }, ""))
        ->required();
    send->add_flag("--no-wait", options->no_wait, "queue the cards, print their message ids and return");
    send->footer(
        "Shows each datagram's progress and releases the message when it is sent. Ctrl-C ends\n"
        "the command and leaves the message with the driver, which goes on trying.\n"
        "\n"
        "Examples:\n"
        "  zpd send ada.vcf --to +12025550100\n"
        "  zpd send *.vcf --to 5550100 --no-wait");
    send->callback([&context, options] { context.run = [&context, options] { return run_send(context, *options); }; });

    auto* count = app.add_subcommand("count", "Tell how many datagrams cards take");
    const auto count_options = std::make_shared<send_options_t>();
    add_card_options(count, context, count_options);
    count->footer("Asks the driver of a running service; nothing is sent.\n\nExample:\n  zpd count ada.vcf");
    count->callback([&context, count_options] {
        context.run = [&context, count_options] { return run_count(context, *count_options); };
    });
}
