#include "tests/relay/server.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

namespace {

/// A failure while a suite is set up would only have its tests skipped.
[[noreturn]] void give_up(const std::string& why) {
    std::fputs((why + "\n").c_str(), stderr);
    std::abort();
}

}  // namespace

server_t::server_t() {
    std::string name = std::filesystem::temp_directory_path() / "zpd-server-XXXXXX";
    folder_ = mkdtemp(name.data());
    start();
}

server_t::~server_t() {
    kill();
    std::filesystem::remove_all(folder_);
}

void server_t::kill() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        process_ = -1;
    }
}

// The file of its ports is written when it can be reached.
void server_t::start() {
    std::string store = folder_ / "store";
    std::string ports = folder_;
    std::string log = folder_ / "log";
    const std::array<const char*, 15> arguments{
        nats_server_program, "-js",         "-a", "127.0.0.1", "-p",   port_.c_str(), "-sd", store.c_str(),
        "--ports_file_dir",  ports.c_str(), "-l", log.c_str(), nullptr};
    if (posix_spawn(&process_, arguments[0], nullptr, nullptr, const_cast<char**>(arguments.data()), environ) != 0) {
        process_ = -1;
    }
    if (process_ <= 0) {
        give_up(std::string(nats_server_program) + " does not start");
    }
    const auto file = folder_ / fmt::format("nats-server_{}.ports", process_);
    nlohmann::json told;
    for (int tries = 0; tries < 1000 && !told.contains("nats"); ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::ifstream stream(file);
        told = nlohmann::json::parse(stream, nullptr, false);
    }
    if (!told.contains("nats")) {
        give_up("the server cannot be reached; see " + log);
    }
    url_ = told["nats"][0];
    port_ = url_.substr(url_.rfind(':') + 1);
}

std::unique_ptr<nats::connection_t> server_t::connect() const {
    auto connection = nats::connection_t::open({url_, "", "", "", ""}, "test", false);
    EXPECT_TRUE(connection) << connection.failure().text;
    return connection ? std::move(*connection) : nullptr;
}
