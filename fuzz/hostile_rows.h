/// Rows of any types and values in the tables of a database that is well-formed: as somebody's tool may have left them.
#pragma once

#include <string>
#include <vector>

#include "base/sqlite.h"
#include "fuzz/fuzz.h"
#include "fuzz/input.h"

class hostile_rows_t {
  public:
    /// The file, whose owner has made its tables.
    explicit hostile_rows_t(const std::string& file) {
        sqlite3* handle = nullptr;
        must(sqlite3_open(file.c_str(), &handle) == SQLITE_OK);
        connection_.reset(handle);
        run("PRAGMA synchronous = OFF");
        const auto tables = base::sqlite::prepare(handle, "SELECT name FROM sqlite_master WHERE type = 'table'");
        for (base::sqlite::execution_t query(tables); query.step() == SQLITE_ROW;) {
            tables_.push_back(query.text(0));
        }
    }

    /// In place of those before. `plausible` stands among the values.
    void replace(input_t& input, const std::vector<std::string>& plausible) {
        run("BEGIN");
        for (const std::string& table : tables_) {
            run("DELETE FROM " + table);
        }
        for (size_t rows = input.below(16); rows > 0; --rows) {
            insert(tables_[input.below(tables_.size())], input, plausible);
        }
        run("COMMIT");
    }

  private:
    void run(const std::string& text) {
        must(sqlite3_exec(connection_.get(), text.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
    }
    /// What the table refuses is not there.
    void insert(const std::string& table, input_t& input, const std::vector<std::string>& plausible) {
        const auto columns = base::sqlite::prepare(connection_.get(), "SELECT * FROM " + table);
        std::string text = "INSERT OR IGNORE INTO " + table + " VALUES (?";
        for (int count = sqlite3_column_count(columns.get()); count > 1; --count) {
            text += ",?";
        }
        const auto insertion = base::sqlite::prepare(connection_.get(), text + ")");
        for (int column = 1; column <= sqlite3_bind_parameter_count(insertion.get()); ++column) {
            bind(insertion.get(), column, input, plausible);
        }
        must(sqlite3_step(insertion.get()) != SQLITE_ROW);
    }
    static void bind(sqlite3_stmt* row, int column, input_t& input, const std::vector<std::string>& plausible) {
        switch (input.below(8)) {
            case 0:
                return;  // NULL
            case 1:
                sqlite3_bind_int64(row, column, static_cast<int64_t>(uint64_t{input.u32()} << 32 | input.u32()));
                return;
            case 2:
                sqlite3_bind_double(row, column, static_cast<double>(input.u32()) * 1e300);
                return;
            case 3:
            case 4:
                sqlite3_bind_int64(row, column, input.octet());
                return;
            case 5:
                return bind_octets(row, column, input.piece(255), input.below(2) == 0);
            default:
                return bind_octets(row, column, plausible[input.below(plausible.size())], input.below(2) == 0);
        }
    }
    static void bind_octets(sqlite3_stmt* row, int column, const std::string& octets, bool as_text) {
        if (as_text) {
            sqlite3_bind_text64(row, column, octets.data(), octets.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        } else {
            sqlite3_bind_blob64(row, column, octets.data(), octets.size(), SQLITE_TRANSIENT);
        }
    }

    base::sqlite::connection_t connection_;
    std::vector<std::string> tables_;
};
