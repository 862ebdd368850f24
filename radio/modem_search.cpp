#include "radio/modem_search.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "radio/modem_link.h"
#include "radio/trace.h"
#include "radio/tty.h"

namespace radio {

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> files_in(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code failed;
    fs::directory_iterator file(folder, failed);
    for (; !failed && file != fs::directory_iterator(); file.increment(failed)) {
        files.push_back(file->path());
    }
    std::ranges::sort(files);
    return files;
}

// A program that marks the tty in no way has it open all the same. Those of other users show to root alone.
bool is_open_elsewhere(const fs::path& tty) {
    std::error_code failed;
    const fs::path device = fs::canonical(tty, failed);
    for (const fs::path& process : files_in("/proc")) {
        const bool is_process =
            std::ranges::all_of(process.filename().string(), [](char c) { return c >= '0' && c <= '9'; });
        if (!is_process || process.filename() == std::to_string(getpid())) {
            continue;
        }
        for (const fs::path& descriptor : files_in(process / "fd")) {
            if (fs::read_symlink(descriptor, failed) == device && !failed) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace

std::vector<std::string> modem_ttys(const fs::path& devices) {
    std::vector<fs::path> files = files_in(devices / "serial" / "by-id");
    if (files.empty()) {
        files = files_in(devices);
        std::erase_if(files, [](const fs::path& file) {
            const std::string name = file.filename();
            return !name.starts_with("ttyUSB") && !name.starts_with("ttyACM");
        });
    }
    return {files.begin(), files.end()};
}

std::string try_modem(const std::string& tty) {
    if (is_open_elsewhere(tty)) {
        return "in use by another program";
    }
    tty_t line;
    if (std::string error = line.open(tty); !error.empty()) {
        return error;
    }
    trace_t none;
    modem_link_t link(line, none, [](const modem_line_t&) {});
    link.begin();
    if (!link.wake_modem(limit_t::repeat)) {
        return "no modem answers";
    }
    if (link.echoes()) {
        link.exchange({.line = "ATE1", .limit = limit_t::repeat});
    }
    return {};
}

}  // namespace radio
