#include "service/outbox.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "base/clock.h"
#include "device/service_requests.h"
#include "radio/limits.h"
#include "service/outbox_json.h"

using base::priority_t;
using base::unix_time;
using base::sqlite::execution_t;
using nlohmann::ordered_json;
using radio::limit_t;
using radio::signed_value_of;

namespace {

problem_t not_written(base::sqlite::file_t& file) {
    return {device::error_not_written, "the outbox cannot be written: " + file.failure() + "; nothing was changed"};
}

}  // namespace

outbox_t::outbox_t(told_t told)
    : told_(std::move(told)), file_({"the outbox", "cards stay where they are"}, [](const std::string& text) {
          base::tell_line(stderr, priority_t::error, "zpd serve: " + text);
      }) {}

std::string outbox_t::open(const std::filesystem::path& home) {
    std::unique_lock lock(mutex_);
    const std::filesystem::path file = outbox_file::path(home);
    std::string error = file_.open(file, outbox_file::version, outbox_file::make_tables);
    if (error.empty() && !(outbox_file::keep_totals(file_.connection()) && load())) {
        error =
            fmt::format("cannot read the outbox {}: {}", file.native(), base::sqlite::failure_of(file_.connection()));
    }
    lock.unlock();
    publish();
    return error;
}

// Nothing is with the driver yet. A number that is held back is so until its time, which a clock that was set back must
// not put off.
bool outbox_t::load() {
    const int64_t now = unix_time();
    const int64_t latest = now + signed_value_of(limit_t::held_back_most);
    return log_.load() && transaction(
                              [&] {
                                  return cancel_what_was_given_up(now) &&
                                         file_.run("UPDATE numbers SET until = min(until, ?1)", latest) &&
                                         file_.run(
                                             "UPDATE messages SET state = 0, held = number IN (SELECT number FROM "
                                             "numbers) WHERE state NOT IN (3, 4) AND state IN (0, 1) AND "
                                             "(state = 1 OR held <> (number IN (SELECT number FROM numbers)))");
                              },
                              false);
}

bool outbox_t::cancel_what_was_given_up(int64_t now) {
    std::vector<outbox_message_t> messages;
    {
        execution_t query(file_.statement(
            std::string(outbox_file::columns) +
            "FROM messages WHERE state NOT IN (3, 4) AND state IN (0, 1, 2) AND (state = 2 OR leased)"));
        while (query.step() == SQLITE_ROW) {
            messages.push_back(outbox_file::row(query));
        }
    }
    return std::ranges::all_of(messages, [&](outbox_message_t& message) {
        if (message.state != outbox_state_t::cancelling) {
            message.reason = {lease_lost};
        }
        message.state = outbox_state_t::cancelled;
        message.changed = now;
        return outbox_file::update(file_, message) && tell_end(message, now);
    });
}

bool outbox_t::transaction(const std::function<bool()>& steps, bool at_once) {
    const size_t lines = lines_.size();
    const bool done = at_once ? file_.transaction(steps) : file_.soon(steps);
    if (!done) {
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(lines), lines_.end());
        static_cast<void>(log_.load());
        again_ = unix_time() + signed_value_of(limit_t::outbox_again);
    }
    return done;
}

std::optional<outbox_t::view_t> outbox_t::add(outbox_message_t message, uint32_t lease, problem_t* problem) {
    const std::lock_guard lock(mutex_);
    const auto known = id_of(message.token);
    auto before = known ? find(*known, problem) : std::nullopt;
    const bool is_anew = lease != 0 && before && before->message.state == outbox_state_t::cancelled;
    if (known && !is_anew) {
        if (lease != 0 && leases_.holds(*known, base::tick64())) {
            hold_lease(*known, lease);
        }
        return before;
    }
    const int64_t room = signed_value_of(limit_t::outbox_size);
    if (const int64_t unsent = totals().unsent(); unsent >= room) {
        *problem = {device::error_full,
                    fmt::format("the outbox holds {} cards, and takes no more; see: zpd outbox", unsent)};
        return std::nullopt;
    }
    message.handed_in = unix_time();
    message.changed = message.handed_in;
    message.held = alone_.contains(message.number) || is_held_back(message.number);
    message.leased = lease != 0;
    const bool done = transaction(
        [&] {
            if (is_anew && !file_.run("UPDATE messages SET token = NULL WHERE id = ?1", *known)) {
                return false;
            }
            const auto id = outbox_file::insert(file_, message);
            message.id = id.value_or(0);
            return id && tell(message, "queued", message.handed_in);
        },
        true);
    if (!done) {
        *problem = not_written(file_);
        return std::nullopt;
    }
    message.octets.clear();
    if (message.leased) {
        hold_lease(message.id, lease);
    }
    changed(message.id);
    const std::optional<ahead_t> ahead = message.held ? std::nullopt : std::optional(ahead_of_last(message));
    return view_of(std::move(message), ahead);
}

std::optional<int64_t> outbox_t::id_of(const std::string& token) {
    execution_t query(file_.statement("SELECT id FROM messages WHERE token = ?1"));
    query.bind(1, std::string_view(token));
    return token.empty() ? std::nullopt : query.first_number();
}

