#include "cli/radio_report.h"

#include <algorithm>

#include "base/safe_text.h"
#include "cli/output.h"

namespace {

using nlohmann::ordered_json;

/// Also of a service of another version: what is not there, or null, is empty.
template <typename value_t>
value_t get(const ordered_json& object, const char* name) {
    value_t value{};
    if (const auto found = object.find(name); found != object.end() && !found->is_null()) {
        found->get_to(value);
    }
    return value;
}

std::string text_of(const ordered_json& object, const char* name) {
    return get<std::string>(object, name);
}

ordered_json list_of(const ordered_json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_array() ? *found : ordered_json::array();
}

void say_row(const char* subject, const std::string& text) {
    if (!text.empty()) {
        say("{:<11}{}", subject, base::escaped(text));
    }
}

/// Those that are registered, or else all: each carries messages alone.
std::string network_words(const ordered_json& radio) {
    std::string registered, others;
    for (const ordered_json& domain : list_of(radio, "domains")) {
        const std::string technology = text_of(domain, "technology");
        std::string& words = technology.empty() ? others : registered;
        words +=
            fmt::format("{} ({}), ", listed({text_of(domain, "registration"), technology}), text_of(domain, "name"));
    }
    return (registered.empty() ? others : registered) + "system type " + text_of(radio, "system_type");
}

std::string signal_words(const ordered_json& radio) {
    const auto signal = radio.find("signal_dbm");
    return signal != radio.end() && signal->is_number() ? fmt::format("{} dBm", signal->get<int>()) : std::string();
}

void say_past_refusals(const ordered_json& radio) {
    for (const ordered_json& refusal : list_of(radio, "refusals")) {
        if (get<bool>(refusal, "overcome")) {
            say_row("refused", fmt::format("{} s ago, and a datagram got through since: {}",
                                           get<uint64_t>(refusal, "seconds_ago"), text_of(refusal, "text")));
        }
    }
}

}  // namespace

client::answer_t<ordered_json> status_of_service(client::service_t& service) {
    const auto answer = service.service_status();
    if (!answer) {
        return answer.failure();
    }
    ordered_json status = ordered_json::parse(*answer, nullptr, false);
    if (!status.is_object()) {
        return client::failure_t{.text = "the service's answer is no JSON object"};
    }
    return status;
}

std::string listed(const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += line.empty() || text.empty() ? text : ", " + text;
    }
    return line;
}

std::string masked(const std::string& serial_number) {
    constexpr size_t shown = 4;
    return serial_number.size() <= shown ? serial_number : "..." + serial_number.substr(serial_number.size() - shown);
}

std::string memory_words(const ordered_json& memories) {
    std::vector<std::string> words;
    for (const ordered_json& memory : memories) {
        words.push_back(fmt::format("{} holds {} of {}{}", text_of(memory, "name"), get<int>(memory, "used"),
                                    get<int>(memory, "total"),
                                    get<bool>(memory, "receives") ? " (new messages go there)" : ""));
    }
    return listed(words);
}

void say_findings(const ordered_json& findings) {
    for (const ordered_json& finding : findings) {
        say("{}: {}", get<bool>(finding, "hinders") ? "hindrance" : "warning", base::escaped(text_of(finding, "text")));
        if (const std::string advice = text_of(finding, "advice"); !advice.empty()) {
            say("    {}", base::escaped(advice));
        }
    }
}

void say_radio(const ordered_json& radio) {
    if (get<bool>(radio, "present")) {
        const std::string number = masked(text_of(radio, "serial_number"));
        say_row("modem", listed({text_of(radio, "tty"), text_of(radio, "maker"), text_of(radio, "model"),
                                 number.empty() ? number : "serial number " + number}));
        say_row("SIM", text_of(radio, "sim"));
        say_row("network", network_words(radio));
        say_row("signal", signal_words(radio));
        say_row("memories", memory_words(list_of(radio, "memories")));
        say_row("delivery", text_of(radio, "delivery"));
    }
    say_past_refusals(radio);
    say_findings(list_of(radio, "findings"));
}

bool is_usable(const ordered_json& radio) {
    return get<bool>(radio, "present") &&
           std::ranges::none_of(list_of(radio, "findings"),
                                [](const ordered_json& finding) { return get<bool>(finding, "hinders"); });
}
