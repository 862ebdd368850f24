/// A text that matches a regular expression as a whole. GoogleTest's own matcher knows none worth the name on Windows.
#pragma once

#include <gmock/gmock.h>

#include <regex>
#include <string>

MATCHER_P(matches, pattern, std::string("matches ") + pattern) {
    return std::regex_match(arg, std::regex(pattern));
}
