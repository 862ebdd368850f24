#include "radio/at_values.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "base/hex.h"

namespace radio {

namespace {

bool printable(char c) {
    return c >= 0x20 && c < 0x7F;
}

std::optional<int> number(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<int> number_at(const std::vector<value_t>& values, size_t position) {
    return position < values.size() ? number(values[position].text) : std::nullopt;
}

std::optional<size_t> length_at(const std::vector<value_t>& values, size_t position) {
    const std::optional<int> length = number_at(values, position);
    return length && *length >= 0 ? std::optional<size_t>(*length) : std::nullopt;
}

// <stat> of a message: 0 received unread, 1 received read, 2 and 3 stored for sending.
std::optional<stored_message_t> stored_message(const std::vector<value_t>& values, size_t first) {
    const std::optional<int> status = number_at(values, first);
    // <alpha> may be missing together with its comma; the length is the last value.
    const std::optional<size_t> length = values.empty() ? std::nullopt : length_at(values, values.size() - 1);
    if (!status || !length || values.size() < first + 2) {
        return std::nullopt;
    }
    return stored_message_t{0, *status == 0 || *status == 1, *length};
}

void append_range(std::string_view text, std::vector<int>& numbers) {
    const size_t dash = text.find('-', 1);
    const std::optional<int> low = number(text.substr(0, dash));
    const std::optional<int> high = dash == std::string_view::npos ? low : number(text.substr(dash + 1));
    constexpr int widest_range = 1000;
    if (!low || !high || *high - *low > widest_range) {
        return;
    }
    for (int i = *low; i <= *high; ++i) {
        numbers.push_back(i);
    }
}

std::optional<int> first_offered(const std::vector<int>& preferred, const std::vector<int>& offered) {
    for (const int value : preferred) {
        if (std::ranges::find(offered, value) != offered.end()) {
            return value;
        }
    }
    return std::nullopt;
}

std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' ')) {
        text.remove_prefix(1);
    }
    while (text.ends_with(' ')) {
        text.remove_suffix(1);
    }
    return text;
}

// Where the value ends that `rest` begins with: at a comma outside of quotation marks and brackets.
size_t value_end(std::string_view rest) {
    bool in_quotes = false;
    int depth = 0;
    for (size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] == '"') {
            in_quotes = !in_quotes;
        } else if (!in_quotes) {
            depth += rest[i] == '(' ? 1 : rest[i] == ')' ? -1 : 0;
            if (rest[i] == ',' && depth <= 0) {
                return i;
            }
        }
    }
    return rest.size();
}

value_t one_value(std::string_view text) {
    text = trimmed(text);
    const bool in_quotes = text.size() >= 2 && text.starts_with('"') && text.ends_with('"');
    const bool in_brackets = text.size() >= 2 && text.starts_with('(') && text.ends_with(')');
    if (in_quotes || in_brackets) {
        text = text.substr(1, text.size() - 2);
    }
    return {std::string(text), in_quotes};
}

std::vector<value_t> split_values(std::string_view rest) {
    std::vector<value_t> values;
    while (true) {
        const size_t end = value_end(rest);
        values.push_back(one_value(rest.substr(0, end)));
        if (end == rest.size()) {
            return values;
        }
        rest.remove_prefix(end + 1);
    }
}

}  // namespace

std::optional<std::string> command_line(std::string_view text) {
    if (!std::ranges::all_of(text, printable)) {
        return std::nullopt;
    }
    return std::string(text);
}

std::optional<std::string> quoted_text(std::string_view text) {
    if (text.find('"') != std::string_view::npos || !command_line(text)) {
        return std::nullopt;
    }
    return '"' + std::string(text) + '"';
}

std::vector<value_t> values_of(std::string_view line) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || trimmed(line.substr(colon + 1)).empty()) {
        return {};
    }
    return split_values(line.substr(colon + 1));
}

// Two forms: "<n>,<stat>[,<lac>,<ci>[,<AcT>]]" is the reply, "<stat>[,<lac>,<ci>[,<AcT>]]" comes by itself. An area
// code has quotation marks, or four digits where a modem leaves them away; a status has fewer.
std::optional<registration_t> registration(std::string_view line) {
    std::vector<value_t> values = values_of(line);
    const bool reply =
        values.size() >= 2 && !values[1].is_quoted && values[1].text.size() < 4 && number(values[1].text).has_value();
    if (reply) {
        values.erase(values.begin());
    }
    const std::optional<int> status = number_at(values, 0);
    if (!status || *status < 0) {
        return std::nullopt;
    }
    return registration_t{*status, number_at(values, 3)};
}

