#include "cli/received_cards.h"

#include <fmt/format.h>

#include <utility>

#include "service/card_json.h"
#include "service/inbox.h"

namespace {

using client::answer_t;
using client::done_t;
using client::failure_t;
using nlohmann::ordered_json;

class home_cards_t final : public received_cards_t {
  public:
    explicit home_cards_t(const std::filesystem::path& home) : inbox_(std::filesystem::absolute(home)) {}

    std::vector<std::string> list(uint64_t after, const take_t& take) override {
        return inbox_.list(after, [&](const inbox_t::numbered_card_t& one) {
            return take(card_json(one.number, inbox_.folder().file(one.card.name), one.card));
        });
    }

    answer_t<std::string> octets(const ordered_json& card) override {
        std::string error;
        auto stored = inbox_.folder().load(card.at("file"), &error);
        if (!stored) {
            return failure_t{0, error};
        }
        return std::move(stored->octets);
    }

    answer_t<done_t> remove(const ordered_json& card) override {
        const std::string error = inbox_.remove(card.at("file"));
        return error.empty() ? answer_t<done_t>(done_t{}) : failure_t{0, error};
    }

    bool has_changed() const override { return inbox_.has_changed(); }
    std::string problem() const override { return inbox_.problem(); }
    std::string place() const override { return "in " + inbox_.folder().path().native(); }

  private:
    inbox_t inbox_;
};

/// Numbers are all that the service knows cards by.
failure_t no_number(const ordered_json& card) {
    return {0, fmt::format("the card {} has no number, by which the service would know it; "
                           "name the service's home: --home DIR",
                           card.at("file").get<std::string>())};
}

class service_cards_t final : public received_cards_t {
  public:
    service_cards_t(std::unique_ptr<client::service_t> service, std::string device)
        : service_(std::move(service)), device_(std::move(device)) {}

    std::vector<std::string> list(uint64_t after, const take_t& take) override {
        std::vector<std::string> errors;
        while (one_page(after, take, errors)) {
        }
        return errors;
    }

    answer_t<std::string> octets(const ordered_json& card) override {
        return card.at("number").is_null() ? no_number(card) : service_->inbox_octets(card.at("number"));
    }

    answer_t<done_t> remove(const ordered_json& card) override {
        return card.at("number").is_null() ? no_number(card) : service_->inbox_remove(card.at("number"));
    }

    std::string problem() const override { return problem_; }
    std::string place() const override { return "at device " + device_; }

  private:
    /// False when it was the last one, or enough. Moves `after` on.
    bool one_page(uint64_t& after, const take_t& take, std::vector<std::string>& errors) {
        const auto text = service_->inbox_list(after);
        if (!text) {
            errors.push_back(text.failure().text);
            return false;
        }
        const auto page = ordered_json::parse(*text, nullptr, false);
        if (!page.is_object() || !page.contains("cards")) {
            errors.emplace_back("the service's list of cards cannot be read; is it of another version?");
            return false;
        }
        problem_ = page.value("unnumbered", std::string());
        bool more = page.value("more", false);
        for (const ordered_json& card : page.at("cards")) {
            if (!take(card)) {
                return false;
            }
            if (card.at("number").is_null()) {
                continue;
            }
            after = card.at("number");
        }
        if (more && page.at("cards").back().at("number").is_null()) {
            errors.emplace_back("there are more cards without numbers than the service can tell; " + problem_);
            more = false;
        }
        for (const ordered_json& error : page.value("errors", ordered_json::array())) {
            errors.push_back(error);
        }
        return more;
    }

    const std::unique_ptr<client::service_t> service_;
    const std::string device_;
    std::string problem_;
};

}  // namespace

std::unique_ptr<received_cards_t> cards_of_home(const std::filesystem::path& home) {
    return std::make_unique<home_cards_t>(home);
}

std::unique_ptr<received_cards_t> cards_of_service(std::unique_ptr<client::service_t> service, std::string device) {
    return std::make_unique<service_cards_t>(std::move(service), std::move(device));
}
