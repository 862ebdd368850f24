#include "service/event_log.h"

using base::sqlite::execution_t;
using nlohmann::ordered_json;

bool event_log_t::make_table(sqlite3* connection) {
    return base::sqlite::run_all(connection, R"(
        CREATE TABLE IF NOT EXISTS events (
            id INTEGER PRIMARY KEY AUTOINCREMENT,
            time INTEGER NOT NULL,
            kind TEXT NOT NULL,
            text TEXT NOT NULL,
            about TEXT NOT NULL);
        CREATE INDEX IF NOT EXISTS event_times ON events (time);)");
}

bool event_log_t::load() {
    const auto last = base::sqlite::number(file_.connection(), "SELECT coalesce(max(id), 0) FROM events");
    last_ = last.value_or(0);
    return last.has_value();
}

bool event_log_t::append(const event_t& event, int64_t now) {
    const std::string about = event.about.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    if (!file_.run("INSERT INTO events (time, kind, text, about) VALUES (?1, ?2, ?3, ?4)", now,
                   std::string_view(event.kind), std::string_view(event.text), std::string_view(about))) {
        return false;
    }
    last_ = sqlite3_last_insert_rowid(file_.connection());
    return true;
}

ordered_json event_log_t::read(int64_t after, int64_t since, size_t room) {
    constexpr size_t names_and_numbers = 128;
    ordered_json events = ordered_json::array();
    bool more = false;
    size_t used = 0;
    execution_t query(
        file_.statement("SELECT id, time, kind, text, about FROM events WHERE id > ?1 AND time >= ?2 ORDER BY id"));
    query.bind(1, after);
    query.bind(2, since);
    while (!more && query.step() == SQLITE_ROW) {
        const std::string text = query.text(3);
        const std::string about = query.text(4);
        ordered_json event = {
            {"id", query.number(0)}, {"time", query.number(1)}, {"kind", query.text(2)}, {"text", text}};
        event.update(ordered_json::parse(about, nullptr, false));
        used += names_and_numbers + 2 * text.size() + about.size();
        more = used > room && !events.empty();
        if (!more) {
            events.push_back(std::move(event));
        }
    }
    return {{"events", events}, {"more", more}};
}

bool event_log_t::forget_before(int64_t time) {
    return file_.run("DELETE FROM events WHERE time < ?1 AND id < (SELECT max(id) FROM events)", time);
}
