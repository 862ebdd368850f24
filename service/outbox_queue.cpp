// Which of the cards goes next, and what becomes of one that went.
#include <algorithm>

#include "base/clock.h"
#include "radio/limits.h"
#include "service/outbox.h"

using base::unix_time;
using base::sqlite::execution_t;
using radio::limit_t;
using radio::signed_value_of;

namespace {

constexpr int64_t day = 86'400;

}  // namespace

std::optional<outbox_message_t> outbox_t::take_next() {
    const std::lock_guard lock(mutex_);
    const int64_t now = unix_time();
    const auto id = next_id(now);
    const bool may_go = id && !leases_.has_ended(*id, base::tick64());
    std::optional<outbox_message_t> message = may_go ? outbox_file::read(file_, *id) : std::nullopt;
    if (!message) {
        return message;
    }
    message->octets = outbox_file::octets_of(file_, *id);
    message->state = outbox_state_t::sending;
    message->changed = now;
    const bool alone = !proven_.contains(message->number);
    const bool done = transaction(
        [&] {
            return file_.run("UPDATE messages SET state = 1, held = 0, changed = ?2 WHERE id = ?1", *id, now) &&
                   (!alone || file_.run("UPDATE messages SET held = 1 WHERE number = ?1 AND state = 0 AND held = 0",
                                        std::string_view(message->number)));
        },
        false);
    if (!done) {
        return std::nullopt;
    }
    if (alone) {
        alone_[message->number] = *id;
    }
    changed(*id);
    return message;
}

// One of a number whose pause is over goes before the others: it is the older one, as a rule. A pause that nobody waits
// for any more is forgotten.
std::optional<int64_t> outbox_t::next_id(int64_t now) {
    std::vector<std::string> over;
    {
        execution_t due(file_.statement("SELECT number FROM numbers WHERE until <= ?1"));
        due.bind(1, now);
        while (due.step() == SQLITE_ROW) {
            over.push_back(due.text(0));
        }
    }
    for (const std::string& number : over) {
        if (alone_.contains(number)) {
            continue;
        }
        execution_t first(
            file_.statement("SELECT id FROM messages WHERE number = ?1 AND state = 0 ORDER BY id LIMIT 1"));
        first.bind(1, std::string_view(number));
        if (const auto id = first.first_number()) {
            return id;
        }
        static_cast<void>(file_.run("DELETE FROM numbers WHERE number = ?1", std::string_view(number)));
    }
    execution_t ready(file_.statement("SELECT id FROM messages WHERE state = 0 AND held = 0 ORDER BY id LIMIT 1"));
    return ready.first_number();
}

void outbox_t::note_progress(int64_t id, int64_t sent, std::optional<uint32_t> driver_message) {
    const std::lock_guard lock(mutex_);
    progress_[id] = {sent, driver_message};
    changed(id);
}

void outbox_t::note_success(const std::string& number) {
    const std::lock_guard lock(mutex_);
    constexpr size_t most = 10'000;
    if (proven_.size() >= most) {
        proven_.clear();
    }
    if (proven_.contains(number)) {
        return;
    }
    const bool done = transaction(
        [&] { return file_.run("DELETE FROM numbers WHERE number = ?1", std::string_view(number)) && release(number); },
        false);
    if (done) {
        proven_.insert(number);
        alone_.erase(number);
    }
}

bool outbox_t::finish_sent(int64_t id) {
    return finish(
        id, outbox_state_t::sent,
        [](outbox_message_t& message) {
            message.sent = message.datagrams;
            message.reason = {};
        },
        false);
}

bool outbox_t::finish_cancelled(int64_t id, int64_t sent) {
    return finish(
        id, outbox_state_t::cancelled, [&](outbox_message_t& message) { message.sent = sent; }, false);
}

bool outbox_t::set_aside(int64_t id, int64_t sent, int64_t refusals, const reason_t& reason, bool refused) {
    return finish(
        id, outbox_state_t::set_aside,
        [&](outbox_message_t& message) {
            message.sent = sent;
            message.refusals = refusals;
            message.reason = reason;
        },
        refused);
}

bool outbox_t::refuse(int64_t id, int64_t refusals, const reason_t& reason) {
    return finish(
        id, outbox_state_t::waiting,
        [&](outbox_message_t& message) {
            message.refusals = refusals;
            message.reason = reason;
        },
        true);
}

bool outbox_t::give_back(int64_t id) {
    return finish(
        id, outbox_state_t::waiting, [](outbox_message_t&) {}, false);
}

