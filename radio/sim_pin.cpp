#include "radio/sim_pin.h"

#include <crypt.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <platform/linux/home.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/own_file.h"
#include "base/text.h"
#include "radio/sim_values.h"
#include "radio/warning.h"

namespace radio {

namespace {

base::descriptor_t open_file(const std::filesystem::path& path, int flags) {
    return base::descriptor_t(open(path.c_str(), flags | O_CLOEXEC));
}

// As much as a line of use has.
std::string first_line(const base::descriptor_t& file) {
    std::array<char, 512> text{};
    const ssize_t count = read(file.get(), text.data(), text.size());
    const std::string_view all(text.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
    const std::string_view line = all.substr(0, all.find('\n'));
    return std::string(line.substr(0, line.find('\r')));
}

std::string hash(const std::string& pin, const std::string& setting) {
    const auto data = std::make_unique<crypt_data>();
    const char* const text = crypt_r(pin.c_str(), setting.c_str(), data.get());
    return text == nullptr || text[0] == '*' ? std::string() : std::string(text);
}

std::string new_hash(const std::string& pin) {
    std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> salt{};
    const bool salted = crypt_gensalt_rn(nullptr, 0, nullptr, 0, salt.data(), salt.size()) != nullptr;
    return salted ? hash(pin, salt.data()) : std::string();
}

bool write_durably(const std::filesystem::path& path, const std::string& text) {
    const std::filesystem::path temporary = path.native() + ".new";
    std::string problem;
    const base::descriptor_t file = base::open_own_file(temporary, O_WRONLY | O_CREAT | O_TRUNC, problem);
    const bool written = write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (!written || fsync(file.get()) != 0 || rename(temporary.c_str(), path.c_str()) != 0) {
        return false;
    }
    const base::descriptor_t folder = open_file(path.parent_path(), O_RDONLY | O_DIRECTORY);
    return fsync(folder.get()) == 0;
}

constexpr const char* word_for_any = "any";
constexpr const char* word_for_rejected = "rejected";

struct mark_t {
    std::string hash;
    std::string card{};  // empty: any
    bool rejected = false;
    std::optional<int> tries{};  // before the entry

    [[nodiscard]] bool counts_for(const std::string& other) const {
        return card.empty() || other.empty() || is_card(other);
    }
    // Modems tell the check digit at the end of an ICCID, or leave it away.
    [[nodiscard]] bool is_card(const std::string& other) const {
        return card.empty() == other.empty() && (card.starts_with(other) || other.starts_with(card));
    }
    [[nodiscard]] bool is_of(const std::string& pin) const {
        const std::string hashed = radio::hash(pin, hash);
        return hashed.empty() || hashed == hash;
    }
};
using marks_t = std::vector<mark_t>;

// What is of no form counts for every SIM.
mark_t mark_of(const std::string& line) {
    std::istringstream words(line);
    std::string hash_text;
    std::string card;
    std::string state;
    words >> hash_text >> card >> state;
    if (card != word_for_any && card_identity(card) != card) {
        return {.hash = line};
    }
    mark_t mark{.hash = hash_text, .card = card == word_for_any ? std::string() : card};
    mark.rejected = state == word_for_rejected;
    int tries = 0;
    if (std::from_chars(state.data(), state.data() + state.size(), tries).ec == std::errc{}) {
        mark.tries = tries;
    }
    return mark;
}

std::string line_of(const mark_t& mark) {
    return fmt::format("{} {} {}\n", mark.hash, mark.card.empty() ? word_for_any : mark.card,
                       mark.rejected ? word_for_rejected
                       : mark.tries  ? std::to_string(*mark.tries)
                                     : "?");
}

// None when they cannot be read; no file has none.
std::optional<marks_t> read_marks() {
    std::string problem;
    const base::descriptor_t file = base::open_own_file(pin_marks(), O_RDONLY, problem);
    if (!file) {
        return errno == ENOENT ? std::optional(marks_t()) : std::nullopt;
    }
    std::string text;
    std::array<char, 512> buffer{};
    ssize_t count = 0;
    while ((count = read(file.get(), buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<size_t>(count));
    }
    marks_t marks;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        marks.push_back(mark_of(line));
    }
    return count == 0 ? std::optional(std::move(marks)) : std::nullopt;
}

// An empty text, or why not.
std::string write_marks(const marks_t& marks) {
    std::string text;
    for (const mark_t& mark : marks) {
        text += line_of(mark);
    }
    const bool written = marks.empty() ? unlink(pin_marks().c_str()) == 0 : write_durably(pin_marks(), text);
    return written ? std::string() : fmt::format("cannot write {}: {}", pin_marks().native(), base::errno_text(errno));
}

// Does with each open mark as `judge` says; returns whether one was settled.
enum class verdict_t { open, forgotten, rejected };
bool settle(const std::function<verdict_t(const mark_t&)>& judge) {
    marks_t settled;
    bool any = false;
    for (mark_t& mark : read_marks().value_or(marks_t())) {
        const verdict_t verdict = mark.rejected ? verdict_t::open : judge(mark);
        any = any || verdict != verdict_t::open;
        if (verdict != verdict_t::forgotten) {
            mark.rejected = mark.rejected || verdict == verdict_t::rejected;
            settled.push_back(std::move(mark));
        }
    }
    // A mark that could not be changed counts as before.
    if (const std::string error = any ? write_marks(settled) : std::string(); !error.empty()) {
        warn(error);
    }
    return any;
}

}  // namespace

pin_file_t read_pin(const std::filesystem::path& path) {
    const base::descriptor_t file = open_file(path, O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        return {{}, fmt::format("cannot read the PIN's file {}: {}", path.native(), base::errno_text(errno))};
    }
    if (!S_ISREG(status.st_mode)) {
        return {{}, fmt::format("the PIN's file {} is no file", path.native())};
    }
    constexpr mode_t others = 077;
    if ((status.st_mode & others) != 0) {
        return {{}, fmt::format("others may read the PIN's file {0}: chmod 600 {0}", path.native())};
    }
    std::string pin = first_line(file);
    const bool digits = std::ranges::all_of(pin, [](char c) { return c >= '0' && c <= '9'; });
    if (!digits || pin.size() < 4 || pin.size() > 8) {
        return {{}, fmt::format("the first line of {} is no PIN, which has 4 to 8 digits", path.native())};
    }
    return {std::move(pin), {}};
}

std::filesystem::path pin_marks() {
    return platform::home() / "rejected-pin";
}

bool pin_is_marked(const std::string& pin, const std::string& card) {
    const std::optional<marks_t> marks = read_marks();
    return !marks ||
           std::ranges::any_of(*marks, [&](const mark_t& mark) { return mark.counts_for(card) && mark.is_of(pin); });
}

bool any_pin_is_marked(const std::string& card) {
    const std::optional<marks_t> marks = read_marks();
    return !marks || std::ranges::any_of(*marks, [&](const mark_t& mark) { return mark.counts_for(card); });
}

bool any_pin_is_open() {
    return std::ranges::any_of(read_marks().value_or(marks_t()), [](const mark_t& mark) { return !mark.rejected; });
}

std::string mark_entered_pin(const std::string& pin, const std::string& card, std::optional<int> tries) {
    std::optional<marks_t> marks = read_marks();
    const std::string hashed = new_hash(pin);
    if (!marks || hashed.empty()) {
        return fmt::format("cannot {} {}: {}", marks ? "hash the PIN for" : "read", pin_marks().native(),
                           base::errno_text(errno));
    }
    marks->push_back({.hash = hashed, .card = card, .tries = tries});
    return write_marks(*marks);
}

void settle_entered_pins(const std::string& card, std::optional<int> tries) {
    settle([&](const mark_t& mark) {
        if (!mark.is_card(card) || !tries) {
            return verdict_t::open;
        }
        if (*tries == 0 || (mark.tries && *tries < *mark.tries)) {
            return verdict_t::rejected;
        }
        return mark.tries == tries ? verdict_t::forgotten : verdict_t::open;
    });
}

void reject_pin(const std::string& pin, const std::string& card) {
    settle([&](const mark_t& mark) {
        return mark.is_card(card) && mark.is_of(pin) ? verdict_t::rejected : verdict_t::open;
    });
}

// A modem may tell the ICCID only now.
bool forget_entered_pins(const std::string& card) {
    return settle([&](const mark_t& mark) {
        return mark.card.empty() || mark.is_card(card) ? verdict_t::forgotten : verdict_t::open;
    });
}

}  // namespace radio