// 3GPP TS 27.007 7.2: 1 home, 5 roaming, 6 and 7 the same for short messages only, 9 and 10 without preferred
// circuit-switched fallback. 8, emergency calls only, carries no messages.
bool registration_t::registered() const {
    return status == 1 || (status >= 5 && status <= 7) || status == 9 || status == 10;
}

std::optional<int> operator_access(std::string_view line) {
    return number_at(values_of(line), 3);
}

DWORD system_type_of_access(int access) {
    switch (access) {
        case 0:  // GSM
        case 1:  // GSM Compact
        case 8:  // EC-GSM-IoT
            return RIL_SYSTEMTYPE_GSM;
        case 3:  // GSM with EGPRS
            return RIL_SYSTEMTYPE_GSM | RIL_SYSTEMTYPE_GPRS | RIL_SYSTEMTYPE_EDGE;
        case 4:  // UTRAN with HSDPA
        case 5:  // with HSUPA, which comes on top of it
        case 6:  // with both
            return RIL_SYSTEMTYPE_UMTS | RIL_SYSTEMTYPE_HSDPA;
        default:  // 2 UTRAN; 7 E-UTRAN and what came after it
            return RIL_SYSTEMTYPE_UMTS;
    }
}

capabilities_t capabilities(std::string_view line) {
    const auto has = [line](std::string_view name) { return line.find(name) != std::string_view::npos; };
    return {has("CGSM"), has("CIS707") || has("CIS-707")};
}

// Steps of 2 dBm; 99 is unknown, and other numbers are of other technologies.
std::optional<int> signal_strength(std::string_view line) {
    constexpr int highest = 31;
    const std::optional<int> steps = number_at(values_of(line), 0);
    return steps && *steps >= 0 && *steps <= highest ? std::optional(2 * *steps - 113) : std::nullopt;
}

std::optional<int> cdma_service(std::string_view line) {
    return number_at(values_of(line), 0);
}

// An identification has 15 bits; modems write 99999 for none.
bool has_serving_system(std::string_view line) {
    const std::vector<value_t> values = values_of(line);
    const std::optional<int> identification = values.empty() ? std::nullopt : number_at(values, values.size() - 1);
    return identification && *identification >= 0 && *identification <= 0x7FFF;
}

std::optional<location_t> new_message(std::string_view line) {
    const std::vector<value_t> values = values_of(line);
    const std::optional<int> index = number_at(values, 1);
    if (!index || *index < 0 || values[0].text.empty() || !quoted_text(values[0].text)) {
        return std::nullopt;
    }
    return location_t{values[0].text, *index};
}

bool announces_full_memory(std::string_view line) {
    constexpr std::array<std::string_view, 6> beginnings = {"^SMMEMFULL", "+QIND: \"SMSFULL\"",   "%SMSFULL",
                                                            "+SMSFULL",   "+CIEV: \"SMSFULL\",1", "^SMGO: 2"};
    return std::ranges::any_of(beginnings, [&](std::string_view beginning) { return line.starts_with(beginning); });
}

std::optional<stored_message_t> read_message(std::string_view line) {
    return stored_message(values_of(line), 0);
}

std::optional<stored_message_t> listed_message(std::string_view line) {
    const std::vector<value_t> values = values_of(line);
    const std::optional<int> index = number_at(values, 0);
    std::optional<stored_message_t> message = stored_message(values, 1);
    if (!index || *index < 0 || !message) {
        return std::nullopt;
    }
    message->index = *index;
    return message;
}

std::optional<size_t> delivered_length(std::string_view line) {
    const std::vector<value_t> values = values_of(line);
    return values.empty() ? std::nullopt : length_at(values, values.size() - 1);
}

std::vector<air::octets_t> tpdus_of_line(std::string_view pdu, size_t length) {
    const auto nearly_fits = [length](size_t size) { return size + 1 >= length && size <= length + 1; };
    std::vector<air::octets_t> tpdus;
    const std::optional<air::octets_t> octets = base::from_hex(pdu);
    if (octets && nearly_fits(octets->size())) {
        tpdus.push_back(*octets);
    }
    std::optional<air::pdu_t> parts = octets ? air::decode_pdu(*octets) : std::nullopt;
    if (parts && !parts->tpdu.empty() && (nearly_fits(parts->tpdu.size()) || octets->size() == length)) {
        tpdus.push_back(std::move(parts->tpdu));
    }
    return tpdus;
}

