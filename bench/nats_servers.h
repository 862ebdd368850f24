/// NATS servers on loopback with a fleet's streams, for measurements: one, or a cluster.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "bench/child.h"
#include "relay/fleet_names.h"
#include "relay/nats.h"

class nats_servers_t {
  public:
    /// So many. Ready once it is made.
    explicit nats_servers_t(size_t count);
    ~nats_servers_t();
    nats_servers_t(const nats_servers_t&) = delete;
    nats_servers_t& operator=(const nats_servers_t&) = delete;

    /// In memory, for their files and others; it goes with them.
    const std::filesystem::path& folder() const { return folder_; }

    /// nats://…, of all of them.
    const std::string& url() const { return url_; }
    std::unique_ptr<nats::connection_t> connect() const;
    const fleet::names_t& names() const { return names_; }
    /// Of the one that worked most: seconds of a core.
    double core_seconds() const;
    /// Of the first: octets.
    double memory() const { return servers_.front()->memory(); }

  private:
    const std::filesystem::path folder_;
    const fleet::names_t names_{std::string(fleet::usual_group)};
    std::string url_;
    std::vector<std::unique_ptr<child_t>> servers_;
};
