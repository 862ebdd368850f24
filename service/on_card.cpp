#include "service/on_card.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <system_error>
#include <utility>
#include <vector>

#include "service/vcard.h"

namespace {

constexpr int64_t most_runs = 3;
constexpr int for_ever = -1;
constexpr int again_after = 60'000;  // ms: what could not be noted is tried again

}  // namespace

on_card_t::on_card_t(inbox_t& inbox, const std::filesystem::path& program, const std::filesystem::path& home,
                     tell_t tell)
    : inbox_(inbox),
      path_(program),
      home_(home),
      tell_(std::move(tell)),
      program_(program, home, {}),
      end_(eventfd(0, EFD_CLOEXEC)),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      marks_(tell_) {}

on_card_t::~on_card_t() {
    eventfd_write(end_.get(), 1);
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::string on_card_t::start() {
    if (std::string problem = card_program_t::problem(path_); !problem.empty()) {
        return problem;
    }
    if (std::string problem = marks_.open(home_); !problem.empty()) {
        return problem;
    }
    const std::optional<uint64_t> last = marks_.last();
    if (!last && !begin_after_the_last()) {
        return fmt::format("cannot note the cards that {} is run for", path_.native());
    }
    last_ = last.value_or(last_);
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error& error) {
        return fmt::format("cannot start a thread for {}: {}", path_.native(), error.what());
    }
    return {};
}

void on_card_t::look() {
    eventfd_write(wake_.get(), 1);
}

/// What is there at the first start stays as it is.
bool on_card_t::begin_after_the_last() {
    inbox_.list(0, [&](const inbox_t::numbered_card_t& card) {
        last_ = card.number.value_or(last_);
        return true;
    });
    return marks_.set_last(last_);
}

void on_card_t::run() {
    run_unfinished();
    while (!has_ended()) {
        wait(run_new() ? for_ever : again_after);
    }
}

void on_card_t::run_unfinished() {
    for (const auto& [number, runs] : marks_.unfinished()) {
        const std::optional<std::string> file = inbox_.file_of(number);
        std::string error;
        auto card = file ? inbox_.folder().load(*file, &error) : std::nullopt;
        if (has_ended()) {
            return;
        }
        if (card && runs < most_runs) {
            run_for(received(number, std::move(*card)));
        } else {
            if (card) {
                tell_(fmt::format("{} for card {} did not end {} times; it is not run again", path_.native(), number,
                                  runs));
            }
            marks_.note_end(number);
        }
    }
}

/// False when something is left that is to be tried again.
bool on_card_t::run_new() {
    while (!has_ended()) {
        received_card_t card;
        const found_t found = next(card);
        if (found != found_t::card) {
            return found == found_t::none;
        }
        if (!run_for(card)) {
            return false;
        }
        last_ = card.number;
    }
    return true;
}

on_card_t::found_t on_card_t::next(received_card_t& card) {
    found_t found = found_t::none;
    inbox_.list(last_, [&](inbox_t::numbered_card_t one) {
        found = one.number ? found_t::card : found_t::one_without_number;
        if (one.number) {
            card = received(*one.number, std::move(one.card));
        }
        return false;
    });
    return found;
}

/// False when it was not run, as that could not be noted.
bool on_card_t::run_for(const received_card_t& card) {
    const std::optional<int64_t> runs = marks_.note_begin(card.number);
    if (!runs) {
        return false;
    }
    const std::string problem = program_.run(card, end_.get());
    if (problem.empty()) {
        marks_.note_end(card.number);
        return true;
    }
    const bool is_last = *runs >= most_runs;
    if (is_last) {
        marks_.note_end(card.number);
    }
    tell_(fmt::format("{} for card {} from {}: {}; {}", path_.native(), card.number, card.sender, problem,
                      is_last ? "it is not run again" : "it is run again at the next start of the service"));
    return true;
}

bool on_card_t::has_ended() const {
    pollfd ended{end_.get(), POLLIN, 0};
    return poll(&ended, 1, 0) != 0;
}

void on_card_t::wait(int milliseconds) const {
    std::array<pollfd, 2> ready{pollfd{end_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    poll(ready.data(), ready.size(), milliseconds);
    eventfd_t count = 0;
    eventfd_read(wake_.get(), &count);
}

received_card_t on_card_t::received(uint64_t number, stored_card_t card) const {
    std::vector<contact_t> contacts = contacts_of(card.octets);
    return {.file = inbox_.folder().file(card.name),
            .number = number,
            .sender = std::move(card.sender),
            .time = card.time,
            .name = contacts.empty() ? std::string() : std::move(contacts.front().name),
            .octets = std::move(card.octets)};
}
