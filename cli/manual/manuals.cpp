/// Writes the manual pages of the program into a folder, below man1/ and man5/, and zpd.conf, which has all settings of
/// a service with the values that hold without it.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "cli/command.h"
#include "cli/configuration.h"
#include "cli/manual/command_page.h"

namespace {

void write_manuals(const std::filesystem::path& folder) {
    context_t context;
    CLI::App program;
    add_commands(program, context);
    auto files = command_pages(program);
    files.push_back(configuration_page(program));
    program.parse("serve --config /dev/null");
    files.push_back({"zpd.conf", configuration_of(*program.get_subcommand("serve"))});
    for (const page_file_t& file : files) {
        const std::filesystem::path path = folder / file.name;
        std::filesystem::create_directories(path.parent_path());
        if (!(std::ofstream(path) << file.text << std::flush)) {
            throw std::runtime_error("cannot write " + path.native());
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: manuals DIR\n", stderr);
        return 2;
    }
    try {
        write_manuals(argv[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "manuals: %s\n", error.what());
        return 1;
    }
    return 0;
}
