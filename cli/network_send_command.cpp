/// zpd network send.
#include "base/file.h"
#include "base/hex.h"
#include "base/safe_text.h"
#include "base/text.h"
#include "cli/network_commands.h"
#include "cli/network_socket.h"
#include "cli/output.h"
#include "cli/phone_number.h"
#include "network/composition.h"

namespace {

using nlohmann::ordered_json;

/// What 255 datagrams can hold, and a little more.
constexpr size_t longest_submitted_file = 40'000;

struct submission_options_t {
    std::filesystem::path directory;
    std::string from;
    std::string to;
    std::string text;
    std::string pdu;
    std::string push;  // a file
    std::vector<std::string> cards;
};

/// What goes with one order, and what it is called.
struct submission_order_t {
    std::string name;
    ordered_json order;
};

ordered_json between(const submission_options_t& options) {
    return {{"from", options.from}, {"to", options.to}};
}

/// False, and told why, when the file cannot be read or is too long.
bool add_file(const submission_options_t& options, const std::string& file, const char* kind,
              std::vector<submission_order_t>& messages) {
    std::string octets;
    const int error = base::read_file(file, longest_submitted_file, &octets);
    if (error != 0 || octets.empty() || octets.size() > longest_submitted_file) {
        fail(fmt::format("cannot send {}: {}", base::escaped(file),
                         error != 0       ? base::errno_text(error)
                         : octets.empty() ? "it is empty"
                                          : "255 datagrams do not hold it"));
        return false;
    }
    submission_order_t message{base::escaped(file), between(options)};
    message.order["kind"] = kind;
    message.order["octets"] = base::to_hex(std::vector<uint8_t>(octets.begin(), octets.end()));
    messages.push_back(std::move(message));
    return true;
}

bool add_files(const submission_options_t& options, std::vector<submission_order_t>& messages) {
    if (!options.push.empty() && !add_file(options, options.push, "push", messages)) {
        return false;
    }
    return std::ranges::all_of(options.cards,
                               [&](const std::string& card) { return add_file(options, card, "card", messages); });
}

/// A PDU of a phone's names its destination itself, and one that is for a phone its sender.
std::string problem_with_pdu(const submission_options_t& options, const std::vector<uint8_t>& pdu) {
    if (network::is_submission(pdu)) {
        return options.from.empty() ? "an SMS-SUBMIT wants --from" : "";
    }
    return options.to.empty()      ? "a PDU that is no SMS-SUBMIT wants --to, the phone that gets it"
           : !options.from.empty() ? "a PDU that is no SMS-SUBMIT names its sender itself; leave --from out"
                                   : "";
}

std::string problem_with_submission(const submission_options_t& options) {
    const int kinds = (options.text.empty() ? 0 : 1) + (options.pdu.empty() ? 0 : 1) + (options.push.empty() ? 0 : 1) +
                      (options.cards.empty() ? 0 : 1);
    if (kinds != 1) {
        return "one of --text, --pdu, --wap-push or cards is wanted; see zpd network send --help";
    }
    if (!options.pdu.empty()) {
        return problem_with_pdu(options, base::from_hex(options.pdu).value_or(std::vector<uint8_t>()));
    }
    return options.from.empty() || options.to.empty() ? "--from and --to are wanted, the two numbers" : "";
}

int submit_message(const submission_options_t& options, const submission_order_t& message, bool json) {
    const ordered_json answer = send_order(options.directory, {{"submit", message.order}});
    if (const std::string error = answer.at("error").get<std::string>(); !error.empty()) {
        return fail(fmt::format("{}: {}", message.name, error));
    }
    const auto datagrams = answer.value("datagrams", size_t{0});
    if (json) {
        say_json({{"from", options.from}, {"to", options.to}, {"datagrams", datagrams}});
    } else {
        say("{}: {}", message.name, counted(datagrams, "datagram"));
    }
    return exit_done;
}

int submit_messages(const submission_options_t& options, bool json) {
    if (const std::string problem = problem_with_submission(options); !problem.empty()) {
        return fail_usage(problem);
    }
    std::vector<submission_order_t> messages;
    if (!add_files(options, messages)) {
        return exit_failed;
    }
    if (!options.text.empty()) {
        messages.push_back({"the text", between(options)});
        messages.back().order["text"] = options.text;
    }
    if (!options.pdu.empty()) {
        messages.push_back({"the PDU", between(options)});
        messages.back().order["kind"] = "tpdu";
        messages.back().order["octets"] = options.pdu;
    }
    int status = exit_done;
    for (const submission_order_t& message : messages) {
        status = std::max(status, submit_message(options, message, json));
    }
    return status;
}

std::string check_pdu(const std::string& digits) {
    const auto octets = base::from_hex(digits);
    return octets && !octets->empty() ? std::string() : "the PDU is not of hexadecimal digits, two an octet";
}

std::string check_submitted_text(const std::string& text) {
    return text.empty() ? "the text is empty" : base::is_utf8(text) ? "" : "the text is no UTF-8";
}

}  // namespace

void add_network_send_command(CLI::App* network, context_t& context) {
    auto* command = network->add_subcommand("send", "Send a message through a running network, without a modem");
    const auto options = std::make_shared<submission_options_t>();
    add_network_directory(command, options->directory);
    add_number_option(command, "--from", options->from, "the sender's number, of a phone or of none");
    add_number_option(command, "--to", options->to, "the number that it is for");
    command->add_option("--text", options->text, "a text, cut when it is too long for one datagram")
        ->type_name("TEXT")
        ->check(CLI::Validator(check_submitted_text, ""));
    command->add_option("--pdu", options->pdu, "a TPDU: an SMS-SUBMIT, or what the phone is to be handed as it stands")
        ->type_name("HEX")
        ->check(CLI::Validator(check_pdu, ""));
    command->add_option("--wap-push", options->push, "the octets of a WSP push, for application port 2948")
        ->type_name("FILE");
    command->add_option("card", options->cards, "cards, for application port 9204; their octets are sent as they are")
        ->type_name("CARD.vcf");
    add_json_option(command, context);
    command->footer(
        "It is done when the network has the message: it is delivered as soon as the phone can take it,\n"
        "with the faults that are set for that phone. An SMS-SUBMIT goes to its own destination unless\n"
        "--to names another. Any other PDU is handed to the phone --to octet for octet, also one that\n"
        "is malformed; its sender is in it.\n\nExamples:\n"
        "  zpd network send --dir /tmp/network --from +12025550177 --to +12025550100 --text 'Hello'\n"
        "  zpd network send --dir /tmp/network --from +12025550177 --to +12025550100 ada.vcf\n"
        "  zpd network send --dir /tmp/network --to +12025550100 \\\n"
        "      --pdu 040B912120550571F7000462112202110000024849");
    command->callback(
        [&context, options] { context.run = [&context, options] { return submit_messages(*options, context.json); }; });
}
