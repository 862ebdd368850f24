/// The manual pages of the commands, made of what the commands say of themselves.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

struct page_file_t {
    std::string name;  // "man1/zpd-send.1"
    std::string text;
};

/// zpd(1), a page for each command, and for those below a command a page that leads to the command's.
std::vector<page_file_t> command_pages(const CLI::App& program);

/// zpd.conf(5).
page_file_t configuration_page(const CLI::App& program);
