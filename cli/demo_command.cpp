/// zpd demo: two phones on an emulated network; cards go from one to the other.
#include <unistd.h>

#include "base/safe_text.h"
#include "base/text.h"
#include "cli/arrivals.h"
#include "cli/card.h"
#include "cli/command.h"
#include "cli/follower.h"
#include "cli/output.h"
#include "cli/phone_process.h"
#include "cli/service_connection.h"
#include "network/network.h"
#include "service/card_json.h"
#include "service/vcard.h"

namespace {

using nlohmann::ordered_json;

// Numbers that no subscriber has.
constexpr std::string_view sender_number = "+12025550100";
constexpr std::string_view receiver_number = "+12025550199";

constexpr std::chrono::seconds start_limit{60};
constexpr std::chrono::seconds arrival_limit{60};

constexpr std::string_view built_in_card =
    "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Example;Zo\xC3\xAB;;;\r\nFN:Zo\xC3\xAB "
    "Example\r\nTEL;TYPE=CELL:+12025550100\r\nEND:VCARD\r\n";

struct demo_options_t {
    std::vector<std::string> paths;
    std::filesystem::path directory;
};

/// The folder of a demonstration: the one that was named, or a temporary one that goes with the object.
class demo_folder_t {
  public:
    ~demo_folder_t() {
        std::error_code ignored;
        if (temporary_) {
            std::filesystem::remove_all(path_, ignored);
        }
    }
    demo_folder_t() = default;
    demo_folder_t(const demo_folder_t&) = delete;
    demo_folder_t& operator=(const demo_folder_t&) = delete;

    std::string make(const std::filesystem::path& named) {
        std::error_code failed;
        if (!named.empty()) {
            path_ = std::filesystem::absolute(named);
            std::filesystem::create_directories(path_, failed);
            return failed ? fmt::format("cannot make the folder {}: {}", path_.native(), failed.message()) : "";
        }
        std::string name = (std::filesystem::temp_directory_path(failed) / "zpd-demo-XXXXXX").native();
        if (mkdtemp(name.data()) == nullptr) {
            return fmt::format("cannot make the folder {}", name);
        }
        path_ = name;
        temporary_ = true;
        return {};
    }

    const std::filesystem::path& path() const { return path_; }
    bool is_temporary() const { return temporary_; }

  private:
    std::filesystem::path path_;
    bool temporary_ = false;
};

phone_process_t::settings_t phone_settings(const demo_folder_t& folder, const network::network_t& network,
                                           std::string_view number, std::string_view role, bool activate) {
    return {.modem = network.link(number).native(),
            .home = folder.path() / role,
            .device = fmt::format("demo-{}-{}", getpid(), role),
            .activate = activate};
}

struct transfer_t {
    const card_t* card = nullptr;
    size_t datagrams = 0;
    std::optional<stored_card_t> stored;

    bool is_identical() const { return stored && stored->octets == card->octets; }
};

/// The running demonstration. What is started is ended by the destructors, whatever happens.
class demo_t {
  public:
    demo_t(const demo_folder_t& folder, const base::end_signals_t& signals, network::network_t& network, bool json)
        : signals_(signals),
          json_(json),
          progress_(json),
          sender_(phone_settings(folder, network, sender_number, "sender", false)),
          receiver_(phone_settings(folder, network, receiver_number, "receiver", true)),
          arrivals_(inbox_folder_t(receiver_.settings().home)) {}

    std::string start() {
        progress_.show(fmt::format("starting two phones: {} sends, {} receives", sender_number, receiver_number));
        for (phone_process_t* phone : {&sender_, &receiver_}) {
            if (std::string error = phone->start(); !error.empty()) {
                return error;
            }
        }
        for (phone_process_t* phone : {&sender_, &receiver_}) {
            if (std::string error = phone->wait_until_ready(signals_, start_limit); !error.empty()) {
                return error;
            }
        }
        return arrivals_.watch();
    }

    int fail_with(const std::string& error) {
        progress_.clear();
        return fail(error);
    }

    /// Sends the cards one after another and waits for each to be stored. Returns what stopped it, or an empty text.
    std::string transfer(const std::vector<card_t>& cards) {
        auto service = connect_service(sender_.settings().device);
        if (!service) {
            return service.failure().text;
        }
        outbox_connection_t outbox(std::move(*service), sender_.settings().device, signals_,
                                   [this](const std::string& why) { progress_.note(why); });
        for (const card_t& card : cards) {
            transfers_.push_back({.card = &card, .datagrams = 0, .stored = std::nullopt});
            const std::string label = fmt::format("[{}/{}] {}", transfers_.size(), cards.size(), card.label());
            if (std::string error = transfer(outbox, label); !error.empty()) {
                return fmt::format("{}: {}", label, error);
            }
        }
        return {};
    }

    /// Shows what arrived; true when all of it is what was sent.
    bool report() const {
        size_t identical = 0;
        ordered_json list = ordered_json::array();
        if (!json_) {
            say("\nstored at {}, in {}:", receiver_number, arrivals_.inbox().path().native());
        }
        for (const transfer_t& transfer : transfers_) {
            identical += transfer.is_identical() ? 1 : 0;
            json_ ? list.push_back(as_json(transfer)) : say_line(as_line(transfer));
        }
        if (json_) {
            say_json({{"cards", list}, {"identical", identical}});
        } else {
            say("{} of {} arrived octet for octet", identical, counted(transfers_.size(), "card"));
        }
        return identical == transfers_.size();
    }

