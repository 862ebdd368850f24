/// What the values of options and arguments can be, by the word that stands for them in the help. A word that is in the
/// table is all that a new option needs.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/safe_text.h"
#include "cli/card_choice.h"
#include "cli/completion.h"
#include "cli/configuration.h"
#include "cli/log_level.h"
#include "cli/outbox_message.h"
#include "cli/service_connection.h"
#include "network/fault_table.h"
#include "radio/limits.h"
#include "radio/modem_search.h"

namespace {

/// What a value is looked for with.
struct question_t {
    const typed_place_t& place;
    context_t& context;
    suggestions_t& answer;

    void add(const std::string& value, const std::string& meaning = {}) const {
        answer.values.push_back({value, meaning});
    }
};

void files(const question_t& question) {
    question.answer.files = "files";
}

void folders(const question_t& question) {
    question.answer.files = "folders";
}

void cards(const question_t& question) {
    question.answer.files = "cards";
}

void ttys(const question_t& question) {
    for (const std::string& tty : radio::modem_ttys()) {
        question.add(tty);
    }
    files(question);
}

/// By their names; a path begins with a / or a dot.
void devices(const question_t& question) {
    for (const std::filesystem::path& folder : {client::user_folder(), std::filesystem::path(client::system_folder)}) {
        std::error_code failed;
        for (const auto& entry : std::filesystem::directory_iterator(folder, failed)) {
            if (entry.is_socket(failed)) {
                question.add(entry.path().filename());
            }
        }
    }
    files(question);
}

void rates(const question_t& question) {
    for (const unsigned rate : radio::baud_rates()) {
        question.add(std::to_string(rate));
    }
}

void flow_kinds(const question_t& question) {
    question.add("none");
    question.add("hardware", "RTS and CTS");
}

void levels(const question_t& question) {
    for (int level = 1; level <= most_log_level; ++level) {
        std::string name = log_level_name(level);
        std::ranges::replace(name, ' ', '-');
        question.add(name);
    }
}

void limits(const question_t& question) {
    for (const radio::limit_row_t& row : radio::limits()) {
        if (row.settable()) {
            question.add(std::string(row.name) + "=", fmt::format("{} {}", row.initial, row.unit));
        }
    }
}

void faults(const question_t& question) {
    for (const network::fault_t& fault : network::fault_table()) {
        const bool needs_value = !fault.value.empty() && !fault.value.starts_with('[');
        question.add(std::string(fault.name) + (needs_value ? "=" : ""), std::string(fault.meaning));
    }
}

/// Those of the network whose folder stands before.
void phones(const question_t& question) {
    std::error_code failed;
    for (const auto& entry : std::filesystem::directory_iterator(question.place.given_value("dir"), failed)) {
        if (entry.is_symlink(failed)) {
            question.add(entry.path().filename());
        }
    }
}

void received_cards(const question_t& question) {
    const bool home_named = !question.place.given_value("home").empty();
    auto service = connect_service(question.context.device);
    if ((home_named || !service) && !std::filesystem::exists(question.context.home)) {
        return;
    }
    const auto inbox = home_named || !service ? cards_of_home(question.context.home)
                                              : cards_of_service(std::move(*service), question.context.device);
    inbox->list(0, [&](const nlohmann::ordered_json& card) {
        const auto& contacts = card.at("contacts");
        const std::string sender = card.at("sender");
        question.add(short_name(card), contacts.empty() ? sender : contacts.front().value("name", sender));
        return true;
    });
}

void messages_of_outbox(const question_t& question) {
    const auto service = connect_service(question.context.device);
    const auto messages = service ? list_outbox(**service, false) : service.failure();
    for (const outbox_card_t& message : messages ? *messages : std::vector<outbox_card_t>()) {
        question.add(std::to_string(message.id),
                     fmt::format("{} to {}, {}", message.name(), message.number, message.state));
    }
}

void messages_of_driver(const question_t& question) {
    auto client = connect_device(question.context.device);
    if (!client) {
        return;
    }
    if (const auto list = client->list()) {
        for (const uint32_t id : list->ids) {
            question.add(std::to_string(id));
        }
    }
}

void commands_by_name(const question_t& question) {
    const CLI::App* above = question.place.command->get_parent();
    for (const CLI::App* command :
         above->get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); })) {
        question.add(command->get_name(), command->get_description());
    }
}

struct source_t {
    std::string_view word;
    void (*suggest)(const question_t&);
};

constexpr std::array<source_t, 16> sources{{
    {"CARD.vcf", cards},
    {"COMMAND", commands_by_name},
    {"DIR", folders},
    {"FAULT[=VALUE]", faults},
    {"FILE", files},
    {"ID", messages_of_outbox},
    {"KIND", flow_kinds},
    {"LEVEL", levels},
    {"MESSAGE", messages_of_driver},
    {"NAME=VALUE", limits},
    {"NAME|PATH|URL", devices},
    {"NUMBER|NAME", received_cards},
    {"PHONE", phones},
    {"PROGRAM", files},
    {"RATE", rates},
    {"TTY", ttys},
}};

/// Of "TEXT:{on,off}".
void choices(std::string_view type, const question_t& question) {
    std::string_view rest = type.substr(type.find('{') + 1);
    while (!rest.empty()) {
        const size_t length = std::min(rest.find_first_of(",}"), rest.size());
        if (length > 0) {
            question.add(std::string(rest.substr(0, length)));
        }
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
}

}  // namespace

void suggest_values(const typed_place_t& place, context_t& context, suggestions_t& suggestions) {
    if (place.value_of == nullptr) {
        return;
    }
    configure_common(context);
    if (const std::string device = place.given_value("device"); !device.empty()) {
        context.device = device;
    }
    if (const std::string home = place.given_value("home"); !home.empty()) {
        context.home = home;
    }
    const std::string type = place.value_of->get_type_name();
    const question_t question{place, context, suggestions};
    if (type.find(":{") != std::string::npos) {
        choices(type, question);
    }
    const auto* const source = std::ranges::find(sources, type, &source_t::word);
    if (source != sources.end()) {
        source->suggest(question);
    }
}
