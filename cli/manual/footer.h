/// What a command's help says below its options, taken apart.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct footer_t {
    /// A paragraph on one line; or, when `is_table`, lines that stand as they are.
    struct block_t {
        bool is_table = false;
        std::vector<std::string> lines;
    };
    struct row_t {
        std::string name;
        std::string meaning;
    };

    std::vector<block_t> blocks;        // what is none of these:
    std::string exit_status;            // "Exit status 0 when …", without its first words
    std::vector<std::string> examples;  // below "Examples:"
    std::vector<row_t> files;           // below "Files:"
    std::vector<row_t> environment;     // below "Environment:"
};

footer_t read_footer(std::string_view text);
