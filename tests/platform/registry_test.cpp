#include "platform/linux/registry.h"

#include <signal.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <vector>

#include "base/sqlite.h"
#include "base/text.h"
#include "tests/platform/fixture.h"

using octets_t = std::vector<BYTE>;

class registry_test_t : public home_test_t {
  protected:
    void TearDown() override {
        for (HKEY key : created) {
            RegCloseKey(key);
        }
        home_test_t::TearDown();
    }
    HKEY create(LPCWSTR path, DWORD access = KEY_READ | KEY_WRITE, DWORD* disposition = nullptr) {
        HKEY key = nullptr;
        EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, access, nullptr, &key, disposition), 0);
        created.push_back(key);
        return key;
    }
    static LONG set(HKEY key, LPCWSTR name, DWORD type, const octets_t& data) {
        return RegSetValueExW(key, name, 0, type, data.data(), static_cast<DWORD>(data.size()));
    }
    static std::pair<DWORD, octets_t> get(HKEY key, LPCWSTR name) {
        DWORD type = 0;
        DWORD size = 4096;
        octets_t data(size);
        const LONG error = RegQueryValueExW(key, name, nullptr, &type, data.data(), &size);
        EXPECT_EQ(error, 0);
        data.resize(error == 0 ? size : 0);
        return {type, data};
    }
    std::vector<HKEY> created;

    /// The first row of a query on the file, as another program sees it.
    std::string ask(const std::string& query) const {
        sqlite3* connection = nullptr;
        sqlite3_open((box / "home" / "registry.sqlite").c_str(), &connection);
        const base::sqlite::connection_t owner(connection);
        const auto statement = base::sqlite::prepare(connection, query);
        std::string row;
        if (statement != nullptr && sqlite3_step(statement.get()) == SQLITE_ROW) {
            for (int i = 0; i < sqlite3_column_count(statement.get()); ++i) {
                row += (i == 0 ? "" : "|");
                row += reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), i));
            }
        }
        return row;
    }
    void reopen() const { ASSERT_EQ(platform::set_home(box / "home"), ""); }
};

TEST_F(registry_test_t, tells_the_size_and_delivers_only_what_fits) {
    HKEY key = create(TEXT("\\Software\\A"));
    ASSERT_EQ(set(key, TEXT("v"), REG_BINARY, {1, 2, 3}), 0);
    DWORD type = 99;
    DWORD size = 99;
    EXPECT_EQ(poisoned([&] { return RegQueryValueExW(key, TEXT("v"), nullptr, &type, nullptr, &size); }),
              std::pair(0, poison));
    EXPECT_EQ(std::pair(type, size), std::pair(REG_BINARY, DWORD{3}));
    std::array<BYTE, 4> data{9, 9, 9, 9};
    EXPECT_EQ(RegQueryValueExW(key, TEXT("v"), nullptr, nullptr, data.data(), &size), 0);
    EXPECT_THAT(data, testing::ElementsAre(1, 2, 3, 9));
    data.fill(9);
    size = 2;
    EXPECT_EQ(RegQueryValueExW(key, TEXT("v"), nullptr, &type, data.data(), &size), ERROR_MORE_DATA);
    EXPECT_EQ(size, 3U);
    EXPECT_THAT(data, testing::Each(9));
    EXPECT_EQ(RegQueryValueExW(key, TEXT("w"), nullptr, &type, data.data(), &size), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegQueryValueExW(key, TEXT("v"), nullptr, &type, data.data(), nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(RegSetValueExW(key, TEXT("v"), 0, REG_BINARY, nullptr, 1), ERROR_INVALID_PARAMETER);
}

TEST_F(registry_test_t, compares_without_case_and_keeps_the_first_spelling) {
    DWORD disposition = 0;
    HKEY key = create(TEXT("\\Software\\Varkon"), KEY_READ | KEY_WRITE, &disposition);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    ASSERT_EQ(set(key, TEXT("Capacity"), REG_DWORD, {7, 0, 0, 0}), 0);
    RegCloseKey(key);
    reopen();
    key = create(TEXT("SOFTWARE\\varkon\\New"), KEY_READ | KEY_WRITE, &disposition);
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    HKEY parent = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("software\\VARKON"), 0, KEY_READ | KEY_WRITE, &parent), 0);
    EXPECT_EQ(get(parent, TEXT("CAPACITY")), std::pair(REG_DWORD, (octets_t{7, 0, 0, 0})));
    ASSERT_EQ(set(parent, TEXT("capacitY"), REG_DWORD, {8, 0, 0, 0}), 0);
    EXPECT_EQ(RegCreateKeyExW(parent, TEXT("nEW"), 0, nullptr, 0, KEY_QUERY_VALUE, nullptr, &key, &disposition), 0);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    EXPECT_EQ(ask("SELECT * FROM registry WHERE name IS NOT NULL"),
              "HKEY_LOCAL_MACHINE\\Software\\Varkon|Capacity|4|8");
    EXPECT_EQ(ask("SELECT group_concat(key, ';') FROM (SELECT key FROM registry WHERE name IS NULL ORDER BY key)"),
              "HKEY_LOCAL_MACHINE\\Software;HKEY_LOCAL_MACHINE\\Software\\Varkon;"
              "HKEY_LOCAL_MACHINE\\Software\\Varkon\\New");
}

