#include "radio/incomplete_messages.h"

#include <fmt/format.h>

#include <system_error>

#include "base/sqlite.h"
#include "radio/journal.h"

namespace radio {

namespace {

constexpr std::string_view query_text =
    "SELECT sender, min(came), count(*), parts FROM datagrams "
    "GROUP BY message, generation HAVING count(*) < parts ORDER BY min(id)";

}  // namespace

std::vector<incomplete_message_t> incomplete_messages(const std::filesystem::path& home, std::string* error) {
    const std::filesystem::path file = journal_file(home);
    std::vector<incomplete_message_t> messages;
    std::error_code failure;
    const std::filesystem::file_status status = std::filesystem::status(file, failure);
    if (status.type() == std::filesystem::file_type::not_found) {
        return messages;
    }
    sqlite3* handle = nullptr;
    int result = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr);
    const base::sqlite::connection_t connection(handle);
    const base::sqlite::statement_t statement =
        result == SQLITE_OK ? base::sqlite::prepare(handle, query_text) : nullptr;
    base::sqlite::execution_t query(statement);
    while ((result = query.step()) == SQLITE_ROW) {
        messages.push_back({query.text(0), query.number(1), static_cast<size_t>(query.number(2)),
                            static_cast<size_t>(query.number(3))});
    }
    if (result != SQLITE_DONE) {
        *error = fmt::format("cannot read the journal {}: {}", file.native(),
                             failure ? failure.message() : std::string(sqlite3_errmsg(handle)));
    }
    return messages;
}

}  // namespace radio
