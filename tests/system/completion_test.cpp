// zpd complete, what shells ask for: what can stand at the end of words, in the forms that a command line may have.
// That shells show it, and what a service knows, is tried by scripts/manuals.
#include <gmock/gmock.h>

#include <sstream>

#include "tests/system/phones.h"

namespace {

using testing::IsEmpty;

/// Without their meanings.
std::vector<std::string> completions(const arguments_t& words) {
    const outcome_t outcome = zpd(joined({"complete", "--"}, words));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    std::vector<std::string> values;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        values.push_back(line.starts_with('\t') ? line : line.substr(0, line.find('\t')));
    }
    return values;
}

TEST(completion, what_can_stand_at_the_end_of_the_words_is_told) {
    const folder_t folder;
    std::filesystem::create_symlink("/dev/null", folder / alice);
    const std::string dir = folder / "";
    const std::pair<arguments_t, std::vector<std::string>> cases[] = {
        {{"in"}, {"inbox"}},
        {{"inbox", "ex"}, {"export"}},
        {{"--device", "inbox", "outbox", "ca"}, {"cancel"}},  // the value of an option is no command
        {{"activation", ""}, {"on", "off"}},
        {{"activation", "on", ""}, {}},
        {{"settings", "log", "on", "w"}, {"warning"}},
        {{"serve", "--flow", ""}, {"none", "hardware"}},
        {{"serve", "--flow=h"}, {"--flow=hardware"}},
        {{"serve", "--activate", "--act"}, {}},  // comes once
        {{"serve", "--set", "a=1", "--se"}, {"--set"}},
        {{"serve", "--set", "submis"}, {"submission="}},
        {{"count", "--binary", "--conv"}, {}},  // excluded
        {{"count", "x", "y", ""}, {"\tcards"}},
        {{"inbox", "export", "-d", ""}, {"\tfolders"}},
        {{"inbox", "export", "-dx", "--forc"}, {"--force"}},
        {{"send", "--", "--forc"}, {"\tcards"}},
        {{"fault", "--dir", dir, ""}, {alice}},
        {{"fault", "--dir=" + dir, alice, "silent", "late-r"}, {"late-results="}},
        {{"help", "vers"}, {"version"}},
        {{"comple"}, {}},
        {{"nonsense", "--x", "y"}, {}},
        {{"nonsense", "-", "--not=a"}, {}},
    };
    for (const auto& [words, values] : cases) {
        EXPECT_EQ(completions(words), values) << testing::PrintToString(words);
    }
    EXPECT_THAT(completions({"outbox", "cancel", "--device", folder / "none", ""}), IsEmpty());
    EXPECT_THAT(completions({"inbox", "show", "--home", folder / "none", ""}), IsEmpty());
}

}  // namespace
