#include <sys/stat.h>

#include <cerrno>
#include <optional>
#include <vector>

#include "tests/platform/fixture.h"

class files_test_t : public home_test_t {
  protected:
    /// The names that a pattern finds, and the error of the end.
    static std::pair<std::vector<std::u16string>, DWORD> find(LPCWSTR pattern) {
        std::vector<std::u16string> names;
        WIN32_FIND_DATAW entry{};
        SetLastError(poison);
        HANDLE handle = FindFirstFileW(pattern, &entry);
        for (BOOL more = handle != INVALID_HANDLE_VALUE; more; more = FindNextFileW(handle, &entry)) {
            names.emplace_back(entry.cFileName);
        }
        const DWORD error = GetLastError();
        EXPECT_EQ(FindClose(handle), handle != INVALID_HANDLE_VALUE);
        return {names, error};
    }
};

TEST_F(files_test_t, lets_no_path_out_of_the_home) {
    std::filesystem::create_directory(box / "outside");
    std::filesystem::create_directory_symlink(box / "outside", box / "home" / "out");
    std::filesystem::create_symlink(box / "outside" / "new", box / "home" / "dangling");
    std::filesystem::create_symlink("loop", box / "home" / "loop");
    std::filesystem::create_directory_symlink("..", box / "home" / "up");
    const std::u16string odd_names[] = {u"\\..\\outside\\x",
                                        u"\\a\\..\\..\\outside\\x",
                                        u"\\.\\x",
                                        u"\\../outside/x",
                                        u"/etc/x",
                                        u"\\a\nb",
                                        u"\\a\u0085b",
                                        u"\\a*",
                                        u"\\" + std::u16string(128, u'\u00E9'),
                                        std::u16string(260, u'\\') + u"x"};
    const std::u16string no_ways[] = {u"", u"\\out\\x", u"\\out", u"\\up\\outside\\x", u"\\dangling", u"\\loop"};
    const auto refused = [&](const std::u16string& text, DWORD error) {
        LPCWSTR path = text.c_str();
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(platform::host_path(path), "");
        EXPECT_EQ(poisoned([&] { return CreateDirectoryW(path, nullptr); }), std::pair(FALSE, error));
        EXPECT_EQ(poisoned([&] { return GetFileAttributesW(path); }), std::pair(INVALID_FILE_ATTRIBUTES, error));
        EXPECT_EQ(poisoned([&] { return DeleteFileW(path); }), std::pair(FALSE, error));
        EXPECT_EQ(_wfopen(path, TEXT("wb")), nullptr);
        EXPECT_EQ(errno, error == ERROR_INVALID_NAME ? EINVAL : ENOENT);
    };
    for (const std::u16string& path : odd_names) {
        refused(path, ERROR_INVALID_NAME);
    }
    for (const std::u16string& path : no_ways) {
        refused(path, ERROR_PATH_NOT_FOUND);
    }
    EXPECT_TRUE(std::filesystem::is_empty(box / "outside"));
}