TEST_F(registry_test_t, refuses_what_handle_and_access_do_not_allow) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("Nowhere"), 0, KEY_QUERY_VALUE, &key), ERROR_FILE_NOT_FOUND);
    key = create(TEXT("A\\B"), KEY_QUERY_VALUE);
    EXPECT_EQ(set(key, TEXT("v"), REG_DWORD, {1, 0, 0, 0}), ERROR_ACCESS_DENIED);
    HKEY writer = create(TEXT("A\\B"), 0x2);
    EXPECT_EQ(set(writer, nullptr, REG_DWORD, {1, 0, 0, 0}), 0);
    EXPECT_EQ(RegQueryValueExW(writer, nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_ACCESS_DENIED);
    EXPECT_EQ(get(key, TEXT("")), std::pair(REG_DWORD, (octets_t{1, 0, 0, 0})));
    EXPECT_EQ(RegCloseKey(key), 0);
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (HKEY bad : {key, HKEY{}, static_cast<HKEY>(event), static_cast<HKEY>(INVALID_HANDLE_VALUE)}) {
        EXPECT_EQ(RegFlushKey(bad), ERROR_INVALID_HANDLE);
        EXPECT_EQ(set(bad, TEXT("v"), REG_DWORD, {}), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegQueryValueExW(bad, TEXT("v"), nullptr, nullptr, nullptr, nullptr), ERROR_INVALID_HANDLE);
        EXPECT_EQ(RegCloseKey(bad), ERROR_INVALID_HANDLE);
    }
    CloseHandle(event);
}

TEST_F(registry_test_t, keeps_every_value_and_shows_people_what_it_is) {
    const std::tuple<DWORD, octets_t, const char*> rows[] = {
        {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}, "integer|4294967295"},
        {REG_DWORD, {1, 2}, "blob|0102"},
        {REG_SZ, {'h', 0, 0xE9, 0, 0, 0}, "text|68C3A9"},
        {REG_SZ, {0, 0}, "text|"},
        {REG_SZ, {'h', 0}, "blob|6800"},             // no terminator
        {REG_SZ, {'h', 0, 0}, "blob|680000"},        // half a unit
        {REG_SZ, {0, 0xD8, 0, 0}, "blob|00D80000"},  // a lone surrogate
        {REG_SZ, {}, "blob|"},
        {REG_BINARY, {'a', 0, ';'}, "blob|61003B"},
        {REG_BINARY, {}, "blob|"},
    };
    HKEY key = create(TEXT("K"));
    for (const auto& [type, data, kept_as] : rows) {
        ASSERT_EQ(set(key, TEXT("v"), type, data), 0);
        EXPECT_EQ(get(key, TEXT("v")), std::pair(type, data)) << kept_as;
        EXPECT_EQ(ask("SELECT typeof(data), CASE typeof(data) WHEN 'integer' THEN data ELSE hex(data) END "
                      "FROM registry WHERE name = 'V'"),
                  kept_as);
    }
    // What people write with a tool of theirs.
    ask("UPDATE registry SET type = 3, data = 'a;b' WHERE name = 'v'");
    EXPECT_EQ(get(key, TEXT("v")), std::pair(REG_BINARY, (octets_t{'a', ';', 'b'})));
    ask("UPDATE registry SET type = 4, data = 4294967296 WHERE name = 'v'");
    EXPECT_EQ(get(key, TEXT("v")).second.size(), 8U);
}

