#include "cli/output.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "base/safe_text.h"
#include "base/text.h"

namespace {

int write_error = 0;  // errno of the last write to standard output that failed
std::string speaker = "zpd";

}  // namespace

void say_line(std::string_view line) {
    if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size() || std::fputc('\n', stdout) == EOF ||
        std::fflush(stdout) != 0) {
        write_error = errno;
    }
}

void say_octets(std::string_view octets) {
    if (std::fwrite(octets.data(), 1, octets.size(), stdout) != octets.size() || std::fflush(stdout) != 0) {
        write_error = errno;
    }
}

bool wait_while_read(int milliseconds) {
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, milliseconds) <= 0 && std::ferror(stdout) == 0;
}

void say_json(const nlohmann::ordered_json& value) {
    say_line(value.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
}

void speak_as(std::string_view command) {
    speaker = command;
}

void remark(std::string_view text, std::string_view end) {
    std::fputs(fmt::format("{}: {}{}", speaker, base::escaped(text), end).c_str(), stderr);
}

int fail(std::string_view text) {
    remark(text);
    return exit_failed;
}

int fail_usage(std::string_view text) {
    fail(text);
    return exit_usage;
}

int finish(int status) {
    if (std::fflush(stdout) != 0) {
        write_error = errno;
    }
    if (status != exit_done || write_error == 0 || write_error == EPIPE) {
        return status;
    }
    return fail(fmt::format("cannot write the result: {}", base::errno_text(write_error)));
}

std::string counted(size_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

namespace {

size_t terminal_columns() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
}

/// At most `count` octets, cut between characters. A line that wraps could not be taken back; no character is wider in
/// columns than it is long in octets.
std::string_view first_octets(std::string_view text, size_t count) {
    size_t length = 0;
    while (length < text.size()) {
        const size_t next = length + base::first_code_point(text.substr(length)).length;
        if (next > count) {
            break;
        }
        length = next;
    }
    return text.substr(0, length);
}

}  // namespace

progress_t::progress_t(bool quiet) : terminal_(isatty(STDERR_FILENO) != 0), quiet_(quiet) {}

void progress_t::show(const std::string& state) {
    if (state == shown_) {
        return;
    }
    if (terminal_) {
        clear();
        std::fputs(std::string(first_octets(state, terminal_columns() - 1)).c_str(), stderr);
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
