/// zpd send.
#include <algorithm>
#include <numeric>

#include "cli/card_arguments.h"
#include "cli/follower.h"
#include "cli/outbox_arguments.h"
#include "cli/phone_number.h"
#include "cli/question.h"
#include "cli/service_connection.h"

namespace {

using nlohmann::ordered_json;

constexpr size_t longest_name = 255;  // octets that the service takes
constexpr size_t dear = 20;           // datagrams, each of which costs an SMS: more are asked about

struct send_options_t {
    card_arguments_t cards;
    std::vector<std::string> numbers;
    std::string from;  // empty for any phone
    expiry_t expiry;
    std::optional<double> timeout;  // seconds
    bool no_wait = false;
    bool yes = false;
};

/// Nothing is said against it, or the person at the terminal wants it sent all the same.
bool is_wanted(const card_t& card) {
    if (!card.problem.empty()) {
        fail(card.problem);
        return false;
    }
    if (!card.remark.empty()) {
        remark(card.remark);
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

/// All cards are looked at, and what they cost, before the first one is handed in. None when they are not to be sent.
std::optional<std::vector<card_t>> wanted_cards(const send_options_t& options) {
    auto cards = options.cards.read("send");
    bool all = true;
    size_t datagrams = 0;
    for (const card_t& card : cards) {
        all = is_wanted(card) && all;
        datagrams += card.datagrams * options.numbers.size();
    }
    if (all && datagrams > dear && !options.yes && can_ask()) {
        all = ask(fmt::format("{} SMS: send?", datagrams));
    }
    return all ? std::optional(std::move(cards)) : std::nullopt;
}

/// Hands cards in and follows them.
class sender_t {
  public:
    sender_t(std::unique_ptr<client::service_t> service, const send_options_t& options, const context_t& context)
        : options_(options),
          json_(context.json),
          progress_(context.json),
          connection_(std::move(service), context.device, signals_, [this](const std::string& why) { tell_lost(why); }),
          follower_(connection_, progress_, signals_, deadline_of(options)) {}

    int send(const std::vector<card_t>& cards) {
        bool done = hand_in(cards);
        done = (options_.no_wait || follow()) && done;
        progress_.clear();
        if (json_) {
            say_messages();
        }
        if (interrupted_) {
            signals_.end_by_signal();
        }
        return done ? exit_done : exit_failed;
    }

  private:
    struct handed_in_t {
        std::string label;
        outbox_card_t message;
    };

    static std::optional<follower_t::clock_t::time_point> deadline_of(const send_options_t& options) {
        if (!options.timeout) {
            return std::nullopt;
        }
        return follower_t::clock_t::now() + std::chrono::duration_cast<follower_t::clock_t::duration>(
                                                std::chrono::duration<double>(*options.timeout));
    }

    /// False when one was not taken, which it tells; those after it are not tried.
    bool hand_in(const std::vector<card_t>& cards) {
        for (const std::string& number : options_.numbers) {
            for (const card_t& card : cards) {
                auto message = hand_in(card, number);
                if (!message) {
                    progress_.clear();
                    fail(fmt::format("{} to {} was not handed in: {}{}", card.label(), number, message.failure().text,
                                     messages_.empty() ? "" : "; those before it were"));
                    return false;
                }
                if (options_.no_wait && !json_) {
                    say("{}", message->id);
                }
                const std::string to = options_.numbers.size() > 1 ? " to " + number : "";
                messages_.push_back({fmt::format("{}{} (message {})", card.label(), to, message->id), *message});
            }
        }
        return true;
    }

    client::answer_t<outbox_card_t> hand_in(const card_t& card, const std::string& number) {
        const std::string name = card.name();
        const card_options_t& how = options_.cards.options;
        return connection_.hand_in(
            {.card = {.octets = card.octets, .is_utf8 = !how.binary, .long_reference = how.long_reference},
             .number = number,
             .file = std::string_view(name).substr(0, longest_name),
             .expires = options_.expiry.from_now(),
             .token = {},
             .from = options_.from});
    }

    /// In order, but for those whose number is held back: they come last. True when all are sent.
    bool follow() {
        std::vector<size_t> left(messages_.size());
        std::iota(left.begin(), left.end(), size_t{0});
        bool all_sent = true;
        for (size_t seen = 0; !left.empty(); ++seen) {
            auto& [label, message] = messages_[left.front()];
            const bool puts_off = seen < messages_.size() && left.size() > 1;
            const auto end = follower_.follow(message, placed(left.front()), puts_off);
            if (end == follower_t::end_t::put_off) {
                std::rotate(left.begin(), left.begin() + 1, left.end());
            } else if (end != follower_t::end_t::over) {
                tell_unfinished(end, left);
                return false;
            } else {
                all_sent = tell_end(message, placed(left.front())) && all_sent;
                left.erase(left.begin());
            }
        }
        return all_sent;
    }

    /// "[2/4] ann.vcf (message 12)"
    std::string placed(size_t index) const {
        const std::string& label = messages_[index].label;
        return messages_.size() > 1 ? fmt::format("[{}/{}] {}", index + 1, messages_.size(), label) : label;
    }

    bool tell_end(const outbox_card_t& message, const std::string& label) {
        if (message.is_sent()) {
            progress_.note(fmt::format("{}: sent, {}", label, counted(message.total, "datagram")));
            return true;
        }
        progress_.clear();
        const std::string why = message.circumstances();
        fail(fmt::format("{}: {}{}; {}{}", label, message.state, why.empty() ? "" : ": " + why, message.progress(),
                         message.state == "set aside"
                             ? fmt::format("; send it after all with: zpd outbox retry {}", message.id)
                             : ""));
        return false;
    }

    /// Of these messages nothing was told yet: some may be over.
    void tell_unfinished(follower_t::end_t end, const std::vector<size_t>& left) {
        progress_.clear();
        std::vector<uint64_t> ids;
        for (const size_t index : left) {
            outbox_card_t& message = messages_[index].message;
            if (end != follower_t::end_t::lost) {
                follower_.look(message);
            }
            if (message.is_over()) {
                tell_end(message, placed(index));
            } else {
                ids.push_back(message.id);
            }
        }
        interrupted_ = end == follower_t::end_t::interrupted;
        if (ids.empty()) {
            return;
        }
        std::ranges::sort(ids);
        const std::string which = messages_words(ids) + (ids.size() == 1 ? " stays" : " stay");
        const std::string are = ids.size() == 1 ? "is" : "are";
        if (end == follower_t::end_t::lost) {
            fail(fmt::format("{}; {} in the outbox and {} sent when the service runs; then see: zpd outbox show {}",
                             follower_.error(), which, are, as_arguments(ids)));
            return;
        }
        fail(fmt::format("{}{} in the outbox and {} sent; cancel {} with: zpd outbox cancel {}",
                         interrupted_ ? "" : "not sent in the time; ", which, are, ids.size() == 1 ? "it" : "them",
                         as_arguments(ids)));
    }

    void tell_lost(const std::string& why) {
        progress_.clear();
        remark(fmt::format("{}; {}it is waited for", why,
                           messages_.empty() ? "" : "what was handed in stays in the outbox, and "));
    }

    void say_messages() const {
        ordered_json list = ordered_json::array();
        for (const handed_in_t& one : messages_) {
            list.push_back(one.message.json);
        }
        say_json({{"messages", list}});
    }

    const send_options_t& options_;
    const bool json_;
    progress_t progress_;
    const base::end_signals_t signals_;
    outbox_connection_t connection_;
    follower_t follower_;
    std::vector<handed_in_t> messages_;
    bool interrupted_ = false;
};

int run_send(const context_t& context, const send_options_t& options) {
    const auto cards = wanted_cards(options);
    if (!cards) {
        return exit_failed;
    }
    auto service = connect_service(context.device);
    return service ? sender_t(std::move(*service), options, context).send(*cards) : fail(service.failure().text);
}

void add_number_option(CLI::App* command, std::vector<std::string>& numbers) {
    command
        ->add_option_function<std::vector<std::string>>(
            "--to",
            [&numbers](const std::vector<std::string>& given) {
                for (const std::string& number : given) {
                    if (std::ranges::find(numbers, number) == numbers.end()) {
                        numbers.push_back(number);
                    }
                }
            },
            "a phone number, with + before an international one; may come again")
        ->type_name("NUMBER")
        ->allow_extra_args(false)
        ->transform(CLI::Validator([](std::string& number) { return read_number(number); }, ""))
        ->required()
        ->configurable(false);
}

}  // namespace

void add_send_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("send", "Send cards to phones");
    const auto options = std::make_shared<send_options_t>();
    command->configurable();
    add_card_arguments(command, context, options->cards);
    add_device_option(command, context);
    add_number_option(command, options->numbers);
    command->add_option("--from", options->from, "the phone of a fleet that is to send them (default: any)")
        ->type_name("NUMBER")
        ->transform(CLI::Validator([](std::string& number) { return read_number(number); }, ""));
    add_expires_option(command, options->expiry);
    auto* no_wait = command->add_flag("--no-wait", options->no_wait, "hand in, print the messages' ids and return");
    command->add_option("--timeout", options->timeout, "follow the messages for so many seconds at most")
        ->type_name("S")
        ->check(CLI::NonNegativeNumber.description(""))
        ->excludes(no_wait);
    command->add_flag("--yes", options->yes, fmt::format("do not ask about more than {} SMS", dear));
    command->footer(
        "Hands the cards to the service, whose outbox keeps them on the disk until they are sent, and\n"
        "shows their progress. Ctrl-C ends the command; the messages stay and are sent.\n"
        "\n"
        "Examples:\n"
        "  zpd send ada.vcf --to +12025550100\n"
        "  zpd send ~/cards --to '+1 (202) 555-0100' --to 5550199 --no-wait\n"
        "  zpd send --split --convert contacts.vcf --to +12025550100 --expires 36h");
    command->callback(
        [&context, options] { context.run = [&context, options] { return run_send(context, *options); }; });
}
