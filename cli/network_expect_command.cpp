/// zpd network expect.
#include <chrono>

#include "base/duration.h"
#include "base/file.h"
#include "base/hex.h"
#include "base/safe_text.h"
#include "base/text.h"
#include "cli/network_commands.h"
#include "cli/network_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"

namespace {

using nlohmann::ordered_json;
using expect_clock_t = std::chrono::steady_clock;

constexpr size_t longest_expected_card = 40'000;
constexpr int arrival_look_interval = 20;  // ms; a look costs the network some microseconds

struct expect_options_t {
    std::filesystem::path directory;
    std::string number;
    std::string card;
    std::string within = "30s";
};

/// "one of 64 octets from +12025550100", or how much of it.
std::string arrival_words(const ordered_json& other) {
    const auto have = other.at("have").get<unsigned>();
    const auto parts = other.at("parts").get<unsigned>();
    const std::string from = base::escaped(other.at("from").get<std::string>());
    return have == parts ? fmt::format("one of {} octets from {}", other.at("octets").get<size_t>(), from)
                         : fmt::format("{} of the {} datagrams of one from {}", have, parts, from);
}

std::string nothing_came(const expect_options_t& options, const ordered_json& answer) {
    std::string others;
    for (const ordered_json& other : answer.at("others")) {
        others += (others.empty() ? "" : ", ") + arrival_words(other);
    }
    const auto count = answer.at("other_count").get<size_t>();
    const size_t untold = count - answer.at("others").size();
    const std::string what = count == 0    ? "no other card has arrived there"
                             : untold == 0 ? "other cards there: " + others
                                           : fmt::format("other cards there: {}, and {} more", others, untold);
    return fmt::format("{} has not arrived at {} within {}; {}", base::escaped(options.card), options.number,
                       options.within, what);
}

int run_expect(const expect_options_t& options) {
    std::string octets;
    if (const int error = base::read_file(options.card, longest_expected_card, &octets); error != 0) {
        return fail(fmt::format("cannot read {}: {}", base::escaped(options.card), base::errno_text(error)));
    }
    const ordered_json order = {
        {"expect",
         {{"at", options.number}, {"card", base::to_hex(std::vector<uint8_t>(octets.begin(), octets.end()))}}}};
    const auto deadline =
        expect_clock_t::now() + std::chrono::milliseconds(base::read_milliseconds(options.within).value_or(0));
    for (;;) {
        const bool last = expect_clock_t::now() >= deadline;
        const ordered_json answer = send_order(options.directory, order);
        if (const std::string error = answer.at("error").get<std::string>(); !error.empty()) {
            return fail(error);
        }
        if (answer.value("arrived", false)) {
            return exit_done;
        }
        if (last) {
            return fail(nothing_came(options, answer));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(arrival_look_interval));
    }
}

}  // namespace

void add_network_expect_command(CLI::App* network, context_t& context) {
    auto* command = network->add_subcommand("expect", "Wait until a card has arrived at a phone, for scripts");
    const auto options = std::make_shared<expect_options_t>();
    add_network_directory(command, options->directory);
    command->add_option("--card", options->card, "the card, octet for octet")->type_name("FILE")->required();
    add_number_option(command, "--at", options->number, "the phone's number")->required();
    command->add_option("--within", options->within, "how long to wait: 500ms, 30s or 2m")
        ->type_name("TIME")
        ->capture_default_str()
        ->check(CLI::Validator(
            [](const std::string& text) {
                return base::read_milliseconds(text) ? ""
                                                     : fmt::format("'{}' is no time; write 500ms, 30s or 2m", text);
            },
            ""));
    command->footer(
        "Ends with 0 when the phone's modem has taken every datagram of the card, or had before; with 1\n"
        "when the time is over, and tells what came instead. An arrival counts once: who expects a card\n"
        "twice wants it to come twice. The network remembers the cards that came last, a megabyte of "
        "them.\n\nExample:\n"
        "  zpd network expect --dir /tmp/network --card ada.vcf --at +12025550199 --within 30s");
    command->callback([&context, options] { context.run = [options] { return run_expect(*options); }; });
}
