/// zpd inbox show.
#include "base/safe_text.h"
#include "base/text.h"
#include "cli/inbox.h"
#include "cli/output.h"
#include "service/vcard.h"
#include "service/vcard_words.h"

namespace {

using nlohmann::ordered_json;

std::string base64(std::string_view octets) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t at = 0; at < octets.size(); at += 3) {
        const std::string_view group = octets.substr(at, 3);
        uint32_t bits = 0;
        for (size_t i = 0; i < 3; ++i) {
            bits = bits << 8 | (i < group.size() ? static_cast<uint8_t>(group[i]) : 0U);
        }
        for (size_t i = 0; i < 4; ++i) {
            text += i <= group.size() ? digits[bits >> (18 - 6 * i) & 63] : '=';
        }
    }
    return text;
}

void say_contacts(const ordered_json& card, std::string_view octets) {
    const auto contacts = vcard::cards_of(octets);
    for (size_t i = 0; i < contacts.size(); ++i) {
        const std::string name = contact_of(contacts[i]).name;
        const std::string which = contacts.size() == 1 ? "" : fmt::format("{} of {}: ", i + 1, contacts.size());
        say("\n{}{}", which, name.empty() ? "(no name)" : base::escaped(name));
        for (const std::string& line : vcard::words_of(contacts[i])) {
            say("  {}", base::escaped(line));
        }
    }
    if (contacts.empty()) {
        say("\nNo contact can be read on it. Its octets: zpd inbox show {} --raw", short_name(card));
    }
}

/// Its file, of a fleet's card the modem that received it.
std::string place_of(const ordered_json& card) {
    const auto text = [&](const char* name) {
        const auto found = card.find(name);
        return found != card.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const std::string path = text("path");
    return path.empty() ? "with the modem " + text("modem") : path;
}

void say_whole_card(const ordered_json& card, std::string_view octets, bool raw) {
    const std::string number = card.at("number").is_null() ? "" : fmt::format(" {}", card.at("number").dump());
    say("Card{} from {}, received {}, {} octets\nFile: {}", number, base::escaped(card.at("sender").get<std::string>()),
        local_time(card.at("received")), octets.size(), base::escaped(place_of(card)));
    if (raw) {
        say("\n{}", base::escaped_lines(octets));
    } else {
        say_contacts(card, octets);
    }
}

}  // namespace

int show_cards(const context_t& context, const inbox_options_t& options, received_cards_t& inbox) {
    int status = exit_done;
    ordered_json shown = ordered_json::array();
    bool is_first = true;
    for (ordered_json& card : chosen_cards(options, inbox, status)) {
        const auto octets = inbox.octets(card);
        if (!octets) {
            status = fail(octets.failure().text);
            continue;
        }
        if (context.json) {
            card["card"] = base::is_utf8(*octets) ? ordered_json(*octets) : ordered_json{{"base64", base64(*octets)}};
            shown.push_back(std::move(card));
            continue;
        }
        if (!std::exchange(is_first, false)) {
            say_line("");
        }
        say_whole_card(card, *octets, options.raw);
    }
    if (context.json && status != exit_usage) {
        say_json({{"cards", shown}});
    }
    return status;
}
