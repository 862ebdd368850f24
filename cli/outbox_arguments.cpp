#include "cli/outbox_arguments.h"

#include <fmt/format.h>

#include <ctime>

uint64_t expiry_t::from_now() const {
    return seconds == 0 ? 0 : static_cast<uint64_t>(std::time(nullptr)) + seconds;
}

void add_expires_option(CLI::App* command, expiry_t& expiry) {
    command
        ->add_option_function<std::string>(
            "--expires", [&expiry](const std::string& text) { expiry.seconds = base::read_duration(text).value_or(0); },
            "what is not sent by then is set aside: 90m, 36h, 2d or never")
        ->type_name("TIME")
        ->check(CLI::Validator(
            [](const std::string& text) {
                return text == "never" || base::read_duration(text)
                           ? std::string()
                           : fmt::format("'{}' is no time; write 90m, 36h, 2d or never", text);
            },
            ""))
        ->default_str("2d");
}
