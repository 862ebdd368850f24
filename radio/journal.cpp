#include "radio/journal.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <utility>

#include "base/clock.h"
#include "radio/limits.h"
#include "radio/warning.h"

namespace radio {

namespace {

using assembly::incomplete_t;
using base::sqlite::execution_t;
using journal_file::group_t;
using journal_file::row_t;

constexpr uint64_t never = std::numeric_limits<uint64_t>::max();
constexpr size_t at_once = 100;  // that expire: some milliseconds

}  // namespace

journal_t::~journal_t() {
    if (database_.is_open()) {
        static_cast<void>(database_.run("UPDATE clock SET ran = ?1", ran()));
    }
}

std::string journal_t::open(const std::filesystem::path& file, const bounds_t& bounds) {
    const std::lock_guard lock(mutex_);
    bounds_ = bounds;
    opened_at_ = base::tick64();
    std::string error = database_.open(file, journal_file::version, journal_file::make_tables);
    if (error.empty() && !load()) {
        error = fmt::format("cannot read the journal {}: {}", file.native(),
                            base::sqlite::failure_of(database_.connection()));
    }
    return error;
}

// A kill takes back at most the time since the last datagram came or went.
bool journal_t::load() {
    journal_file::contents_t found;
    if (!note_what_was_stored() || !journal_file::read(database_.connection(), found)) {
        return false;
    }
    groups_ = std::move(found.groups);
    next_id_ = found.last_id + 1;
    incomplete_ = found.waiting;
    gone_ = found.gone;
    constexpr int64_t most = int64_t{1} << 40;  // somebody else's number
    ran_before_ = std::clamp<int64_t>(found.ran, 0, most);
    for (journal_file::alone_t& message : found.alone) {
        become_whole({{message.id}, std::move(message.sender), message.refused});
    }
    for (auto& [message, group] : groups_) {
        assemble(message, group);
        watch(message, group);
    }
    return true;
}

void journal_t::watch(const std::string& message, group_t& group) {
    int64_t first = std::numeric_limits<int64_t>::max();
    for (const assembly::record_t& record : group.records) {
        first = record.gone ? first : std::min(first, record.came);
    }
    group.watched = first != std::numeric_limits<int64_t>::max();
    if (group.watched) {
        ages_.emplace(first, message);
    }
}

int64_t journal_t::ran() const {
    return ran_before_ + static_cast<int64_t>((base::tick64() - opened_at_) / 1000);
}

bool journal_t::take(std::span<const arrival_t> arrivals) {
    const std::lock_guard lock(mutex_);
    std::vector<row_t> taken;
    std::vector<const arrival_t*> sources;
    const int64_t first_id = next_id_;
    const bool done = database_.transaction([&] {
        return std::ranges::all_of(arrivals, [&](const arrival_t& arrival) {
            const size_t before = taken.size();
            const bool kept = take_one(arrival, taken);
            if (taken.size() > before) {
                sources.push_back(&arrival);
            }
            return kept;
        });
    });
    if (!done) {
        next_id_ = first_id;
        return false;
    }
    incomplete_ += taken.size();
    std::set<std::string> changed;
    for (size_t index = 0; index < taken.size(); ++index) {
        const air::octets_t& body = sources[index]->card.body;
        file_away(taken[index], {body.begin(), body.end()});
        changed.insert(taken[index].message);
    }
    changed.erase("");
    for (const std::string& message : changed) {
        assemble(message, groups_[message]);
    }
    keep_bounds();
    return true;
}

bool journal_t::take_one(const arrival_t& arrival, std::vector<row_t>& taken) {
    row_t row = journal_file::row_of(arrival, next_id_, std::time(nullptr), ran());
    const std::optional<bool> known = is_known(arrival);
    if (!known) {
        return database_.fail();
    }
    if (*known) {
        tell_copy(arrival, row.sender);
        return database_.run("UPDATE datagrams SET finished = ?2 WHERE identity = ?1 AND finished IS NOT NULL",
                             arrival.card.identity, row.ran);
    }
    if (in_whole_ + taken.size() >= bounds_.datagrams) {
        return database_.fail(fmt::format(
            "the journal holds {} datagrams of cards that cannot be stored; messages stay on the modem", in_whole_));
    }
    next_id_ += 1;
    taken.push_back(std::move(row));
    return journal_file::insert(database_.statement(journal_file::insertion), arrival, taken.back()) == SQLITE_DONE ||
           database_.fail();
}

// None when the file cannot be read.
std::optional<bool> journal_t::is_known(const arrival_t& arrival) {
    execution_t query(database_.statement("SELECT 1 FROM datagrams WHERE identity = ?1"));
    query.bind(1, arrival.card.identity);
    const int found = query.step();
    return found == SQLITE_ROW || found == SQLITE_DONE ? std::optional(found == SQLITE_ROW) : std::nullopt;
}

// Once each: a message that the modem does not delete comes again at each listing.
void journal_t::tell_copy(const arrival_t& arrival, const std::string& sender) {
    constexpr size_t most_remembered = 1000;
    if (told_copies_.size() >= most_remembered) {
        told_copies_.clear();
    }
    if (told_copies_.insert(arrival.card.identity).second) {
        warn(fmt::format("a datagram from {} came again; it is not handed over twice", sender));
    }
}

void journal_t::file_away(const row_t& row, std::string body) {
    if (row.message.empty()) {
        become_whole({{row.id}, row.sender, !row.place});
        return;
    }
    group_t& group = groups_[row.message];
    group.sender = row.sender;
    group.parts = row.place->parts;
    assembly::insert(group.records, {row.id, row.stamp, row.ran, row.place->part, false, std::move(body)});
    if (!group.watched) {
        watch(row.message, group);
    }
}

void journal_t::assemble(const std::string& message, group_t& group) {
    doubtful_.erase(message);
    while (std::optional<assembly::set_t> set = assembly::choose(group.records, group.parts, bounds_.rules)) {
        if (set->due > ran()) {
            doubtful_[message] = set->due;
            return;
        }
        for (assembly::record_t& record : group.records) {
            record.gone = record.gone || std::ranges::find(set->ids, record.id) != set->ids.end();
        }
        become_whole({std::move(set->ids), group.sender, false});
    }
}

void journal_t::become_whole(whole_t whole) {
    incomplete_ -= whole.ids.size();
    in_whole_ += whole.ids.size();
    whole_.emplace(next_number_++, std::move(whole));
}

std::optional<journal_t::message_t> journal_t::next(int64_t after) {
    const std::lock_guard lock(mutex_);
    for (auto found = whole_.upper_bound(after); found != whole_.end(); found = whole_.upper_bound(after)) {
        const auto& [number, whole] = *found;
        message_t message{number, whole.sender, whole.refused, {}};
        const int result = read(whole, message);
        if (result == SQLITE_ROW) {
            return message;
        }
        if (result != SQLITE_DONE) {
            database_.fail();
            return std::nullopt;
        }
        warn(fmt::format("a message from {} is no longer in the journal", whole.sender));
        in_whole_ -= whole.ids.size();
        whole_.erase(found);
    }
    return std::nullopt;
}

// SQLITE_ROW when all is there, SQLITE_DONE when somebody took a row away, or an error.
int journal_t::read(const whole_t& whole, message_t& message) {
    for (const int64_t id : whole.ids) {
        execution_t query(database_.statement("SELECT technology, octets FROM datagrams WHERE id = ?1"));
        query.bind(1, id);
        if (const int result = query.step(); result != SQLITE_ROW) {
            return result;
        }
        const auto octets = query.octets(1);
        message.datagrams.push_back({id, static_cast<technology_t>(query.number(0)), {octets.begin(), octets.end()}});
    }
    return SQLITE_ROW;
}

void journal_t::finish(int64_t number) {
    const std::lock_guard lock(mutex_);
    auto left = whole_.extract(number);
    if (left.empty()) {
        return;
    }
    in_whole_ -= left.mapped().ids.size();
    if (!note(left.mapped())) {
        not_noted_.push_back(std::move(left.mapped()));
        next_noting_ = base::tick64() + milliseconds(limit_t::journal_again);
    }
}

// A loss of power that takes the note back costs nothing: the message is handed over once more.
bool journal_t::note(const whole_t& whole) {
    const bool done = database_.soon([&] {
        return std::ranges::all_of(whole.ids, [&](int64_t id) {
            return whole.refused
                       ? database_.run("DELETE FROM datagrams WHERE id = ?1", id)
                       : database_.run("UPDATE datagrams SET finished = ?2, stored_as = NULL WHERE id = ?1", id, ran());
        });
    });
    gone_ += done && !whole.refused ? whole.ids.size() : 0;
    return done;
}

void journal_t::about_to_be_stored(int64_t number, const std::filesystem::path& path) {
    const std::lock_guard lock(mutex_);
    const auto whole = whole_.find(number);
    if (whole == whole_.end()) {
        return;
    }
    static_cast<void>(database_.soon([&] {
        return std::ranges::all_of(whole->second.ids, [&](int64_t id) {
            return database_.run("UPDATE datagrams SET stored_as = ?2 WHERE id = ?1", id,
                                 std::string_view(path.native()));
        });
    }));
}

// What was being stored when the process was killed, if its file has appeared. The driver gives no name twice.
bool journal_t::note_what_was_stored() {
    std::set<std::string> paths;
    {
        execution_t query(database_.statement("SELECT DISTINCT stored_as FROM datagrams WHERE stored_as IS NOT NULL"));
        int result = 0;
        while ((result = query.step()) == SQLITE_ROW) {
            paths.insert(query.text(0));
        }
        if (result != SQLITE_DONE) {
            return false;
        }
    }
    return paths.empty() || database_.transaction([&] {
        return std::ranges::all_of(paths, [&](const std::string& path) {
            std::error_code ignored;
            return !std::filesystem::exists(path, ignored) ||
                   database_.run("UPDATE datagrams SET finished = ran, stored_as = NULL WHERE stored_as = ?1",
                                 std::string_view(path));
        });
    });
}

void journal_t::look_again() {
    const std::lock_guard lock(mutex_);
    if (base::tick64() >= next_noting_) {
        std::erase_if(not_noted_, [&](const whole_t& whole) { return note(whole); });
        next_noting_ = not_noted_.empty() ? never : base::tick64() + milliseconds(limit_t::journal_again);
    }
    std::vector<std::string> due;
    for (const auto& [message, until] : doubtful_) {
        if (until <= ran()) {
            due.push_back(message);
        }
    }
    for (const std::string& message : due) {
        assemble(message, groups_[message]);
    }
    expire_some();
}

uint64_t journal_t::next_look() {
    const std::lock_guard lock(mutex_);
    uint64_t next = expiry_ ? 0 : next_noting_;
    for (const auto& [message, until] : doubtful_) {
        next = std::min(next, opened_at_ + static_cast<uint64_t>(std::max<int64_t>(until - ran_before_, 0)) * 1000);
    }
    return next;
}

// A hundredth at once: to look for the oldest takes the longer the more there are.
void journal_t::keep_bounds() {
    if (incomplete_ + in_whole_ <= bounds_.datagrams) {
        return;
    }
    const size_t most = bounds_.datagrams - bounds_.datagrams / 100;
    while (incomplete_ > 0 && incomplete_ + in_whole_ > most && drop_of_the_greediest(most)) {
    }
}

// The sender with the most datagrams loses his oldest messages, so that a flood of them costs nobody else his.
bool journal_t::drop_of_the_greediest(size_t most) {
    struct of_sender_t {
        size_t datagrams = 0;
        std::multimap<int64_t, std::pair<std::string, incomplete_t>> messages;  // by the first of their datagrams
    };
    std::map<std::string, of_sender_t> senders;
    for (const auto& [message, group] : groups_) {
        for (incomplete_t& incomplete : assembly::incomplete(group.records, bounds_.rules)) {
            of_sender_t& sender = senders[group.sender];
            const int64_t first = std::ranges::min(incomplete.ids);
            sender.datagrams += incomplete.ids.size();
            sender.messages.emplace(first, std::pair(message, std::move(incomplete)));
        }
    }
    const auto greediest =
        std::ranges::max_element(senders, {}, [](const auto& sender) { return sender.second.datagrams; });
    if (greediest == senders.end()) {
        return false;
    }
    dropped_t dropped;
    size_t left = incomplete_ + in_whole_;
    for (auto& [first, oldest] : greediest->second.messages) {
        if (left <= most) {
            break;
        }
        left -= oldest.second.ids.size();
        dropped.push_back(std::move(oldest));
    }
    return drop(dropped, fmt::format("the journal holds {} datagrams", bounds_.datagrams));
}

// A loss of power that takes it back has them dropped, and told, once more.
bool journal_t::drop(const dropped_t& all, std::string_view reason) {
    const bool done = database_.soon([&] {
        return std::ranges::all_of(all, [&](const auto& dropped) {
            return std::ranges::all_of(dropped.second.ids, [&](int64_t id) {
                return database_.run("DELETE FROM datagrams WHERE id = ?1", id);
            });
        });
    });
    if (!done) {
        return false;
    }
    for (const auto& [message, incomplete] : all) {
        leave(groups_[message], incomplete, reason);
    }
    for (const auto& [message, incomplete] : all) {
        if (const auto group = groups_.find(message); group != groups_.end()) {
            assemble(message, group->second);  // what lay apart may be neighbours now
            if (group->second.records.empty()) {
                groups_.erase(group);
            }
        }
    }
    return true;
}

void journal_t::leave(group_t& group, const incomplete_t& incomplete, std::string_view reason) {
    std::erase_if(group.records, [&](const assembly::record_t& record) {
        return std::ranges::find(incomplete.ids, record.id) != incomplete.ids.end();
    });
    incomplete_ -= incomplete.ids.size();
    if (!incomplete.repeats) {
        given_up_ += incomplete.places;
        warn(fmt::format("dropped {} of the {} datagrams of a message from {}: {}", incomplete.places, group.parts,
                         group.sender, reason));
    }
}

void journal_t::expire() {
    const std::lock_guard lock(mutex_);
    static_cast<void>(database_.transaction([&] { return database_.run("UPDATE clock SET ran = ?1", ran()); }));
    if (!expiry_) {
        expiry_ = forgetting_t{.too_many = gone_ > bounds_.datagrams ? gone_ - bounds_.datagrams : 0};
    }
    expire_some();
}

// What fails is left for the next time.
void journal_t::expire_some() {
    if (!expiry_) {
        return;
    }
    const int64_t until = ran() - bounds_.age;
    bool more = false;
    if (!drop_old(until, more) || (!more && !forget_gone(until, more)) || !more) {
        expiry_.reset();
    }
}

bool journal_t::drop_old(int64_t until, bool& more) {
    const auto end = ages_.upper_bound(until);
    std::set<std::string> looked_at;
    auto next = ages_.begin();
    for (; next != end && looked_at.size() < at_once; ++next) {
        looked_at.insert(next->second);
    }
    dropped_t old;
    for (const std::string& message : looked_at) {
        const auto group = groups_.find(message);
        if (group == groups_.end()) {
            continue;
        }
        for (incomplete_t& incomplete : assembly::incomplete(group->second.records, bounds_.rules)) {
            if (incomplete.since <= until) {
                old.emplace_back(message, std::move(incomplete));
            }
        }
    }
    if (!old.empty() && !drop(old, fmt::format("incomplete for {} hours", bounds_.age / 3600))) {
        return false;
    }
    more = next != end;
    ages_.erase(ages_.begin(), next);
    for (const std::string& message : looked_at) {
        if (const auto group = groups_.find(message); group != groups_.end()) {
            watch(message, group->second);
        }
    }
    return true;
}

// What has gone is known for as long as what waits, and as many; longer where something that came later repeats it.
bool journal_t::forget_gone(int64_t until, bool& more) {
    forgotten_t forgotten;
    forgetting_t at = *expiry_;
    size_t seen = 0;
    {
        execution_t query(database_.statement(
            "SELECT finished, id, message FROM datagrams WHERE finished IS NOT NULL AND (finished, id) > (?1, ?2) "
            "ORDER BY finished, id LIMIT ?3"));
        query.bind(1, at.finished);
        query.bind(2, at.id);
        query.bind(3, static_cast<int64_t>(at_once));
        int result = 0;
        while ((result = query.step()) == SQLITE_ROW && (query.number(0) <= until || at.too_many > 0)) {
            at = {query.number(0), query.number(1), at.too_many - (at.too_many > 0 ? 1 : 0)};
            forgotten[query.text(2)].insert(at.id);
            seen += 1;
        }
        if (result != SQLITE_DONE && result != SQLITE_ROW) {
            return database_.fail();
        }
    }
    more = seen == at_once;
    expiry_ = at;
    add_left_over(forgotten, at.finished);
    return forgotten.empty() || forget(forgotten);
}

// What repeats it goes with it; what came later than all that is forgotten now keeps it.
void journal_t::add_left_over(forgotten_t& forgotten, int64_t latest) {
    for (auto next = forgotten.begin(); next != forgotten.end();) {
        const auto current = next++;
        const auto group = groups_.find(current->first);
        if (group == groups_.end()) {
            continue;
        }
        for (const assembly::record_t* record : assembly::left_over(group->second.records)) {
            if (record->came > latest) {
                forgotten.erase(current);
                break;
            }
            current->second.insert(record->id);
        }
    }
}

bool journal_t::forget(const forgotten_t& forgotten) {
    const bool done = database_.soon([&] {
        return std::ranges::all_of(forgotten, [&](const auto& of_message) {
            return std::ranges::all_of(of_message.second, [&](int64_t id) {
                return database_.run("DELETE FROM datagrams WHERE id = ?1", id);
            });
        });
    });
    if (!done) {
        return false;
    }
    for (const auto& of_message : forgotten) {
        const std::set<int64_t>& ids = of_message.second;
        size_t waited = 0;
        if (const auto group = groups_.find(of_message.first); group != groups_.end()) {
            std::erase_if(group->second.records, [&](const assembly::record_t& record) {
                const bool leaves = ids.contains(record.id);
                waited += leaves && !record.gone ? 1 : 0;
                return leaves;
            });
            if (group->second.records.empty()) {
                doubtful_.erase(group->first);
                groups_.erase(group);
            }
        }
        incomplete_ -= waited;
        gone_ -= std::min(gone_, ids.size() - waited);
    }
    return true;
}

bool journal_t::keep_text(size_t length, std::string_view pdu) {
    const std::lock_guard lock(mutex_);
    return database_.transaction([&] {
        if (!database_.run("INSERT INTO texts (came, length, pdu) VALUES (?1, ?2, ?3)", int64_t{std::time(nullptr)},
                           static_cast<int64_t>(length), pdu) ||
            !database_.run("DELETE FROM texts WHERE id <= (SELECT max(id) FROM texts) - ?1",
                           static_cast<int64_t>(bounds_.datagrams))) {
            return false;
        }
        if (sqlite3_changes(database_.connection()) > 0) {
            warn(fmt::format("dropped a message that is no card: the journal holds {} of them", bounds_.datagrams));
        }
        return true;
    });
}

std::optional<journal_t::text_t> journal_t::first_text() {
    const std::lock_guard lock(mutex_);
    execution_t query(database_.statement("SELECT id, length, pdu FROM texts ORDER BY id LIMIT 1"));
    const int result = query.step();
    if (result != SQLITE_ROW) {
        static_cast<void>(result == SQLITE_DONE || database_.fail());
        return std::nullopt;
    }
    return text_t{query.number(0), static_cast<size_t>(query.number(1)), query.text(2)};
}

bool journal_t::forget_text(int64_t id) {
    const std::lock_guard lock(mutex_);
    return database_.run("DELETE FROM texts WHERE id = ?1", id);
}

journal_t::counts_t journal_t::counts() {
    const std::lock_guard lock(mutex_);
    return {incomplete_, whole_.size(), given_up_};
}

}  // namespace radio
