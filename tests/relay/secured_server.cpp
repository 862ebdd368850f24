#include "tests/relay/secured_server.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

#include "tests/relay/server.h"

// What OpenSSL, which is not built for it, keeps apart by its own means is a race to ThreadSanitizer.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT(readability-identifier-naming)
    return "race:libssl.so\nrace:libcrypto.so\n";
}

namespace {

constexpr std::array users{"operator", "sender", "north", "south"};

std::string password_of(const std::string& user) {
    return "password-of-" + user;
}

std::string contents(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

/// In the shell, whose words go to nobody.
void run(const std::string& commands) {
    ASSERT_EQ(std::system(("{ " + commands + "; } >/dev/null 2>&1").c_str()), 0) << commands;  // NOLINT
}

pid_t spawn(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t process = -1;
    if (posix_spawn(&process, argv.front(), nullptr, nullptr, argv.data(), environ) != 0) {
        std::abort();  // to signal or wait for -1 would be for all processes
    }
    return process;
}

}  // namespace

secured_server_t::secured_server_t(bool verify) {
    std::string name = std::filesystem::temp_directory_path() / "zpd-nats-XXXXXX";
    folder_ = mkdtemp(name.data());
    make_certificates();
    configure(verify);
    start();
}

secured_server_t::~secured_server_t() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    std::filesystem::remove_all(folder_);
}

// Two authorities, of which the other one knows nobody, and certificates of the first for the server and for a client.
void secured_server_t::make_certificates() const {
    std::ofstream(folder_ / "names") << "subjectAltName=DNS:localhost";
    const std::string key = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";
    std::string commands = fmt::format("cd {} && set -e", folder_.string());
    for (const char* authority : {"ca", "other-ca"}) {
        commands += fmt::format("; openssl req -x509 {0} -keyout {1}.key -out {1}.pem -subj /CN={1}", key, authority);
    }
    for (const char* owner : {"fleet1", "client"}) {
        commands += fmt::format("; openssl req {0} -keyout {1}.key -out {1}.csr -subj /CN={1}", key, owner);
        commands += fmt::format(
            "; openssl x509 -req -in {0}.csr -CA ca.pem -CAkey ca.key -CAcreateserial "
            "-extfile names -out {0}.pem",
            owner);
    }
    run(commands);
}

void secured_server_t::configure(bool verify) const {
    std::string text = contents(ZPD_SOURCE "/packaging/nats/fleet.conf");
    text = replaced(text, "/etc/nats", folder_);
    text = replaced(text, "/var/lib/nats", folder_ / "store");
    text = verify ? replaced(text, "# verify: true", "verify: true") : text;
    std::ofstream(folder_ / "fleet.conf") << text;
    std::ofstream passwords(folder_ / "passwords.conf");
    for (const std::string user : users) {
        std::string variable = user + "_PASSWORD";
        std::transform(variable.begin(), variable.end(), variable.begin(), ::toupper);
        passwords << variable << ": \"" << password_of(user) << "\"\n";
    }
}

// The file of its ports is written when it can be reached.
void secured_server_t::start() {
    process_ = spawn({nats_server_program, "-c", file("fleet.conf"), "-a", "127.0.0.1", "-p", "-1", "--ports_file_dir",
                      folder_, "-l", file("log")});
    const std::string ports = file(fmt::format("nats-server_{}.ports", process_));
    nlohmann::json told;
    for (int tries = 0; tries < 1000 && !told.contains("nats"); ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        told = nlohmann::json::parse(contents(ports), nullptr, false);
    }
    ASSERT_TRUE(told.contains("nats")) << contents(file("log"));
    const std::string address = told["nats"][0];  // nats://127.0.0.1:PORT
    address_ = "localhost" + address.substr(address.rfind(':'));
}

std::string secured_server_t::url(const std::string& user, const std::string& password) const {
    return fmt::format("tls://{}:{}@{}", user, password.empty() ? password_of(user) : password, address_);
}

nats::server_t secured_server_t::reached_by(const std::string& user, const std::string& password) const {
    return {url(user, password), "", file("ca.pem"), "", ""};
}

std::unique_ptr<nats::connection_t> secured_server_t::connection_of(const std::string& user) const {
    auto connection = nats::connection_t::open(reached_by(user), "test", false);
    EXPECT_TRUE(connection) << user << ": " << connection.failure().text;
    return connection ? std::move(*connection) : nullptr;
}

nats::own_t<natsConnection, natsConnection_Destroy> secured_server_t::plain_connection_of(
    const std::string& user) const {
    natsOptions* made = nullptr;
    natsOptions_Create(&made);
    const nats::own_t<natsOptions, natsOptions_Destroy> options(made);
    natsOptions_SetURL(made, url(user).c_str());
    natsOptions_LoadCATrustedCertificates(made, file("ca.pem").c_str());
    natsConnection* connection = nullptr;
    EXPECT_EQ(natsConnection_Connect(&connection, made), NATS_OK) << user;
    return nats::own_t<natsConnection, natsConnection_Destroy>(connection);
}
