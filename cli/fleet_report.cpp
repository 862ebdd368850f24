#include "cli/fleet_report.h"

#include "base/safe_text.h"
#include "cli/output.h"
#include "cli/times.h"

namespace {

using nlohmann::ordered_json;

/// A text, or what stands for it when there is none.
std::string text_or(const ordered_json& object, const char* name, const std::string& otherwise) {
    const auto found = object.find(name);
    const bool is_there = found != object.end() && found->is_string() && !found->get<std::string>().empty();
    return is_there ? base::escaped(found->get<std::string>()) : otherwise;
}

}  // namespace

std::string modem_name(const ordered_json& modem) {
    return text_or(modem, "modem", "?");
}

std::string modem_words(const ordered_json& modem) {
    const std::string state = modem.value("registered", false) ? "registered" : "not registered";
    return fmt::format("{:<16} {:<5} {}, version {}", text_or(modem, "number", "no number"),
                       text_or(modem, "network", "-"), text_or(modem, "hindrance", state),
                       text_or(modem, "version", "?"));
}

void say_fleet(const ordered_json& fleet) {
    const ordered_json modems = fleet.value("modems", ordered_json::array());
    const auto cards = [&](const char* name) {
        return counted(fleet.value(ordered_json::json_pointer(std::string("/cards/") + name), size_t{0}), "card");
    };
    say("fleet {} at {}: {}; {} waiting, {} with modems", text_or(fleet, "group", "?"), text_or(fleet, "server", "?"),
        counted(modems.size(), "modem"), cards("waiting"), cards("taken"));
    for (const ordered_json& modem : modems) {
        say("  {:<24} {}; {} queued, room for {}, since {}", modem_name(modem), modem_words(modem),
            modem.value("queue", uint64_t{0}), modem.value("room", uint64_t{0}),
            local_time(modem.value("since", uint64_t{0})));
    }
}