std::optional<outbox_t::view_t> outbox_t::cancel(int64_t id, problem_t* problem) {
    std::unique_lock lock(mutex_);
    auto view = find(id, problem);
    if (!view || view->message.state == outbox_state_t::sent || view->message.state == outbox_state_t::cancelled ||
        view->message.state == outbox_state_t::cancelling) {
        return view;
    }
    if (!transaction([&] { return call_back(view->message); }, true)) {
        *problem = not_written(file_);
        return std::nullopt;
    }
    note_called_back(id);
    view = find(id, problem);
    lock.unlock();
    publish();
    return view;
}

// A step of a transaction. What is with the driver is over when the driver has let go of it.
bool outbox_t::call_back(outbox_message_t& message) {
    const bool with_driver = message.state == outbox_state_t::sending;
    message.state = with_driver ? outbox_state_t::cancelling : outbox_state_t::cancelled;
    message.changed = unix_time();
    return outbox_file::update(file_, message) && (with_driver || tell_end(message, message.changed));
}

void outbox_t::note_called_back(int64_t id) {
    leases_.remove(id);
    changed(id);
}

std::optional<outbox_t::view_t> outbox_t::retry(int64_t id, int64_t expires, problem_t* problem) {
    const std::lock_guard lock(mutex_);
    auto view = find(id, problem);
    if (!view) {
        return view;
    }
    outbox_message_t& message = view->message;
    if (message.state != outbox_state_t::set_aside && message.state != outbox_state_t::waiting) {
        *problem = {device::error_not_now,
                    fmt::format("message {} is {}: only one that was set aside, or waits, can be "
                                "tried again",
                                id, words_of(message.state))};
        return std::nullopt;
    }
    const bool was_aside = message.state == outbox_state_t::set_aside;
    message.leased = message.leased && !was_aside;
    message.state = outbox_state_t::waiting;
    message.held = alone_.contains(message.number);
    message.changed = unix_time();
    message.expires = expires;
    message.sent = 0;
    message.refusals = 0;
    message.reason = {};
    const bool done = transaction(
        [&] { return outbox_file::update(file_, message) && (!was_aside || tell(message, "queued", message.changed)); },
        true);
    if (!done) {
        *problem = not_written(file_);
        return std::nullopt;
    }
    changed(id);
    return find(id, problem);
}

std::optional<outbox_t::view_t> outbox_t::watch(int64_t id, uint64_t version, uint32_t milliseconds,
                                                problem_t* problem) {
    std::unique_lock lock(mutex_);
    std::optional<view_t> view = find(id, problem);
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(std::min(milliseconds, device::longest_wait));
    while (view && view->version == version && !ending_ &&
           changed_.wait_until(lock, deadline) != std::cv_status::timeout) {
        const auto now = versions_.find(id);
        if (now == versions_.end() || now->second != version) {
            view = find(id, problem);
        }
    }
    return view ? find(id, problem) : view;
}

std::vector<outbox_t::view_t> outbox_t::list(int64_t after, bool all, size_t most) {
    const std::lock_guard lock(mutex_);
    std::vector<view_t> views;
    std::vector<outbox_message_t> rows;
    {
        execution_t query(file_.statement(std::string(outbox_file::columns) + "FROM messages WHERE id > ?1 " +
                                          (all ? "" : "AND state NOT IN (3, 4) ") + "ORDER BY id LIMIT ?2"));
        query.bind(1, after);
        query.bind(2, static_cast<int64_t>(most));
        while (query.step() == SQLITE_ROW) {
            rows.push_back(outbox_file::row(query));
        }
    }
    views.reserve(rows.size());
    std::optional<ahead_t> ahead;  // of the next that waits
    for (outbox_message_t& message : rows) {
        const bool is_held = message.held;
        const view_t& view = views.emplace_back(view_of(std::move(message), is_held ? std::nullopt : ahead));
        if (view.ahead && !is_held) {
            ahead = {view.ahead->messages + 1, view.ahead->datagrams + view.message.datagrams};
        }
    }
    return views;
}

ordered_json outbox_t::events(int64_t after, int64_t since, uint32_t milliseconds, size_t room) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::milliseconds(std::min(milliseconds, device::longest_wait)),
                      [&] { return ending_ || log_.last() > after; });
    return log_.read(after, since, room);
}

outbox_t::counts_t outbox_t::counts() {
    const std::lock_guard lock(mutex_);
    return totals();
}

outbox_t::counts_t outbox_t::totals() {
    counts_t counts;
    execution_t query(file_.statement("SELECT state, messages, datagrams FROM totals WHERE state NOT IN (3, 4)"));
    while (query.step() == SQLITE_ROW) {
        const auto state = static_cast<outbox_state_t>(query.number(0));
        if (state == outbox_state_t::set_aside) {
            counts.set_aside += query.number(1);
        } else {
            (state == outbox_state_t::waiting ? counts.waiting : counts.sending) += query.number(1);
            counts.datagrams += query.number(2);
        }
    }
    counts.datagrams -= sent_of_all();
    counts.leased = static_cast<int64_t>(leases_.count());
    return counts;
}

