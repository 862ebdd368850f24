/// zpd ioctl.
#include <charconv>
#include <cstdio>

#include "base/hex.h"
#include "cli/command.h"
#include "cli/output.h"

namespace {

using client::client_t;
using client::octets_t;

constexpr uint32_t default_output = 4096;

struct ioctl_options_t {
    uint32_t code = 0;
    std::string input;  // hexadecimal, or "-" for such text on standard input
    uint32_t output = default_output;
};

std::optional<uint32_t> parse_code(std::string_view text) {
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    if (is_hex) {
        text.remove_prefix(2);
    }
    uint32_t code = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, code, is_hex ? 16 : 10);
    if (error != std::errc() || stopped != end) {
        return std::nullopt;
    }
    return code;
}

/// One argument cannot hold the digits of 64 KiB on Linux, so they may come on standard input.
std::string read_standard_input() {
    std::string text;
    for (int next = std::getchar(); next != EOF && text.size() <= 2 * client::max_input; next = std::getchar()) {
        if (next != '\n' && next != '\r') {
            text += static_cast<char>(next);
        }
    }
    return text;
}

int run_ioctl(const context_t& context, const ioctl_options_t& options) {
    const auto input = base::from_hex(options.input == "-" ? read_standard_input() : options.input);
    if (!input || input->size() > client::max_input) {
        fail(fmt::format("--in takes an even number of hexadecimal digits, of at most {} octets", client::max_input));
        return exit_usage;
    }
    return with_device(context, [&](client_t& client) {
        const auto reply = client.ioctl(options.code, *input, options.output);
        if (!reply) {
            return fail(reply.failure().text);
        }
        const std::string output = base::to_hex(reply->output);
        if (context.json) {
            say_json({{"result", reply->result},
                      {"error", reply->last_error},
                      {"returned", reply->output.size()},
                      {"output", output}});
        } else {
            say("{}, error {}, returned {}\n{}", reply->result ? "TRUE" : "FALSE", reply->last_error,
                counted(reply->output.size(), "octet"), output);
        }
        return reply->result ? exit_done : exit_failed;
    });
}

}  // namespace

void add_ioctl_command(CLI::App& app, context_t& context) {
    auto* command = app.add_subcommand("ioctl", "Make one raw control request");
    const auto options = std::make_shared<ioctl_options_t>();
    command
        ->add_option_function<std::string>(
            "code", [options](const std::string& text) { options->code = parse_code(text).value_or(0); },
            "the control code, decimal or 0x…")
        ->type_name("CODE")
        ->check(CLI::Validator(
            [](const std::string& text) { return parse_code(text) ? "" : "a control code is a decimal or 0x… number"; },
            ""))
        ->required();
    command->add_option("--in", options->input, "the input in hexadecimal; - reads it from standard input")
        ->type_name("HEX");
    command->add_option("--out", options->output, "octets of room for the output")
        ->type_name("N")
        ->check(CLI::Range(size_t{0}, client::max_output))
        ->capture_default_str();
    add_device_option(command, context);
    add_json_option(command, context);
    command->footer(
        "Prints the result, the last error, the count of octets returned, and these.\n\n"
        "Exit status 0 when the request succeeded, 1 when not.\n\nExample:\n  zpd ioctl 0x02000004 --out 4 --json");
    command->callback(
        [&context, options] { context.run = [&context, options] { return run_ioctl(context, *options); }; });
}
