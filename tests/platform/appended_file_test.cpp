#include "platform/linux/appended_file.h"

#include <cstdio>

#include "tests/platform/fixture.h"

class appended_file_test_t : public home_test_t {
  protected:
    void TearDown() override {
        platform::bound_appended_files(UINT64_MAX);
        home_test_t::TearDown();
    }
    static void append(FILE* stream, const char* text) {
        fputs(text, stream);
        EXPECT_EQ(fflush(stream), 0);
    }
    std::string content(const char* name) const {
        std::ifstream file(box / "home" / name);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(appended_file_test_t, turns_before_the_bound_whichever_stream_comes_to_it) {
    platform::bound_appended_files(8);
    put("f", "old");
    FILE* const one = _wfopen(TEXT("\\f"), TEXT("ab"));
    FILE* const other = _wfopen(TEXT("\\f"), TEXT("ab"));
    append(one, "12345");
    EXPECT_EQ(content("f"), "old12345");
    append(one, "a");
    append(other, "b");
    EXPECT_EQ(content("f.1") + "|" + content("f"), "old12345|ab");
    append(other, "longer than the bound");
    append(one, "c");
    EXPECT_EQ(content("f.1") + "|" + content("f"), "longer than the bound|c");
    fclose(one);
    fclose(other);
}

TEST_F(appended_file_test_t, goes_by_its_name_as_long_as_that_can_be_had) {
    std::filesystem::create_directory(box / "home/d");
    FILE* const stream = _wfopen(TEXT("\\d\\f"), TEXT("ab"));
    append(stream, "1");
    std::filesystem::rename(box / "home/d/f", box / "home/moved");
    append(stream, "2");
    EXPECT_EQ(content("moved") + "|" + content("d/f"), "1|2");
    std::filesystem::remove_all(box / "home/d");
    append(stream, "3");
    EXPECT_EQ(content("d/f"), "3");
    std::filesystem::rename(box / "home/d/f", box / "home/again");
    std::filesystem::create_symlink("../moved", box / "home/d/f");
    append(stream, "4");
    EXPECT_EQ(content("moved") + "|" + content("again"), "1|34");
    fclose(stream);
}
