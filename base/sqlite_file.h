/// An SQLite database of ours while it is open: statements that are prepared once, transactions, and failures that are
/// told once until something succeeds. A commit is on the disk when it returns, unless said otherwise. Not thread-safe.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/sqlite.h"

namespace base::sqlite {

class file_t {
  public:
    /// What its failures are told with: "cannot use NAME FILE: …; CONSEQUENCE". The texts are literals.
    struct words_t {
        std::string_view name;
        std::string_view consequence;
    };
    /// Brings the tables of a version, 0 for a new file, up to date. False when a statement failed.
    using make_tables_t = std::function<bool(sqlite3* connection, int64_t found_version)>;

    file_t(words_t words, std::function<void(const std::string&)> tell) : words_(words), tell_(std::move(tell)) {}

    /// Opens the file, or makes it, looks for damage and brings it up to date. Returns an empty text, or what failed,
    /// why and what to do.
    [[nodiscard]] std::string open(const std::filesystem::path& file, int64_t version,
                                   const make_tables_t& make_tables);
    [[nodiscard]] bool is_open() const { return connection_ != nullptr; }
    [[nodiscard]] sqlite3* connection() const { return connection_.get(); }

    const statement_t& statement(std::string_view text);
    /// One statement that gives no rows; false, and told, when it fails.
    template <typename... values_t>
    bool run(std::string_view text, const values_t&... values) {
        execution_t execution(statement(text));
        int index = 0;
        (execution.bind(++index, values), ...);
        return execution.step() == SQLITE_DONE || fail();
    }
    /// Runs `steps`, which return whether they succeeded: all of it is on the disk then, or nothing was done.
    template <typename steps_t>
    bool transaction(const steps_t& steps) {
        return (run("BEGIN IMMEDIATE") && steps() && run("COMMIT")) ? succeed() : roll_back();
    }
    /// The same without waiting for the disk: a kill takes nothing back, a loss of power may. The next transaction puts
    /// it there.
    template <typename steps_t>
    bool soon(const steps_t& steps) {
        set_synchronous(false);
        const bool done = transaction(steps);
        set_synchronous(true);
        return done;
    }
    /// Of what failed last. Returns false.
    bool fail();
    /// That in words, also when it was rolled back; empty when nothing has failed yet.
    [[nodiscard]] const std::string& failure() const { return failure_; }
    /// Of something else that stands in the way as much.
    bool fail(const std::string& text);

  private:
    bool succeed();
    bool roll_back();
    void set_synchronous(bool full);

    connection_t connection_;
    std::map<std::string, statement_t, std::less<>> statements_;  // by their texts
    std::filesystem::path file_;
    const words_t words_;
    const std::function<void(const std::string&)> tell_;
    std::string failure_;
    bool failure_told_ = false;
};

/// Statements without rows or values, one after the other. False when one fails.
bool run_all(sqlite3* connection, const char* statements);
/// One number; none when there is no row, or it cannot be read.
std::optional<int64_t> number(sqlite3* connection, const char* query);

}  // namespace base::sqlite
