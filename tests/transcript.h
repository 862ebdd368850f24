/// Transcripts of dialogues with a modem: text files of which each is a test. The tests that play them tell their
/// forms; a mark and a blank at the beginning of each line say whose it is.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

/// What stands behind the mark; "\r", "\n", "\b" and "\x1a" in it stand for what they are in C++.
inline std::string text_of(const std::string& line) {
    std::string text;
    for (size_t at = 2; at < line.size(); ++at) {
        if (line[at] != '\\') {
            text += line[at];
        } else if (line[++at] == 'x') {
            text += static_cast<char>(std::stoi(line.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            text += line[at] == 'r' ? '\r' : line[at] == 'n' ? '\n' : '\b';
        }
    }
    return text;
}

/// The files of a folder of tests/, and the name that each gives its tests.
inline auto transcripts(const std::string& folder) {
    const std::filesystem::directory_iterator files(ZPD_SOURCE "/tests/" + folder);
    std::vector<std::filesystem::path> paths(begin(files), end(files));
    std::ranges::sort(paths);
    return testing::ValuesIn(paths);
}
inline std::string name_of_transcript(const testing::TestParamInfo<std::filesystem::path>& file) {
    std::string name = file.param.stem().string();
    std::ranges::replace(name, '-', '_');
    return name;
}