// One that was called back meanwhile is cancelled, unless all of it has gone. The others of its number wait on while
// one of them is tried for all, or the number is held back.
bool outbox_t::finish(int64_t id, outbox_state_t state, const change_t& change, bool hold) {
    {
        const std::lock_guard lock(mutex_);
        std::optional<outbox_message_t> message = outbox_file::read(file_, id);
        if (!message || is_over(message->state)) {
            return true;
        }
        const int64_t now = unix_time();
        const bool is_called_back = message->state == outbox_state_t::cancelling && state != outbox_state_t::sent;
        message->state = is_called_back ? outbox_state_t::cancelled : state;
        message->sent = is_over(message->state) ? progress_[id].sent : 0;
        message->changed = now;
        if (!is_called_back) {
            change(*message);
        }
        const std::string& number = message->number;
        const auto alone = alone_.find(number);
        const bool is_alone = alone != alone_.end() && alone->second == id;
        const bool lets_go = !hold && (is_alone || alone == alone_.end()) && !is_held_back(number);
        message->held = !lets_go;
        const bool done = transaction(
            [&] {
                return outbox_file::update(file_, *message) &&
                       (!hold || hold_back(number, message->reason.text, now)) && (!lets_go || release(number)) &&
                       (!is_over(message->state) || tell_end(*message, now));
            },
            false);
        if (!done) {
            return false;
        }
        if (is_alone) {
            alone_.erase(alone);
        }
        if (hold) {
            proven_.erase(number);
        }
        progress_.erase(id);
        changed(id);
        if (is_over(message->state)) {
            versions_.erase(id);
            leases_.remove(id);
        }
    }
    publish();
    return true;
}

// The pause doubles with each refusal.
bool outbox_t::hold_back(const std::string& number, const std::string& reason, int64_t now) {
    execution_t query(file_.statement("SELECT refusals FROM numbers WHERE number = ?1"));
    query.bind(1, std::string_view(number));
    const int64_t refusals = query.first_number().value_or(0) + 1;
    int64_t pause = signed_value_of(limit_t::held_back);
    for (int64_t times = 1; times < refusals && pause < signed_value_of(limit_t::held_back_most); ++times) {
        pause *= 2;
    }
    pause = std::min(pause, signed_value_of(limit_t::held_back_most));
    return file_.run("INSERT OR REPLACE INTO numbers VALUES (?1, ?2, ?3, ?4)", std::string_view(number), refusals,
                     now + pause, std::string_view(reason)) &&
           file_.run("UPDATE messages SET held = 1 WHERE number = ?1 AND state = 0 AND held = 0",
                     std::string_view(number));
}

bool outbox_t::release(const std::string& number) {
    return file_.run("UPDATE messages SET held = 0 WHERE number = ?1 AND state = 0 AND held = 1",
                     std::string_view(number));
}

bool outbox_t::is_held_back(const std::string& number) {
    execution_t query(file_.statement("SELECT 1 FROM numbers WHERE number = ?1"));
    query.bind(1, std::string_view(number));
    return query.first_number().has_value();
}

void outbox_t::forget() {
    const std::lock_guard lock(mutex_);
    const int64_t oldest = unix_time() - signed_value_of(limit_t::journal_age) * day;
    static_cast<void>(transaction(
        [&] {
            return file_.run("DELETE FROM messages WHERE state IN (3, 4) AND changed < ?1", oldest) &&
                   log_.forget_before(oldest);
        },
        false));
}

void outbox_t::expire() {
    std::vector<int64_t> expired;
    {
        const std::lock_guard lock(mutex_);
        execution_t query(file_.statement("SELECT id FROM messages WHERE state = 0 AND expires > 0 AND expires <= ?1"));
        query.bind(1, unix_time());
        while (query.step() == SQLITE_ROW) {
            expired.push_back(query.number(0));
        }
    }
    for (const int64_t id : expired) {
        static_cast<void>(set_aside(id, 0, 0, {"it expired before it could be sent"}, false));
    }
}

std::optional<int64_t> outbox_t::next_due() {
    const std::lock_guard lock(mutex_);
    execution_t query(
        file_.statement("SELECT min(at) FROM (SELECT min(until) AS at FROM numbers WHERE until > ?1 UNION ALL "
                        "SELECT min(expires) FROM messages WHERE state = 0 AND expires > 0 AND expires > ?1)"));
    const int64_t now = unix_time();
    query.bind(1, now);
    std::optional<int64_t> due;
    if (query.step() == SQLITE_ROW && query.column_type(0) == SQLITE_INTEGER) {
        due = query.number(0);
    }
    return again_ > now ? std::min(due.value_or(again_), again_) : due;
}
