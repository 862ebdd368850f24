#include "cli/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

void say_line(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

void say_json(const nlohmann::ordered_json& value) {
    say_line(value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

int fail(std::string_view text) {
    std::fputs(fmt::format("zpd: {}\n", text).c_str(), stderr);
    return exit_failed;
}

std::string counted(size_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

namespace {

size_t terminal_columns() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
}

}  // namespace

progress_t::progress_t(bool quiet) : terminal_(isatty(STDERR_FILENO) != 0), quiet_(quiet) {}

void progress_t::show(const std::string& state) {
    if (state == shown_) {
        return;
    }
    if (terminal_) {
        clear();
        // A line that wraps could not be taken back.
        std::fputs(state.substr(0, terminal_columns() - 1).c_str(), stderr);
        std::fflush(stderr);
    } else {
        write_line(state);
    }
    shown_ = state;
}

void progress_t::note(const std::string& text) {
    clear();
    write_line(text);
}

void progress_t::clear() {
    if (!terminal_ || shown_.empty()) {
        return;
    }
    std::fputs("\r\x1B[K", stderr);
    shown_.clear();
}

void progress_t::write_line(const std::string& line) {
    if (terminal_) {
        std::fputs((line + "\n").c_str(), stderr);
    } else if (!quiet_) {
        say_line(line);
    }
}