std::vector<std::string> readable_memories(std::string_view line) {
    const std::vector<value_t> values = values_of(line);
    std::vector<std::string> memories;
    if (!values.empty()) {
        for (const value_t& value : split_values(values[0].text)) {
            memories.push_back(value.text);
        }
    }
    std::erase_if(memories, [](const std::string& memory) { return memory.empty() || !quoted_text(memory); });
    return memories;
}

std::string receiving_memory(std::string_view line) {
    constexpr size_t third = 6;  // each memory is its name, used and total
    const std::vector<value_t> values = values_of(line);
    return values.size() > third ? values[third].text : std::string();
}

// The memory that new messages go to first, then the others that may hold older ones. "MT" is all of them together.
std::vector<std::string> memories_to_read(const std::vector<std::string>& readable, const std::string& receiving) {
    std::vector<std::string> wanted = {receiving};
    if (receiving != "MT") {
        wanted.insert(wanted.end(), {"SM", "ME"});
    }
    std::vector<std::string> memories;
    for (const std::string& memory : wanted) {
        if (std::ranges::find(readable, memory) != readable.end() &&
            std::ranges::find(memories, memory) == memories.end()) {
            memories.push_back(memory);
        }
    }
    return memories;
}

std::optional<memory_level_t> memory_level(std::string_view line) {
    const std::vector<value_t> values = values_of(line);
    const std::optional<int> used = number_at(values, 0);
    const std::optional<int> total = number_at(values, 1);
    return used && total ? std::optional(memory_level_t{*used, *total}) : std::nullopt;
}

std::vector<memory_use_t> memories_in_use(std::string_view line) {
    const std::vector<value_t> values = values_of(line);
    std::vector<memory_use_t> memories;
    for (size_t i = 0; i + 2 < values.size(); i += 3) {
        memories.push_back(
            {values[i].text, {number_at(values, i + 1).value_or(0), number_at(values, i + 2).value_or(0)}});
    }
    return memories;
}

std::optional<uint16_t> message_reference(std::string_view line) {
    const std::optional<int> reference = number_at(values_of(line), 0);
    return reference && *reference >= 0 && *reference <= 0xFFFF ? std::optional<uint16_t>(*reference) : std::nullopt;
}

std::vector<std::vector<int>> offered_numbers(std::string_view line) {
    std::vector<std::vector<int>> offered;
    for (const value_t& value : values_of(line)) {
        std::vector<int>& numbers = offered.emplace_back();
        for (const value_t& range : split_values(value.text)) {
            append_range(range.text, numbers);
        }
    }
    return offered;
}

namespace {

// Of <mt>.
announcement_t::way_t way_of(int delivery) {
    return delivery == 0   ? announcement_t::way_t::none
           : delivery == 1 ? announcement_t::way_t::stored
                           : announcement_t::way_t::direct;
}

}  // namespace

// 3GPP TS 27.005 3.4.1. A row each parameter, the best first; a parameter that the modem does not know is left away.
announcement_t choose_announcement(const std::vector<std::vector<int>>& offered, bool direct_too) {
    using numbers_t = std::vector<int>;
    const numbers_t preferred[] = {
        {2, 1, 3, 0},  // <mode>: buffer while the link is taken; else drop, share the link, or only buffer
        direct_too ? numbers_t{1, 2, 3, 0} : numbers_t{1, 0},  // <mt>: store and tell; else deliver
        {0},                                                   // <bm>: no cell broadcast
        {0, 2},  // <ds>: status reports neither delivered nor, if so, unstored
        {0, 1},  // <bfr>: flush what was buffered
    };
    announcement_t choice;
    int delivery = 0;
    for (size_t i = 0; i < std::size(preferred) && i < offered.size(); ++i) {
        const std::optional<int> value = first_offered(preferred[i], offered[i]);
        if (!value) {
            break;
        }
        choice.parameters += (i == 0 ? "" : ",") + std::to_string(*value);
        delivery = i == 1 ? *value : delivery;
    }
    choice.way = way_of(delivery);
    return choice;
}

std::optional<announcement_t> announcement_of(std::string_view parameters) {
    const std::vector<value_t> values = split_values(parameters);
    const bool numbers =
        std::ranges::all_of(values, [](const value_t& value) { return !value.is_quoted && number(value.text) >= 0; });
    if (!numbers || parameters.find_first_not_of("0123456789,") != std::string_view::npos) {
        return std::nullopt;
    }
    return announcement_t{way_of(number_at(values, 1).value_or(0)), std::string(parameters)};
}

}  // namespace radio