void outbox_t::end_waits() {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    changed_.notify_all();
}

void outbox_t::note(const event_t& event) {
    note(event, [] { return true; });
}

void outbox_t::note_card(uint64_t number, const std::optional<event_t>& event) {
    note(event,
         [&] { return file_.run("INSERT OR REPLACE INTO marks VALUES ('card', ?1)", static_cast<int64_t>(number)); });
}

void outbox_t::note(const std::optional<event_t>& event, const std::function<bool()>& also) {
    {
        const std::lock_guard lock(mutex_);
        if (event) {
            lines_.emplace_back(event->priority, event->text);
        }
        static_cast<void>(transaction([&] { return (!event || log_.append(*event, unix_time())) && also(); }, false));
        changed_.notify_all();
    }
    publish();
}

std::optional<uint64_t> outbox_t::last_card() {
    const std::lock_guard lock(mutex_);
    const auto number = base::sqlite::number(file_.connection(), "SELECT value FROM marks WHERE name = 'card'");
    return number ? std::optional(static_cast<uint64_t>(*number)) : std::nullopt;
}

bool outbox_t::tell(const outbox_message_t& message, const char* kind, int64_t now) {
    const std::string text = event_text(message, kind);
    if (message.state != outbox_state_t::waiting) {
        const bool unsent = message.state == outbox_state_t::set_aside;
        lines_.emplace_back(unsent ? priority_t::warning : priority_t::info, text);
    }
    return log_.append({kind, text, {{"message", message_json(message)}}}, now);
}

bool outbox_t::tell_end(const outbox_message_t& message, int64_t now) {
    return tell(message, words_of(message.state), now);
}

outbox_t::view_t outbox_t::view_of(outbox_message_t message, const std::optional<ahead_t>& ahead) {
    view_t view;
    const auto version = versions_.find(message.id);
    view.version = version != versions_.end() ? version->second : 1;  // as long as nothing changes
    if (const auto progress = progress_.find(message.id); progress != progress_.end()) {
        view.driver_message = progress->second.driver_message;
        message.sent = progress->second.sent;
    }
    if (message.state == outbox_state_t::waiting && message.held) {
        execution_t hold(file_.statement("SELECT until, reason FROM numbers WHERE number = ?1"));
        hold.bind(1, std::string_view(message.number));
        if (hold.step() == SQLITE_ROW) {
            view.hold = hold_t{hold.number(0), hold.text(1)};
        }
    }
    if (message.state == outbox_state_t::waiting && !view.hold) {
        view.ahead = ahead ? *ahead : ahead_of(message);
    }
    view.message = std::move(message);
    return view;
}

// Those that are being sent, and those that may go and were handed in before; of one that waits for another of its
// number all of that number.
outbox_t::ahead_t outbox_t::ahead_of(const outbox_message_t& message) {
    execution_t query(file_.statement(
        "SELECT sum(messages), sum(datagrams) FROM (SELECT messages, datagrams FROM totals WHERE state IN (1, 2) "
        "UNION ALL SELECT count(*), coalesce(sum(datagrams), 0) FROM messages WHERE state = 0 AND held = 0 AND id < ?1 "
        "UNION ALL SELECT count(*), coalesce(sum(datagrams), 0) FROM messages WHERE state = 0 AND ?2 AND held = 1 "
        "AND number = ?3 AND id < ?1)"));
    query.bind(1, message.id);
    query.bind(2, int64_t{message.held});
    query.bind(3, std::string_view(message.number));
    return query.step() == SQLITE_ROW ? ahead_t{query.number(0), query.number(1) - sent_of_all()} : ahead_t{};
}

// The same of the last one, if it may go: without a look at each.
outbox_t::ahead_t outbox_t::ahead_of_last(const outbox_message_t& message) {
    execution_t query(
        file_.statement("SELECT sum(messages), sum(datagrams) FROM totals WHERE state IN (1, 2) OR (state = 0 AND "
                        "held = 0)"));
    return query.step() == SQLITE_ROW
               ? ahead_t{query.number(0) - 1, query.number(1) - message.datagrams - sent_of_all()}
               : ahead_t{};
}

int64_t outbox_t::sent_of_all() const {
    int64_t sent = 0;
    for (const auto& [id, progress] : progress_) {
        sent += progress.sent;
    }
    return sent;
}

std::optional<outbox_t::view_t> outbox_t::find(int64_t id, problem_t* problem) {
    std::optional<outbox_message_t> message = outbox_file::read(file_, id);
    if (!message) {
        *problem = {device::error_not_found, fmt::format("there is no message {} in the outbox; see: zpd outbox", id)};
        return std::nullopt;
    }
    return view_of(*std::move(message));
}

void outbox_t::changed(int64_t id) {
    versions_[id] = ++last_version_;
    changed_.notify_all();
}

void outbox_t::publish() {
    std::vector<std::pair<priority_t, std::string>> lines;
    {
        const std::lock_guard lock(mutex_);
        lines.swap(lines_);
    }
    for (const auto& [priority, line] : lines) {
        told_(priority, line);
    }
}