TEST_F(files_test_t, finds_its_way_inside_the_home) {
    put("d/e/f");
    std::filesystem::create_directory_symlink("d/e", box / "home" / "inner");
    EXPECT_EQ(platform::host_path(TEXT("\\inner\\f")), platform::home() / "d" / "e" / "f");
    EXPECT_EQ(platform::host_path(TEXT("d\\\\e\\")), platform::home() / "d" / "e");
    EXPECT_EQ(platform::host_path(TEXT("\\\U0001F600")), platform::home() / "\xF0\x9F\x98\x80");
    const std::pair<LPCWSTR, std::pair<DWORD, DWORD>> attributes[] = {
        {TEXT("\\"), {FILE_ATTRIBUTE_DIRECTORY, poison}},
        {TEXT("\\inner"), {FILE_ATTRIBUTE_DIRECTORY, poison}},
        {TEXT("\\d\\e\\f"), {FILE_ATTRIBUTE_NORMAL, poison}},
        {TEXT("\\d\\E"), {INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND}},
        {TEXT("\\x\\e"), {INVALID_FILE_ATTRIBUTES, ERROR_PATH_NOT_FOUND}},
        {TEXT("\\d\\e\\f\\g"), {INVALID_FILE_ATTRIBUTES, ERROR_PATH_NOT_FOUND}},
        {nullptr, {INVALID_FILE_ATTRIBUTES, ERROR_INVALID_PARAMETER}},
    };
    for (const auto& [path, expected] : attributes) {
        EXPECT_EQ(poisoned([&, p = path] { return GetFileAttributesW(p); }), expected);
    }
    const auto make = [](LPCWSTR path) { return poisoned([=] { return CreateDirectoryW(path, nullptr); }); };
    EXPECT_EQ(make(TEXT("\\d\\new")), std::pair(TRUE, poison));
    EXPECT_EQ(make(TEXT("\\d\\new")), std::pair(FALSE, ERROR_ALREADY_EXISTS));
    EXPECT_EQ(make(TEXT("\\no\\new")), std::pair(FALSE, ERROR_PATH_NOT_FOUND));
    put("f", "old");
    const auto remove = [](LPCWSTR path) { return poisoned([=] { return DeleteFileW(path); }); };
    EXPECT_EQ(remove(TEXT("\\f")), std::pair(TRUE, poison));
    EXPECT_EQ(remove(TEXT("\\f")), std::pair(FALSE, ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(remove(TEXT("\\d")), std::pair(FALSE, ERROR_ACCESS_DENIED));
}

TEST_F(files_test_t, opens_streams_on_regular_files_only) {
    // What is left of "old" after writing "+".
    const std::pair<LPCWSTR, std::string> modes[] = {
        {TEXT("r+b"), "+ld"}, {TEXT("rb+"), "+ld"}, {TEXT("wb"), "+"},   {TEXT("w+"), "+"},
        {TEXT("ab"), "old+"}, {TEXT("a+"), "old+"}, {TEXT("rb"), "old"}, {TEXT("r"), "old"},
    };
    for (const auto& [mode, expected] : modes) {
        put("f", "old");
        FILE* const stream = _wfopen(TEXT("\\f"), mode);
        ASSERT_NE(stream, nullptr) << testing::PrintToString(mode);
        fputs("+", stream);
        fclose(stream);
        std::string left;
        std::getline(std::ifstream(box / "home" / "f"), left);
        EXPECT_EQ(left, expected) << testing::PrintToString(mode);
    }
    for (LPCWSTR mode : {TEXT(""), TEXT("x"), TEXT("rx"), TEXT("we"), TEXT("bw"), LPCWSTR{}}) {
        EXPECT_EQ(_wfopen(TEXT("\\f"), mode), nullptr) << testing::PrintToString(mode);
    }
    std::filesystem::create_directory(box / "home" / "d");
    mkfifo((box / "home" / "pipe").c_str(), 0600);
    for (const auto& [path, reason] :
         {std::pair(TEXT("\\d"), EACCES), std::pair(TEXT("\\pipe"), EACCES), std::pair(TEXT("\\missing"), ENOENT)}) {
        EXPECT_EQ(_wfopen(path, TEXT("rb")), nullptr);
        EXPECT_EQ(errno, reason);
    }
}

TEST_F(files_test_t, finds_what_matches_a_pattern) {
    for (const char* name : {"d/a.vcf", "d/B.VCF", "d/ab", "d/sub/x", "top", "d/bad\nname", "d/bad\xFF"}) {
        put(name);
    }
    std::filesystem::create_directory(box / "home" / "empty");
    std::filesystem::create_directory_symlink("/", box / "home" / "d" / "root");
    using names_t = std::vector<std::u16string>;
    const std::tuple<LPCWSTR, names_t, DWORD> rows[] = {
        {TEXT("\\d\\*"), {u"a.vcf", u"B.VCF", u"ab", u"sub"}, ERROR_NO_MORE_FILES},
        {TEXT("d\\*.*"), {u"a.vcf", u"B.VCF", u"ab", u"sub"}, ERROR_NO_MORE_FILES},
        {TEXT("\\d\\*.vcf"), {u"a.vcf", u"B.VCF"}, ERROR_NO_MORE_FILES},
        {TEXT("\\d\\?.v*F"), {u"a.vcf", u"B.VCF"}, ERROR_NO_MORE_FILES},
        {TEXT("\\d\\a*b*"), {u"ab"}, ERROR_NO_MORE_FILES},
        {TEXT("\\d\\SUB"), {u"sub"}, ERROR_NO_MORE_FILES},
        {TEXT("\\t?p"), {u"top"}, ERROR_NO_MORE_FILES},
        {TEXT("\\d\\*.vcff"), {}, ERROR_FILE_NOT_FOUND},
        {TEXT("\\empty\\*"), {}, ERROR_FILE_NOT_FOUND},
        {TEXT("\\d\\"), {}, ERROR_FILE_NOT_FOUND},
        {TEXT("\\gone\\*"), {}, ERROR_PATH_NOT_FOUND},
        {TEXT("\\top\\*"), {}, ERROR_PATH_NOT_FOUND},
        {TEXT("\\d\\..\\*"), {}, ERROR_INVALID_NAME},
        {TEXT("\\d\\root\\*"), {}, ERROR_PATH_NOT_FOUND},
        {TEXT("\\d\\*/*"), {}, ERROR_INVALID_NAME},
    };
    for (const auto& [pattern, names, error] : rows) {
        const auto [found, end] = find(pattern);
        EXPECT_THAT(found, testing::UnorderedElementsAreArray(names)) << testing::PrintToString(pattern);
        EXPECT_EQ(end, error) << testing::PrintToString(pattern);
    }
}

TEST_F(files_test_t, describes_what_it_finds) {
    put("d/file");
    std::filesystem::create_directory(box / "home" / "folder");
    std::filesystem::create_directory_symlink("folder", box / "home" / "inner");
    mkfifo((box / "home" / "pipe").c_str(), 0600);
    const std::pair<LPCWSTR, DWORD> rows[] = {
        {TEXT("\\d\\file"), FILE_ATTRIBUTE_NORMAL},
        {TEXT("\\folder"), FILE_ATTRIBUTE_DIRECTORY},
        {TEXT("\\inner"), FILE_ATTRIBUTE_DIRECTORY},
        {TEXT("\\pipe"), FILE_ATTRIBUTE_NORMAL},
    };
    for (const auto& [name, attributes] : rows) {
        WIN32_FIND_DATAW entry{};
        EXPECT_TRUE(FindClose(FindFirstFileW(name, &entry)));
        EXPECT_EQ(entry.dwFileAttributes, attributes) << testing::PrintToString(name);
    }
    WIN32_FIND_DATAW entry{};
    HANDLE find = FindFirstFileW(TEXT("\\d\\*"), &entry);
    EXPECT_EQ(poisoned([&] { return FindNextFileW(find, &entry); }), std::pair(FALSE, ERROR_NO_MORE_FILES));
    EXPECT_EQ(poisoned([&] { return CloseHandle(find); }), std::pair(FALSE, ERROR_INVALID_HANDLE));
    EXPECT_EQ(poisoned([&] { return FindClose(find); }), std::pair(TRUE, poison));
    EXPECT_EQ(poisoned([&] { return FindClose(find); }), std::pair(FALSE, ERROR_INVALID_HANDLE));
    EXPECT_EQ(poisoned([&] { return FindNextFileW(find, &entry); }), std::pair(FALSE, ERROR_INVALID_HANDLE));
}
