/// What has happened to cards, to the modem and to the service, a row each, for who was away: kept for `journal-age`. A
/// part of the outbox and of its file. Not thread-safe.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "base/sqlite_file.h"
#include "base/told_line.h"

struct event_t {
    std::string kind;
    std::string text;                                                 // a line for a person
    nlohmann::ordered_json about = nlohmann::ordered_json::object();  // members beside those, such as "message"
    base::priority_t priority = base::priority_t::info;
};

class event_log_t {
  public:
    /// The file outlives the object.
    explicit event_log_t(base::sqlite::file_t& file) : file_(file) {}

    static bool make_table(sqlite3* connection);
    /// Within a transaction of the file. False when it fails.
    [[nodiscard]] bool append(const event_t& event, int64_t now);
    /// { events, more }: with ids above `after` and not older than `since`, as many as fit `room` octets, but one
    /// at least.
    [[nodiscard]] nlohmann::ordered_json read(int64_t after, int64_t since, size_t room);
    /// The id of the last one; 0 before the first.
    [[nodiscard]] int64_t last() const { return last_; }
    [[nodiscard]] bool load();
    [[nodiscard]] bool forget_before(int64_t time);

  private:
    base::sqlite::file_t& file_;
    int64_t last_ = 0;
};
