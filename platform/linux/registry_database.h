/// The registry's file: one SQLite table, `registry`, with a row a value: key, name, type, data. Keys are full paths
/// (`HKEY_LOCAL_MACHINE\Software\…`) in the spelling in which they were first written. A row whose name is NULL stands
/// for the key itself; the name '' is a key's default value. Keys and names compare without the case of ASCII letters:
/// SQLite's own NOCASE, so that any tool that opens the file compares as we do.
///
/// For people's sake a REG_DWORD is kept as a number, a REG_SZ as text, the rest as a BLOB; data that would not come
/// back the same from a number or a text is a BLOB too.
///
/// Durability. The journal is a write-ahead log and `synchronous` is NORMAL: a commit is one write to the log without
/// waiting for the disk, so it is cheap, yet survives the death of the process (the host has it), and a power cut loses
/// at most the latest commits, never the file's integrity. flush() then waits until the log is on the disk.
///
/// A write that fails is also told on the standard error stream, in the database's own words: the driver has no place
/// for them.
///
/// All calls return ERROR_SUCCESS or a Win32 error, and are safe from any thread and beside other processes.
#pragma once

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/sqlite.h"

namespace platform {

struct registry_value_t {
    DWORD type = 0;
    std::vector<uint8_t> data;
};

class registry_database_t {
  public:
    /// Opens the file, making it when it is missing. On an error, `reason` tells what is wrong with it.
    [[nodiscard]] static LONG open(const std::filesystem::path& file, std::shared_ptr<registry_database_t>& database,
                                   std::string& reason);

    /// ERROR_FILE_NOT_FOUND when there is no such key; else `key` is put into its own spelling.
    [[nodiscard]] LONG find_key(std::string& key);
    /// Makes `key` and the keys above it, down from `root_length` octets of it, where they are missing; puts it into
    /// its own spelling. `created` tells whether `key` itself was.
    [[nodiscard]] LONG create_key(std::string& key, size_t root_length, bool& created);
    [[nodiscard]] LONG read(std::string_view key, std::string_view name, registry_value_t& value);
    [[nodiscard]] LONG write(std::string_view key, std::string_view name, DWORD type, std::span<const uint8_t> data);
    /// Returns when everything written so far survives a power cut.
    [[nodiscard]] LONG flush();
    /// Moves all that was written into the one file.
    void checkpoint();

  private:
    LONG prepare(std::string& reason);
    LONG check(std::string& reason) const;
    LONG told(LONG error, const std::string& what) const;
    LONG look_up(std::string& key);
    LONG create_missing(std::string& key, size_t root_length, bool& created);

    std::filesystem::path path;
    std::mutex mutex;  // guards the connection and its statements
    base::sqlite::connection_t connection;
    base::sqlite::statement_t key_query, key_insert, value_query, value_update, begin, commit, rollback;
};

}  // namespace platform
