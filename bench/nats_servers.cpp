#include "bench/nats_servers.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

#include "base/descriptor.h"
#include "bench/set_up.h"

namespace {

/// Ports that nobody listens on.
std::vector<uint16_t> free_ports(size_t count) {
    std::vector<base::descriptor_t> sockets;
    std::vector<uint16_t> ports;
    for (size_t i = 0; i < count; ++i) {
        sockets.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        require(bind(sockets.back().get(), plain, size) == 0 && getsockname(sockets.back().get(), plain, &size) == 0
                    ? ""
                    : "no port is free");
        ports.push_back(ntohs(address.sin_port));
    }
    return ports;
}

std::string configuration(const std::string& name, uint16_t port, const std::string& store) {
    return "server_name: " + name + "\nlisten: 127.0.0.1:" + std::to_string(port) + "\njetstream { store_dir: \"" +
           store + "\" }\n";
}

std::string cluster(uint16_t port, const std::string& routes) {
    return "cluster { name: bench, listen: 127.0.0.1:" + std::to_string(port) + ", routes: [" + routes + "] }\n";
}

}  // namespace

nats_servers_t::nats_servers_t(size_t count) : folder_(new_folder()) {
    const std::vector<uint16_t> ports = free_ports(2 * count);
    std::string routes;
    for (size_t i = 0; i < count; ++i) {
        url_ += (i == 0 ? "nats://127.0.0.1:" : ",127.0.0.1:") + std::to_string(ports[i]);
        routes += (i == 0 ? "nats://127.0.0.1:" : ", nats://127.0.0.1:") + std::to_string(ports[count + i]);
    }
    for (size_t i = 0; i < count; ++i) {
        const std::string name = "n" + std::to_string(i);
        const std::filesystem::path file = folder_ / (name + ".conf");
        std::ofstream(file) << configuration(name, ports[i], folder_ / name)
                            << (count == 1 ? "" : cluster(ports[count + i], routes));
        servers_.push_back(std::make_unique<child_t>(std::vector<std::string>{"nats-server", "-c", file}));
    }
    fleet::layout_t layout;
    layout.replicas = static_cast<int64_t>(count);
    for (int tries = 0;; ++tries) {
        const auto made = fleet::make(*connect(), names_, layout);
        if (made) {
            return;
        }
        require(tries < 300 ? "" : made.failure().text);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

nats_servers_t::~nats_servers_t() {
    servers_.clear();
    std::filesystem::remove_all(folder_);
}

std::unique_ptr<nats::connection_t> nats_servers_t::connect() const {
    auto connection = nats::connection_t::open({url_, "", "", "", ""}, "bench", true);
    require(connection ? "" : connection.failure().text);
    return std::move(*connection);
}

double nats_servers_t::core_seconds() const {
    double most = 0;
    for (const auto& server : servers_) {
        most = std::max(most, server->core_seconds());
    }
    return most;
}
