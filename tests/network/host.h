/// A network in a folder of its own, with hosts at its modems.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "air/tpdu.h"
#include "base/hex.h"
#include "network/network.h"
#include "tests/network/at_host.h"

namespace network {

inline const std::string alice = "+491700000001";
inline const std::string bob = "+491700000002";

class network_test : public testing::Test {
  public:
    ~network_test() override {
        network_.reset();
        std::filesystem::remove_all(directory_);
    }

  protected:
    network_test() {
        char folder[] = "/tmp/network_test_XXXXXX";
        directory_ = mkdtemp(folder);
        network_ = network_t::start(directory_, {alice, bob}, &error_);
        EXPECT_NE(network_, nullptr) << error_;
    }

    /// A host with echo off and `commands` done.
    std::unique_ptr<host_t> host(const std::string& number, const std::vector<std::string>& commands = {}) const {
        auto host = std::make_unique<host_t>(network_->link(number));
        host->send("ATE0\r");
        host->read_until("OK\r\n");
        for (const std::string& command : commands) {
            host->send(command + "\r");
            expect_ok(host->read_until("OK\r\n"), command);
        }
        return host;
    }
    static void expect_ok(const std::string& reply, const std::string& command) {
        EXPECT_TRUE(reply.ends_with("\r\nOK\r\n")) << command << ": " << reply;
    }
    void set_fault(const std::string& number, const std::string& order) const {
        EXPECT_EQ(network_->set_fault(number, order), "");
    }
    bool wait_for(uint64_t statistics_t::*count, uint64_t value) const {
        return network_->wait_until([&](const statistics_t& now) { return now.*count == value; },
                                    std::chrono::milliseconds(patience));
    }

    std::filesystem::path directory_;
    std::string error_;
    std::unique_ptr<network_t> network_;
};

inline air::submit_t submit_to(const std::string& number, air::octets_t user_data) {
    air::submit_t submit;
    submit.destination = air::address_from_number(number).value();
    submit.data_coding = air::data_coding_8bit;
    submit.user_data_length = static_cast<uint8_t>(user_data.size());
    submit.user_data = std::move(user_data);
    return submit;
}

/// The two steps of AT+CMGS, after which the result follows.
inline void submit(host_t& host, const air::submit_t& submit) {
    const air::octets_t octets = air::encode(submit).value();
    host.expect("AT+CMGS=" + std::to_string(octets.size()) + "\r", "\r\n> ");
    host.send("00" + base::to_hex(octets) + "\x1a");
}

inline std::string sent(unsigned reference) {
    return "\r\n+CMGS: " + std::to_string(reference) + "\r\n\r\nOK\r\n";
}

/// The SMS-DELIVER in the last line but `lines_after` of a reply.
inline air::deliver_t delivered(const std::string& reply) {
    const size_t begin = reply.find("\r\n0") + 2;
    const auto octets = base::from_hex(reply.substr(begin, reply.find("\r\n", begin) - begin));
    const auto pdu = octets ? air::decode_pdu(*octets) : std::nullopt;
    const auto deliver = pdu ? air::decode_deliver(pdu->tpdu) : std::nullopt;
    EXPECT_TRUE(deliver) << reply;
    return deliver.value_or(air::deliver_t{});
}

}  // namespace network