TEST_F(registry_test_t, survives_a_killed_process) {
    const pid_t child = fork();
    if (child == 0) {
        reopen();
        HKEY key = create(TEXT("K"));
        const bool good = set(key, TEXT("flushed"), REG_BINARY, {1}) == ERROR_SUCCESS &&
                          RegFlushKey(key) == ERROR_SUCCESS &&
                          set(key, TEXT("written"), REG_BINARY, {2}) == ERROR_SUCCESS;
        kill(getpid(), good ? SIGKILL : SIGABRT);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    reopen();
    HKEY key = create(TEXT("K"));
    EXPECT_EQ(get(key, TEXT("flushed")), std::pair(REG_BINARY, octets_t{1}));
    EXPECT_EQ(get(key, TEXT("written")), std::pair(REG_BINARY, octets_t{2}));
}

TEST_F(registry_test_t, is_shared_by_processes_from_its_first_moment) {
    constexpr int processes = 4;
    constexpr BYTE values = 50;
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(fork());
        if (children.back() != 0) {
            continue;
        }
        reopen();
        HKEY key = create(TEXT("Shared\\K"));
        bool good = true;
        for (BYTE v = 0; v < values; ++v) {
            const std::u16string name = {static_cast<WCHAR>(u'a' + i), static_cast<WCHAR>(0x100 + v)};
            good = good && set(key, name.c_str(), REG_BINARY, {v}) == ERROR_SUCCESS;
        }
        _exit(good ? 0 : 1);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(ask("SELECT count(*), count(name) FROM registry"), "202|200");
    EXPECT_EQ(ask("PRAGMA integrity_check"), "ok");
}

TEST_F(registry_test_t, waits_milliseconds_for_another_program_and_ends_in_one_file) {
    const HKEY key = create(TEXT("K"));
    EXPECT_EQ(set(key, TEXT("before"), REG_DWORD, {1, 0, 0, 0}), 0);
    sqlite3* opened = nullptr;
    sqlite3_open((box / "home" / "registry.sqlite").c_str(), &opened);
    base::sqlite::connection_t other(opened);
    sqlite3_exec(opened, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    const auto began = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    EXPECT_EQ(set(key, TEXT("value"), REG_DWORD, {1, 0, 0, 0}), ERROR_GEN_FAILURE);
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(2));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("another program holds it: end what does"));
    EXPECT_EQ(get(key, TEXT("before")).second, (octets_t{1, 0, 0, 0})) << "reading goes on";
    other.reset();
    EXPECT_EQ(set(key, TEXT("value"), REG_DWORD, {1, 0, 0, 0}), 0);
    platform::checkpoint_registry();
    EXPECT_EQ(std::filesystem::file_size(box / "home" / "registry.sqlite-wal"), 0U) << "a copy of the file is whole";
}

TEST_F(registry_test_t, answers_with_an_error_where_the_file_is_no_registry) {
    HKEY key = nullptr;
    const auto open = [&] { return RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("K"), 0, KEY_QUERY_VALUE, &key); };
    put("registry.sqlite", std::string(8192, 'z'));
    EXPECT_EQ(open(), ERROR_INVALID_DATA);
    std::filesystem::remove(box / "home" / "registry.sqlite");
    std::filesystem::create_directory(box / "home" / "registry.sqlite");
    EXPECT_EQ(open(), ERROR_ACCESS_DENIED);
    std::filesystem::remove(box / "home" / "registry.sqlite");
    EXPECT_EQ(open(), ERROR_FILE_NOT_FOUND);  // mended: the key is what is missing now

    const HKEY made = create(TEXT("K"));
    for (int value = 0; value < 100; ++value) {
        set(made, (u"v" + base::to_utf16(std::to_string(value))).c_str(), REG_BINARY, octets_t(200, 1));
    }
    ask("PRAGMA wal_checkpoint(TRUNCATE)");
    ask("DROP INDEX registry_keys");  // what cannot be told to the caller is told to people
    ask("ALTER TABLE registry RENAME TO lost");
    testing::internal::CaptureStderr();
    EXPECT_EQ(set(made, TEXT("value"), REG_DWORD, {1, 0, 0, 0}), ERROR_GEN_FAILURE);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, testing::HasSubstr("K\\value cannot be written to the registry"));
    EXPECT_THAT(told, testing::HasSubstr("registry.sqlite: no such table: registry"));
    ask("PRAGMA wal_checkpoint(TRUNCATE)");
    std::fstream file(box / "home" / "registry.sqlite", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(4 * 4096);
    file << std::string(4096, 'z');
    file.close();
    reopen();
    EXPECT_EQ(open(), ERROR_INVALID_DATA) << "pages are damaged";
}
