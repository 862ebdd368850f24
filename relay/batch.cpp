#include "relay/batch.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>

#include "relay/service_json.h"

namespace nats {

namespace {

using client::failure_t;
using client::obstacle_t;
using std::chrono::steady_clock;

/// What a stream says of a message; none when it has it.
std::optional<failure_t> refusal_of(const message_t& answer) {
    const auto told = fleet::read_json(answer.data());
    const auto& error = fleet::member(told, "error");
    if (error.is_object()) {
        return failure_t{static_cast<uint32_t>(fleet::number(error, "err_code")), fleet::text(error, "description"),
                         obstacle_t::request};
    }
    return fleet::number(told, "seq") != 0
               ? std::nullopt
               : std::optional(failure_t{0, "a stream's answer is none", obstacle_t::no_answer});
}

uint64_t number_of(const message_t& answer) {
    const std::string subject = answer.subject();
    return std::strtoull(subject.c_str() + subject.rfind('.') + 1, nullptr, 10);
}

}  // namespace

answer_t<done_t> batch_t::listen() {
    auto inbox = connection_.new_inbox();
    if (!inbox) {
        return inbox.failure();
    }
    auto answers = connection_.subscribe(*inbox + ".*");
    if (!answers) {
        return answers.failure();
    }
    inbox_ = std::move(*inbox);
    answers_.emplace(std::move(*answers));
    return done_t{};
}

answer_t<message_t*> batch_t::add(const std::string& subject, std::string_view data, const std::string& token) {
    if (!answers_) {
        if (auto listens = listen(); !listens) {
            return listens.failure();
        }
    }
    message_t& message = messages_.emplace_back(subject, data, fmt::format("{}.{}", inbox_, ++added_));
    message.set_header("Nats-Msg-Id", token);
    return &message;
}

answer_t<done_t> batch_t::store() {
    const std::deque<message_t> messages = std::exchange(messages_, {});
    for (const message_t& message : messages) {
        if (auto published = connection_.publish(message); !published) {
            return published;
        }
    }
    return wait_for_answers(messages.size());
}

// What comes late, to a batch before, has a lower number.
answer_t<done_t> batch_t::wait_for_answers(size_t count) {
    const auto deadline = steady_clock::now() + longest_call;
    const uint64_t before = added_ - count;
    std::optional<failure_t> refused;
    while (count > 0) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        const auto answer = answers_->next(left);
        if (!answer || !*answer) {
            answers_.reset();  // it listens anew
            return answer ? failure_t{0, "the server's streams do not answer", obstacle_t::no_answer}
                          : answer.failure();
        }
        if (number_of(**answer) > before) {
            --count;
            refused = refused ? refused : refusal_of(**answer);
        }
    }
    return refused ? answer_t<done_t>(*refused) : done_t{};
}

}  // namespace nats
