#include "radio/warning.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>

#include "base/clock.h"
#include "base/told_line.h"

namespace radio {

namespace {

constexpr uint64_t interval = 600'000;  // milliseconds
constexpr size_t most_of_a_kind = 50;   // a person reads the first few

struct kind_t {
    uint64_t since = 0;                                // on tick64
    std::map<std::string, size_t, std::less<>> again;  // of the texts that were told: how often they came again
    size_t more = 0;                                   // texts that were not told
};

struct state_t {
    std::mutex mutex;  // guards the rest
    std::map<std::string, kind_t, std::less<>> kinds;
};

// Never destroyed: threads that outlive main may still warn. As many kinds as this program has words for.
state_t& state() {
    static auto& instance = *new state_t;
    return instance;
}

std::string_view kind_of(std::string_view text) {
    return text.substr(0, text.find_first_of("0123456789+:'\"/"));
}

void write(std::string_view text) {
    base::tell_line(stderr, base::priority_t::warning, "zpd radio: " + shown(text));
}

/// "5,866"
std::string grouped(size_t number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3; at -= 3) {
        digits.insert(at - 3, 1, ',');
    }
    return digits;
}

void begin_anew(std::string_view words, kind_t& kind) {
    for (const auto& [text, again] : kind.again) {
        if (again != 0) {
            write(fmt::format("{} ... {} more in 10 minutes", text, grouped(again)));
        }
    }
    if (kind.more != 0) {
        write(fmt::format("\"{}...\": {} more in 10 minutes", words, grouped(kind.more)));
    }
    kind = {.since = base::tick64(), .again = {}, .more = 0};
}

}  // namespace

std::string shown(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c >= 0x20 && c < 0x7F) {
            out += c;
        } else {
            out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
        }
    }
    return out;
}

void warn(std::string_view text) {
    const std::lock_guard lock(state().mutex);
    kind_t& kind = state().kinds[std::string(kind_of(text))];
    if (kind.since == 0 || base::tick64() - kind.since >= interval) {
        begin_anew(kind_of(text), kind);
    }
    if (const auto told = kind.again.find(text); told != kind.again.end()) {
        told->second += 1;
    } else if (kind.again.size() == most_of_a_kind) {
        kind.more += 1;
    } else {
        kind.again.emplace(text, 0);
        write(text);
    }
}

void warn_of_the_rest() {
    const std::lock_guard lock(state().mutex);
    for (auto& [words, kind] : state().kinds) {
        if (base::tick64() - kind.since >= interval) {
            begin_anew(words, kind);
        }
    }
}

}  // namespace radio
