/// Ownership of SQLite's objects, and one execution of a prepared statement.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace base::sqlite {

struct close_t {
    void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
};
using connection_t = std::unique_ptr<sqlite3, close_t>;

struct finalize_t {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using statement_t = std::unique_ptr<sqlite3_stmt, finalize_t>;

/// Null on failure; the connection tells why.
inline statement_t prepare(sqlite3* connection, std::string_view text) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v3(connection, text.data(), static_cast<int>(text.size()), SQLITE_PREPARE_PERSISTENT, &statement,
                       nullptr);
    return statement_t(statement);
}

/// What failed last on the connection, and what a person can do about it.
std::string failure_of(sqlite3* connection);

/// From the first binding to the last row; then the statement is ready for the next execution. One that could not be
/// prepared fails when it is stepped. What is bound must outlive this object. A binding that fails leaves NULL, which
/// no query of ours finds and the table refuses.
class execution_t {
  public:
    explicit execution_t(const statement_t& prepared) : statement(prepared.get()) {}
    ~execution_t() {
        if (statement != nullptr) {
            sqlite3_reset(statement);
            sqlite3_clear_bindings(statement);
        }
    }
    execution_t(const execution_t&) = delete;
    execution_t& operator=(const execution_t&) = delete;

    void bind(int index, std::string_view text) {
        sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
    }
    void bind(int index, int64_t number) { sqlite3_bind_int64(statement, index, number); }
    void bind(int index, std::span<const uint8_t> octets) {
        if (octets.empty()) {
            sqlite3_bind_zeroblob(statement, index, 0);  // a null pointer would be NULL
        } else {
            sqlite3_bind_blob64(statement, index, octets.data(), octets.size(), SQLITE_STATIC);
        }
    }

    /// SQLITE_ROW, SQLITE_DONE or an error.
    int step() { return sqlite3_step(statement); }

    /// Steps once: the number in the first column; none without a row.
    std::optional<int64_t> first_number() { return step() == SQLITE_ROW ? std::optional(number(0)) : std::nullopt; }

    int column_type(int column) const { return sqlite3_column_type(statement, column); }
    int64_t number(int column) const { return sqlite3_column_int64(statement, column); }
    /// Valid until the next step.
    std::span<const uint8_t> octets(int column) const {
        const auto* data = static_cast<const uint8_t*>(sqlite3_column_blob(statement, column));
        return {data, static_cast<size_t>(sqlite3_column_bytes(statement, column))};
    }
    std::string text(int column) const {
        const auto source = octets(column);
        return {source.begin(), source.end()};
    }

  private:
    sqlite3_stmt* statement;
};

}  // namespace base::sqlite
