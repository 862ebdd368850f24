#include "radio/incomplete_messages.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>

#include "radio/journal_file.h"
#include "radio/limits.h"

namespace radio {

namespace {

using base::sqlite::execution_t;

// When the first of them came; those of one message have neighbouring rows, or nearly.
int64_t since(sqlite3* connection, const std::vector<int64_t>& ids) {
    const base::sqlite::statement_t statement =
        base::sqlite::prepare(connection, "SELECT came FROM datagrams WHERE id = ?1");
    execution_t query(statement);
    query.bind(1, std::ranges::min(ids));
    return query.step() == SQLITE_ROW ? query.number(0) : 0;
}

bool read(sqlite3* connection, std::vector<incomplete_message_t>& messages) {
    journal_file::contents_t contents;
    if (!journal_file::read(connection, contents)) {
        return false;
    }
    const assembly::rules_t rules{
        .close = 0, .wait = 0, .apart = static_cast<int64_t>(value_of(limit_t::apart_datagrams))};
    for (const auto& [message, group] : contents.groups) {
        for (const assembly::incomplete_t& incomplete : assembly::incomplete(group.records, rules)) {
            if (!incomplete.repeats && incomplete.places < group.parts) {
                messages.push_back({group.sender, since(connection, incomplete.ids), incomplete.places, group.parts});
            }
        }
    }
    std::ranges::sort(messages, {}, &incomplete_message_t::since);
    return true;
}

}  // namespace

std::vector<incomplete_message_t> incomplete_messages(const std::filesystem::path& home, std::string* error) {
    const std::filesystem::path file = journal_file::path(home);
    std::vector<incomplete_message_t> messages;
    std::error_code failure;
    const std::filesystem::file_status status = std::filesystem::status(file, failure);
    if (status.type() == std::filesystem::file_type::not_found) {
        return messages;
    }
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
    const base::sqlite::connection_t connection(handle);
    if (result != SQLITE_OK || !read(handle, messages)) {
        *error = fmt::format("cannot read the journal {}: {}", file.native(),
                             failure ? failure.message() : base::sqlite::failure_of(handle));
    }
    return messages;
}

}  // namespace radio
