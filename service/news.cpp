#include "service/news.h"

#include <fmt/format.h>

#include "radio/diagnosis_words.h"
#include "radio/findings.h"
#include "service/card_json.h"
#include "service/vcard.h"

using nlohmann::ordered_json;
using radio::modem_state_t;

namespace {

/// "Ann Placeholder, Zoë Example"
std::string names_on(std::string_view octets) {
    std::string names;
    for (const contact_t& contact : contacts_of(octets)) {
        names += (names.empty() || contact.name.empty() ? "" : ", ") + contact.name;
    }
    return names.empty() ? "a card without a name" : names;
}

event_t stored_event(const inbox_t& inbox, const inbox_t::numbered_card_t& one) {
    const stored_card_t& card = one.card;
    const std::string text = fmt::format("stored card {} from {}: {}", *one.number, card.sender, names_on(card.octets));
    return {"stored", text, {{"card", card_json(one.number, inbox.folder().file(card.name), card)}}};
}

bool has_network(const modem_state_t& state) {
    return state.present && state.system_type != RIL_SYSTEMTYPE_NONE;
}

ordered_json modem_json(const modem_state_t& state) {
    return {{"tty", state.tty},
            {"present", state.present},
            {"network", has_network(state) ? ordered_json(radio::system_type_words(state.system_type)) : nullptr},
            {"sim", state.sim.empty() ? ordered_json(nullptr) : ordered_json(state.sim)}};
}

std::string why_no_network(const modem_state_t& state) {
    const std::vector<radio::finding_t> findings = radio::findings_of(state);
    return findings.empty() ? "the modem does not tell why" : findings.front().text;
}

/// What is another now; empty when nothing is that a person wants to know.
std::string change_of(const modem_state_t& before, const modem_state_t& now) {
    if (before.present && !now.present) {
        return fmt::format("modem lost: the modem on {} {}", now.tty, now.loss);
    }
    if (!now.present) {
        return {};
    }
    if (!before.present) {
        return fmt::format("modem back: it is on {}", now.tty);
    }
    if (before.sim != now.sim) {
        return "SIM: " + now.sim;
    }
    if (has_network(before) && !has_network(now)) {
        return "network lost: " + why_no_network(now);
    }
    const std::string network = radio::system_type_words(now.system_type);
    return has_network(now) && before.system_type != now.system_type ? "network found: " + network : std::string();
}

}  // namespace

void news_t::submitted(const radio::outgoing_t& datagram, const radio::submission_outcome_t& outcome) {
    in_flight_.submitted(datagram, outcome);
}

bool news_t::is_given_up(const radio::outgoing_t& datagram) {
    return in_flight_.is_given_up(datagram);
}

void news_t::begin(const loaded_driver_t& driver) {
    driver_ = &driver;
    tell_cards();
    const std::lock_guard lock(mutex_);
    begun_ = true;
}

void news_t::stored(const std::string& /*sender*/, const std::filesystem::path& file) {
    const std::optional<uint64_t> last = outbox_.last_card();
    const std::optional<uint64_t> number = inbox_.number_of(file.filename());
    std::string error;
    std::optional<stored_card_t> card = inbox_.folder().load(file.filename(), &error);
    if (number && card && last && *number <= *last + 1) {
        outbox_.note_card(*number, stored_event(inbox_, {number, *std::move(card)}));
    } else {
        tell_cards();
    }
    if (on_stored_) {
        on_stored_();
    }
}

// Also of those that nobody could tell of: a kill, or a full disk, came between. Of those that lay there before there
// were events nothing is.
void news_t::tell_cards() {
    const std::lock_guard lock(cards_);
    const std::optional<uint64_t> last = outbox_.last_card();
    inbox_.list(last.value_or(0), [&](const inbox_t::numbered_card_t& one) {
        if (one.number) {
            const auto event = [&] { return stored_event(inbox_, one); };
            outbox_.note_card(*one.number, last ? std::optional(event()) : std::nullopt);
        }
        return true;
    });
    if (!last) {
        outbox_.note_card(outbox_.last_card().value_or(0), std::nullopt);
    }
}

void news_t::dropped(const std::string& sender) {
    const std::string text = fmt::format("dropped a card from {}: {}", sender, why_dropped());
    outbox_.note({"dropped", text, {{"sender", sender}}, base::priority_t::warning});
}

// The driver returns no reason; its settings hold it, unless they were changed just now.
std::string news_t::why_dropped() const {
    const loaded_driver_t* const driver = driver_;
    if (driver != nullptr && driver->is_active() == false) {
        return "activation is off; zpd activation on";
    }
    if (const uint32_t files = driver != nullptr ? driver->inbox_size().value_or(0) : 0; files != 0) {
        return fmt::format("the inbox holds more than {} files; zpd inbox remove, or zpd settings inbox-size", files);
    }
    return "the driver's log has the reason";
}

void news_t::modem_changed(const modem_state_t& state) {
    std::string text;
    {
        const std::lock_guard lock(mutex_);
        text = begun_ && last_ ? change_of(*last_, state) : std::string();
        last_ = state;
    }
    if (!text.empty()) {
        const bool well = has_network(state);
        outbox_.note(
            {"modem", text, {{"modem", modem_json(state)}}, well ? base::priority_t::info : base::priority_t::warning});
    }
}
