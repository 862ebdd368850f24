#include "radio/announcements.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "radio/limits.h"
#include "radio/warning.h"

namespace radio {

namespace {

using enum announcement_t::way_t;

bool holds(const std::vector<int>& numbers, int value) {
    return std::ranges::find(numbers, value) != numbers.end();
}

// The first parameter of a "=?" reply.
std::vector<int> first_offered(const std::string& line) {
    const std::vector<std::vector<int>> offered = offered_numbers(line);
    return offered.empty() ? std::vector<int>() : offered[0];
}

constexpr int service_with_acknowledgement = 1;  // +CSMS

}  // namespace

announcement_t announcement_offers_t::best(bool acknowledged) const {
    return choose_announcement(offered_numbers(announcements), acknowledged);
}

bool announcement_offers_t::may_acknowledge() const {
    return holds(first_offered(services), service_with_acknowledgement);
}

std::optional<announcement_offers_t> ask_announcement_offers(inquiry_t& inquiry) {
    const std::optional<reply_t> announcements = inquiry.ask("AT+CNMI=?", "+CNMI:");
    const std::optional<reply_t> services = announcements ? inquiry.ask("AT+CSMS=?", "+CSMS:") : std::nullopt;
    return services ? std::optional(announcement_offers_t{announcements->first(), services->first()}) : std::nullopt;
}

void announcements_t::forget() {
    chosen_ = {};
    acknowledged_ = false;
}

bool announcements_t::set_up(setup_inquiry_t& inquiry) {
    const bool done = options_.announcement.empty() ? set_up_offered(inquiry) : set_up_wanted(inquiry);
    if (done) {
        tell();
    }
    return done;
}

bool announcements_t::set_up_offered(setup_inquiry_t& inquiry) {
    const std::optional<announcement_offers_t> offers = ask_announcement_offers(inquiry);
    if (!offers) {
        return false;
    }
    announcement_t best = offers->best(offers->may_acknowledge());
    if (!choose_service(inquiry, offers->services, best.way)) {
        return false;
    }
    if (best.way == direct && !acknowledged_) {
        best = offers->best(false);
    }
    // Modems that do not tell what they offer, or refuse what they told, take one of the two in the middle.
    std::vector<announcement_t> preferred = {{stored, "2,1"}, {stored, "1,1"}};
    if (!best.parameters.empty()) {
        preferred.insert(best.way == none ? preferred.end() : preferred.begin(), best);
    }
    return choose(inquiry, preferred);
}

bool announcements_t::set_up_wanted(setup_inquiry_t& inquiry) {
    const std::optional<announcement_t> wanted = announcement_of(options_.announcement);
    if (!wanted) {
        return inquiry.fail(fmt::format(
            "'{}' are no parameters of AT+CNMI: numbers between commas are, such as 2,1,0,0,0", options_.announcement));
    }
    const std::optional<reply_t> services = inquiry.ask("AT+CSMS=?", "+CSMS:");
    if (!services || !choose_service(inquiry, services->first(), wanted->way) || !choose(inquiry, {*wanted})) {
        return false;
    }
    return chosen_ == *wanted ||
           inquiry.fail_modem(fmt::format("refuses the announcement {} (AT+CNMI)", wanted->parameters));
}

// Phase 2+ makes direct delivery wait for our acknowledgement; stored messages need none (3GPP TS 27.005 3.2.1, 3.4.4).
bool announcements_t::choose_service(setup_inquiry_t& inquiry, const std::string& offered, announcement_t::way_t way) {
    const std::vector<int> services = first_offered(offered);
    if (services.empty()) {
        return true;
    }
    const int wanted = way == direct ? service_with_acknowledgement : 0;
    const int service = holds(services, wanted) ? wanted : services.front();
    const std::optional<reply_t> reply = inquiry.ask(fmt::format("AT+CSMS={}", service), "+CSMS:");
    acknowledged_ = reply && reply->ok() && service == service_with_acknowledgement;
    return reply.has_value();
}

// The first one that the modem takes; it may take none.
bool announcements_t::choose(setup_inquiry_t& inquiry, const std::vector<announcement_t>& preferred) {
    for (const announcement_t& one : preferred) {
        const std::optional<reply_t> reply = inquiry.ask("AT+CNMI=" + one.parameters);
        if (!reply) {
            return false;
        }
        if (reply->ok()) {
            chosen_ = one;
            return true;
        }
    }
    return true;
}

// Once, and again when it is another.
void announcements_t::tell() {
    const std::string text = chosen_.way == stored   ? "new messages are stored and announced"
                             : chosen_.way == direct ? "new messages are delivered directly"
                                                     : fmt::format("new messages are looked for every {} s",
                                                                   value_of(limit_t::listing_again));
    const std::string whole =
        chosen_.parameters.empty() ? text : fmt::format("{} (AT+CNMI={})", text, chosen_.parameters);
    board_.change([&](modem_state_t& now) { now.delivery = whole; });
    if (text != std::exchange(told_, text)) {
        warn(whole);
    }
}

void announcements_t::renew() {
    if (!link_.exchange({.line = "AT+CNMI=" + chosen_.parameters, .limit = limit_t::setting}).ok() && !link_.lost()) {
        warn("the modem does not renew its announcements; new messages are looked for");
    }
}

bool announcements_t::have_stopped() {
    if (chosen_.way == none || link_.lost() || link_.ending()) {
        return false;
    }
    const reply_t reply = link_.exchange(
        {.line = "AT+CNMI?", .limit = limit_t::setting, .shape = reply_shape_t::line, .prefixes = {"+CNMI:"}});
    const std::vector<value_t> now = values_of(reply.first());
    return now.size() > 1 && now[1].text == "0";
}

}  // namespace radio
