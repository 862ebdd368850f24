#include "network/fault_plan.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "base/duration.h"
#include "base/file.h"
#include "base/text.h"
#include "network/fault_table.h"
#include "network/service_centre.h"

namespace network {

namespace {

constexpr size_t longest_plan = 10'000'000;  // octets

/// None when a quote does not end.
std::optional<std::vector<std::string>> words_of(std::string_view line) {
    std::vector<std::string> words;
    bool in_word = false;
    bool quoted = false;
    for (size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
            in_word = false;
            continue;
        }
        if (!in_word && c == '#') {
            break;
        }
        if (!in_word) {
            words.emplace_back();
            in_word = true;
        }
        if (c == '\'') {
            quoted = !quoted;
        } else {
            words.back() += c == '\\' && !quoted && at + 1 < line.size() ? line[++at] : c;
        }
    }
    return quoted ? std::nullopt : std::optional(words);
}

std::string written_word(const std::string& word) {
    std::string written;
    for (const char c : word) {
        written += c == '\\' || c == '\'' || c == ' ' ? std::string{'\\', c} : std::string(1, c);
    }
    return written;
}

std::string written_time(uint64_t milliseconds) {
    return milliseconds % 1000 == 0 ? fmt::format("{}s", milliseconds / 1000) : fmt::format("{}ms", milliseconds);
}

bool is_known(std::string_view number, const std::vector<std::string>& numbers) {
    return number == all_phones || std::ranges::any_of(numbers, [&](const std::string& known) {
               return digits_of(known) == digits_of(number);
           });
}

/// Returns an empty text, or what is wrong with the line.
std::string read_line(std::string_view line, const std::vector<std::string>& numbers,
                      std::vector<planned_order_t>& plan) {
    const auto words = words_of(line);
    if (!words) {
        return "a quote has no end";
    }
    if (words->empty()) {
        return "";
    }
    const auto at = base::read_milliseconds(words->front());
    if (!at) {
        return fmt::format("\"{}\" is no time; write 90s, 1m30s, 2h or 1500ms", words->front());
    }
    if (words->size() < 3) {
        return "what is wanted is TIME NUMBER FAULT[=VALUE] ...";
    }
    planned_order_t order{*at, words->at(1), {words->begin() + 2, words->end()}};
    if (!is_known(order.number, numbers)) {
        return fmt::format("the network has no phone {}", order.number);
    }
    for (const std::string& fault : order.faults) {
        if (std::string error = set_fault(nullptr, fault); !error.empty()) {
            return error;
        }
    }
    plan.push_back(std::move(order));
    return "";
}

}  // namespace

std::string to_text(const planned_order_t& order) {
    std::string text = fmt::format("{} {}", written_time(order.at), order.number);
    for (const std::string& fault : order.faults) {
        text += " " + written_word(fault);
    }
    return text;
}

std::vector<planned_order_t> read_fault_plan(const std::filesystem::path& file, const std::vector<std::string>& numbers,
                                             std::string* error) {
    std::string text;
    if (const int problem = base::read_file(file, longest_plan, &text); problem != 0) {
        *error = fmt::format("cannot read {}: {}", file.string(), base::errno_text(problem));
        return {};
    }
    if (text.size() > longest_plan) {
        *error = fmt::format("{} is too long for a plan: more than {} octets", file.string(), longest_plan);
        return {};
    }
    std::vector<planned_order_t> plan;
    size_t number = 1;
    for (size_t begin = 0; begin < text.size(); ++number) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string_view line = std::string_view(text).substr(begin, end - begin);
        if (const std::string problem = read_line(line, numbers, plan); !problem.empty()) {
            *error = fmt::format("{}:{}: {}: {}", file.string(), number, problem, line);
            return {};
        }
        begin = end + 1;
    }
    std::ranges::stable_sort(plan, {}, &planned_order_t::at);
    return plan;
}

}  // namespace network