  private:
    /// Returns why it is not sent; or an empty text.
    std::string send(outbox_connection_t& outbox, const std::string& label) {
        transfer_t& transfer = transfers_.back();
        const std::string& octets = transfer.card->octets;
        const std::string name = transfer.card->name();
        auto message = outbox.hand_in({.card = {.octets = octets, .is_utf8 = base::is_utf8(octets)},
                                       .number = receiver_number,
                                       .file = name,
                                       .expires = 0,
                                       .token = {}});
        if (!message) {
            return message.failure().text;
        }
        follower_t follower(outbox, progress_, signals_, std::nullopt);
        switch (follower.follow(*message, label)) {
            case follower_t::end_t::over:
                transfer.datagrams = message->total;
                return message->is_sent() ? "" : message->circumstances();
            case follower_t::end_t::lost:
                return follower.error();
            default:
                return "interrupted";
        }
    }

    std::string transfer(outbox_connection_t& outbox, const std::string& label) {
        transfer_t& transfer = transfers_.back();
        if (std::string error = send(outbox, label); !error.empty()) {
            return error;
        }
        progress_.show(fmt::format("{}: sent; waiting for it to arrive", label));
        transfer.stored = arrivals_.next(signals_, arrival_limit);
        if (!transfer.stored) {
            return fmt::format("it did not arrive within {} s", arrival_limit.count());
        }
        progress_.note(fmt::format("{}: {} octets in {}, stored", label, transfer.card->octets.size(),
                                   counted(transfer.datagrams, "datagram")));
        return {};
    }

    static std::string name_on(std::string_view octets) {
        const auto contacts = contacts_of(octets);
        return contacts.empty() ? std::string() : contacts.front().name;
    }

    static std::string as_line(const transfer_t& transfer) {
        const stored_card_t& card = *transfer.stored;
        return fmt::format("  {}  {:>6} octets  {}  {}  ({})", card.name, card.octets.size(),
                           transfer.is_identical() ? "identical" : "DIFFERENT", base::escaped(name_on(card.octets)),
                           transfer.card->label());
    }

    ordered_json as_json(const transfer_t& transfer) const {
        const stored_card_t& card = *transfer.stored;
        return {{"card", transfer.card->path},
                {"datagrams", transfer.datagrams},
                {"name", card.name},
                {"path", arrivals_.inbox().file(card.name).native()},
                {"size", card.octets.size()},
                {"contacts", contacts_json(card.octets)},
                {"identical", transfer.is_identical()}};
    }

    const base::end_signals_t& signals_;
    const bool json_;
    progress_t progress_;
    phone_process_t sender_;
    phone_process_t receiver_;
    arrivals_t arrivals_;
    std::vector<transfer_t> transfers_;
};

/// None when one cannot be sent, which it tells.
std::optional<std::vector<card_t>> demo_cards(const std::vector<std::string>& paths) {
    if (paths.empty()) {
        card_t card;
        card.path = "built-in.vcf";
        card.octets = built_in_card;
        return std::vector{card};
    }
    auto cards = read_cards(paths, {.binary = true}, "demo");
    for (const card_t& card : cards) {
        if (!card.problem.empty()) {
            fail(card.problem);
            return std::nullopt;
        }
    }
    return cards;
}

int run_demo(const demo_options_t& options, bool json) {
    const auto cards = demo_cards(options.paths);
    if (!cards) {
        return exit_failed;
    }
    const base::end_signals_t signals;
    demo_folder_t folder;
    std::string error = folder.make(options.directory);
    if (!error.empty()) {
        return fail(error);
    }
    const auto network = network::network_t::start(folder.path() / "network",
                                                   {std::string(sender_number), std::string(receiver_number)}, &error);
    if (!network) {
        return fail(error);
    }
    demo_t demo(folder, signals, *network, json);
    if (error = demo.start(); error.empty()) {
        error = demo.transfer(*cards);
    }
    if (!error.empty()) {
        return demo.fail_with(error);
    }
    const bool all_identical = demo.report();
    if (folder.is_temporary() && !json) {
        say_line("These phones are temporary and go now; --dir DIR keeps them.");
    }
    return all_identical ? exit_done : exit_failed;
}

}  // namespace

void add_demo_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("demo", "Send cards between two phones on an emulated network");
    const auto options = std::make_shared<demo_options_t>();
    command->add_option("card", options->paths, "the cards' files; without any, a small one of our own")
        ->type_name("CARD.vcf");
    command->add_option("--dir", options->directory, "keep the phones' homes here; the default is a temporary folder")
        ->type_name("DIR");
    add_json_option(command, context);
    command->footer(
        "Starts an emulated network and two services, sends each card from one to the other and\n"
        "compares what is stored there with what was sent.\n"
        "\nExit status 0 when all are identical, else 1.\n\nExamples:\n  zpd demo\n  zpd demo examples/*.vcf --dir "
        "/tmp/phones");
    command->callback(
        [&context, options] { context.run = [&context, options] { return run_demo(*options, context.json); }; });
}
