/// Transcripts of dialogues with a modem: text files of which each is a test. Their forms are told in README.md.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

inline void replace_all(std::string& text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

/// What stands behind the two characters that say whose line it is.
inline std::string text_of(const std::string& line) {
    std::string text = line.substr(std::min<size_t>(2, line.size()));
    replace_all(text, "\\r", "\r");
    replace_all(text, "\\n", "\n");
    replace_all(text, "\\x20", " ");
    replace_all(text, "\\x1A", "\x1A");
    return text;
}

/// The files of a folder beside this one, and the name that each gives its tests.
inline auto transcripts(const std::string& folder) {
    const std::filesystem::directory_iterator files(ZPD_SOURCE "/tests/radio/" + folder);
    std::vector<std::filesystem::path> paths(begin(files), end(files));
    std::ranges::sort(paths);
    return testing::ValuesIn(paths);
}
inline std::string name_of_transcript(const testing::TestParamInfo<std::filesystem::path>& file) {
    std::string name = file.param.stem();
    std::ranges::replace(name, '-', '_');
    return name;
}
