#include <sys/stat.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "platform/linux/file_writes.h"
#include "tests/platform/fixture.h"

using testing::IsEmpty;

/// Where a host refuses none of the ways to write a file whole, or this one.
struct refusal_t {
    const char* call;
    DWORD error;
};
constexpr refusal_t refusals[] = {{"", 0}, {"O_TMPFILE", EOPNOTSUPP}, {"AT_EMPTY_PATH", ENOENT}};

class whole_file_test_t : public home_test_t, public testing::WithParamInterface<refusal_t> {
  protected:
    void SetUp() override {
        home_test_t::SetUp();
        std::filesystem::create_directory(box / "home/d");
        no_failures();
        platform::begin_file_writes();
    }
    static void no_failures() {
        platform::testing::no_failures();
        platform::testing::fail_calls(GetParam().call, GetParam().error, -1);
    }
    /// What the driver finds in "d".
    static std::vector<std::u16string> found() {
        std::vector<std::u16string> names;
        WIN32_FIND_DATAW entry{};
        HANDLE find = FindFirstFileW(TEXT("\\d\\*"), &entry);
        for (BOOL more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileW(find, &entry)) {
            names.emplace_back(entry.cFileName);
        }
        FindClose(find);
        return names;
    }
    std::string content(const char* name) const {
        std::ifstream file(box / "home/d" / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static size_t entries(const std::filesystem::path& folder) {
        const std::filesystem::directory_iterator all(folder);
        return static_cast<size_t>(std::distance(begin(all), end(all)));
    }
};

INSTANTIATE_TEST_SUITE_P(, whole_file_test_t, testing::ValuesIn(refusals));

TEST_P(whole_file_test_t, appears_at_the_close_and_replaces_what_was_there) {
    const size_t descriptors = entries("/proc/self/fd");
    for (const char* const before : {"", "old"}) {
        SCOPED_TRACE(before);
        FILE* const stream = _wfopen(TEXT("\\d\\f"), TEXT("w+b"));
        ASSERT_NE(stream, nullptr);
        fputs("one two", stream);
        EXPECT_EQ(fflush(stream), 0);
        EXPECT_EQ(content("f"), before);
        EXPECT_THAT(found(), testing::SizeIs(*before == 0 ? 0 : 1));
        fseek(stream, 4, SEEK_SET);
        EXPECT_EQ(fgetc(stream), 't');
        fseek(stream, -3, SEEK_END);
        fputs("2", stream);
        EXPECT_EQ(fclose(stream), 0);
        EXPECT_EQ(content("f"), "one 2wo");
        put("d/f", "old");
    }
    EXPECT_EQ(entries(box / "home/d"), 1U);
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    EXPECT_EQ(platform::file_writes().written, 2U);
    std::thread([] { EXPECT_EQ(platform::file_writes().written, 0U); }).join();
}

TEST_P(whole_file_test_t, leaves_what_was_there_when_it_fails) {
    const size_t descriptors = entries("/proc/self/fd");
    for (const std::string call : {"write", "fsync", "rename"}) {
        SCOPED_TRACE(call);
        put("d/f", "old");
        no_failures();
        platform::begin_file_writes();
        FILE* const stream = _wfopen(TEXT("\\d\\f"), TEXT("wb"));
        ASSERT_NE(stream, nullptr);
        platform::testing::fail_calls(call, ENOSPC);
        const std::string octets(20'000, 'x');
        EXPECT_EQ(fwrite(octets.data(), octets.size(), 1, stream), call == "write" ? 0U : 1U);
        EXPECT_EQ(fclose(stream), EOF);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(entries(box / "home/d"), 1U);
        EXPECT_EQ(content("f"), "old");
        EXPECT_EQ(platform::file_writes().written, 0U);
        EXPECT_EQ(platform::file_writes().failure, "'" + (box / "home/d/f").native() + "': No space left on device");
    }
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
}

TEST_P(whole_file_test_t, only_takes_the_name_of_a_regular_file) {
    put("d/target", "old");
    std::filesystem::create_directory(box / "home/d/folder");
    mkfifo((box / "home/d/pipe").c_str(), 0600);
    EXPECT_EQ(_wfopen(TEXT("\\d\\folder"), TEXT("wb")), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(_wfopen(TEXT("\\d\\pipe"), TEXT("wb")), nullptr);
    EXPECT_EQ(errno, EACCES);
    FILE* const stream = _wfopen(TEXT("\\d\\link"), TEXT("wb"));
    std::filesystem::create_symlink("target", box / "home/d/link");  // meanwhile
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(box / "home/d/link")));
    EXPECT_EQ(content("target"), "old");
}

TEST_P(whole_file_test_t, what_a_killed_process_left_is_not_there_and_goes) {
    put("d/.zpd-unfinished-1-1", "half");
    EXPECT_THAT(found(), IsEmpty());
    EXPECT_EQ(_wfopen(TEXT("\\d\\.zpd-unfinished-1-1"), TEXT("rb")), nullptr);
    FILE* const first = _wfopen(TEXT("\\d\\first"), TEXT("wb"));
    FILE* const second = _wfopen(TEXT("\\d\\second"), TEXT("wb"));
    EXPECT_EQ(fclose(second), 0);
    EXPECT_EQ(fclose(first), 0);
    EXPECT_THAT(found(), testing::UnorderedElementsAre(u"first", u"second"));
    EXPECT_EQ(entries(box / "home/d"), 2U);
}

TEST_P(whole_file_test_t, the_first_failure_is_told) {
    put("f");
    const std::pair<void (*)(), std::string> rows[] = {
        {[] { _wfopen(TEXT("\\no\\x"), TEXT("wb")); }, "'" + (box / "home/no/x").native() + "': No such file or direc"},
        {[] { _wfopen(TEXT("\\a:b"), TEXT("wb")); }, "'\\a:b': Invalid argument"},
        {[] { CreateDirectoryW(TEXT("\\f"), nullptr); }, "'" + (box / "home/f").native() + "': File exists"},
        {[] { _wfopen(TEXT("\\no\\x"), TEXT("ab")); }, ""},
    };
    for (const auto& [act, told] : rows) {
        platform::begin_file_writes();
        act();
        EXPECT_THAT(platform::file_writes().failure, testing::StartsWith(told));
        EXPECT_EQ(platform::file_writes().failure.empty(), told.empty());
        CreateDirectoryW(TEXT("\\also\\not"), nullptr);
        EXPECT_THAT(platform::file_writes().failure, testing::StartsWith(told));
    }
    platform::begin_file_writes();
    platform::testing::fail_calls("fsync", EIO);
    EXPECT_FALSE(CreateDirectoryW(TEXT("\\new"), nullptr));
    EXPECT_FALSE(std::filesystem::exists(box / "home/new"));
    EXPECT_THAT(platform::file_writes().failure, testing::EndsWith("Input/output error"));
}
