#include "relay/queued_card.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "base/safe_text.h"

namespace fleet {

namespace {

using client::answer_t;
using client::failure_t;
using client::obstacle_t;

constexpr size_t longest_file = 255;  // octets that the service takes
constexpr size_t longest_subject = 200;

failure_t refused(std::string text) {
    return {0, std::move(text), obstacle_t::request};
}

/// Whether a header says so; `usual` without one.
answer_t<bool> flag(const nats::message_t& message, const char* name, bool usual) {
    const std::string text = message.header(name);
    if (text.empty()) {
        return usual;
    }
    return text == "0" || text == "1" ? answer_t<bool>(text == "1")
                                      : refused(fmt::format("{} is neither 0 nor 1", name));
}

answer_t<uint64_t> time(const nats::message_t& message, const char* name) {
    const std::string text = message.header(name);
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool is_number = text.empty() || (error == std::errc() && end == text.data() + text.size());
    return is_number && value <= INT64_MAX ? answer_t<uint64_t>(value)
                                           : refused(fmt::format("{} is no time in seconds since 1970", name));
}

/// One that an answer may go to: nobody can have a relay write into a stream or give an order.
bool is_reply(std::string_view subject) {
    return subject.size() <= longest_subject && subject.starts_with("_INBOX") &&
           std::ranges::all_of(subject, [](char octet) { return octet > ' ' && octet < '\x7F'; }) &&
           subject.find_first_of("*>") == std::string_view::npos;
}

}  // namespace

answer_t<queued_card_t> read_card(const nats::message_t& message) {
    const auto is_utf8 = flag(message, header_utf8, true);
    const auto long_reference = flag(message, header_long_reference, false);
    const auto expires = time(message, header_expires);
    if (!is_utf8 || !long_reference || !expires) {
        return !is_utf8 ? is_utf8.failure() : !long_reference ? long_reference.failure() : expires.failure();
    }
    queued_card_t card{std::string(message.data()),
                       *is_utf8,
                       *long_reference,
                       message.header(header_to),
                       message.header(header_file),
                       *expires,
                       message.header(header_reply)};
    if (card.octets.empty()) {
        return refused("the card is empty");
    }
    if (card.number.empty()) {
        return refused(fmt::format("there is no {}, the phone number that it is for", header_to));
    }
    if (!card.reply.empty() && !is_reply(card.reply)) {
        return refused(fmt::format("{} is no address for answers", header_reply));
    }
    card.file = base::escaped(card.file.substr(0, longest_file));
    card.file.resize(std::min(card.file.size(), longest_file));
    return card;
}

// FNV-1a of 64 bits.
uint64_t digest_of(const queued_card_t& card) {
    constexpr uint64_t basis = 0xCBF29CE484222325;
    constexpr uint64_t prime = 0x100000001B3;
    uint64_t digest = basis;
    for (const std::string& text : {card.number + '\n', card.octets}) {
        for (const char octet : text) {
            digest = (digest ^ static_cast<unsigned char>(octet)) * prime;
        }
    }
    return digest;
}

nats::message_t write_card(const std::string& subject, const queued_card_t& card) {
    nats::message_t message(subject, card.octets);
    message.set_header(header_to, card.number);
    message.set_header(header_file, card.file);
    message.set_header(header_utf8, card.is_utf8 ? "1" : "0");
    message.set_header(header_long_reference, card.long_reference ? "1" : "0");
    message.set_header(header_expires, std::to_string(card.expires));
    if (!card.reply.empty()) {
        message.set_header(header_reply, card.reply);
    }
    return message;
}

}  // namespace fleet
