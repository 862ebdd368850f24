#include "tests/passing_time.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "base/clock.h"
#include "base/descriptor.h"

namespace fs = std::filesystem;

namespace {

/// How often a thread that sleeps has been put to sleep so far (proc(5)); none for one that does not sleep.
std::optional<std::string> sleeps_of(const fs::path& thread) {
    const base::descriptor_t file(open((thread / "status").c_str(), O_RDONLY | O_CLOEXEC));
    char octets[4096];
    const ssize_t size = read(file.get(), octets, sizeof octets);
    const std::string status(octets, static_cast<size_t>(std::max<ssize_t>(size, 0)));
    const size_t counts = status.find("voluntary_ctxt_switches");
    const bool sleeps = status.find("State:\tS") != std::string::npos && counts != std::string::npos;
    return sleeps ? std::optional(status.substr(counts)) : std::nullopt;
}

/// The same of all threads but this one; none while one of them does not sleep.
std::optional<std::map<std::string, std::string>> all_sleeps() {
    std::map<std::string, std::string> sleeps;
    const std::string own = std::to_string(gettid());
    for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
        const std::string id = thread.path().filename();
        const auto counts = id == own ? std::string() : sleeps_of(thread);
        if (!counts) {
            return std::nullopt;
        }
        sleeps.emplace(id, *counts);
    }
    return sleeps;
}

/// What is written at one end of a tty gets to the other through a worker of the kernel, which poll waits for.
void let_ttys_deliver() {
    for (const auto& descriptor : fs::directory_iterator("/proc/self/fd")) {
        pollfd tty = {std::stoi(descriptor.path().filename()), POLLIN, 0};
        if (isatty(tty.fd) != 0) {
            poll(&tty, 1, 0);
        }
    }
}

/// Those that sleep before and after, and were not woken in between, slept all at once, none of them for a moment only;
/// and were not woken by what the ttys still had on their way. Returns when the first one wakes; none while one is
/// awake.
std::optional<uint64_t> rest() {
    const auto before = all_sleeps();
    const uint64_t deadline = base::next_deadline();
    if (!before || deadline <= base::tick64()) {
        return std::nullopt;
    }
    let_ttys_deliver();
    return before == all_sleeps() ? std::optional(deadline) : std::nullopt;
}

/// The same of the rest that they come to; none without one.
std::optional<uint64_t> rest_to_come() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (std::chrono::steady_clock::now() < end) {
        if (const auto deadline = rest()) {
            return deadline;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    ADD_FAILURE() << "somebody is busy without end";
    return std::nullopt;
}

/// To where the first one wakes. False at the end, or without rest.
bool jump_towards(uint64_t end) {
    const auto deadline = rest_to_come();
    if (!deadline) {
        return false;
    }
    const uint64_t now = base::tick64();
    base::advance_clock(std::clamp(*deadline, now, std::max(now, end)) - now);
    return now < end;
}

}  // namespace

bool come_to_rest() {
    return rest_to_come().has_value();
}

void let_time_pass(uint64_t milliseconds) {
    const uint64_t end = base::tick64() + milliseconds;
    while (jump_towards(end)) {
    }
}

bool as_time_passes(const std::function<bool()>& predicate) {
    constexpr uint64_t hour = 3'600'000;
    const uint64_t end = base::tick64() + hour;
    while (come_to_rest()) {
        if (predicate()) {
            return true;
        }
        if (!jump_towards(end)) {
            return false;
        }
    }
    return false;
}
