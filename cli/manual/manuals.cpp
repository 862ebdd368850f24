/// Writes the manual pages of the program into a folder, below man1/ and man5/.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "cli/command.h"
#include "cli/manual/command_page.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: manuals DIR\n", stderr);
        return 2;
    }
    context_t context;
    CLI::App program;
    add_commands(program, context);
    auto pages = command_pages(program);
    pages.push_back(configuration_page(program));
    for (const page_file_t& page : pages) {
        const std::filesystem::path file = std::filesystem::path(argv[1]) / page.name;
        std::filesystem::create_directories(file.parent_path());
        if (!(std::ofstream(file) << page.text << std::flush)) {
            std::fprintf(stderr, "manuals: cannot write %s\n", file.c_str());
            return 1;
        }
    }
    return 0;
}
