/// The journal's file while it is open: statements that are prepared once, transactions, and failures that are told
/// once until something succeeds. Not thread-safe.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "base/sqlite.h"

namespace radio {

class journal_database_t {
  public:
    /// Opens the file, or makes it, brings it up to date and looks for damage. Returns an empty text, or what failed,
    /// why and what to do.
    [[nodiscard]] std::string open(const std::filesystem::path& file);
    [[nodiscard]] bool is_open() const { return connection_ != nullptr; }
    [[nodiscard]] sqlite3* connection() const { return connection_.get(); }

    const base::sqlite::statement_t& statement(std::string_view text);
    /// One statement that gives no rows; false, and told, when it fails.
    template <typename... values_t>
    bool run(std::string_view text, const values_t&... values) {
        base::sqlite::execution_t execution(statement(text));
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
    /// Of something else that keeps datagrams from being taken.
    bool fail(const std::string& text);

  private:
    bool succeed();
    bool roll_back();
    void set_synchronous(bool full);

    base::sqlite::connection_t connection_;
    std::map<std::string, base::sqlite::statement_t, std::less<>> statements_;  // by their texts
    std::filesystem::path file_;
    bool failure_told_ = false;
};

}  // namespace radio
