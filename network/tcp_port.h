/// A TCP port at which a modem is reached besides its tty, by one host at a time: who connects while another is there
/// waits, unheard, until that one has gone. Not thread-safe.
///
/// A host has gone when it has closed its side and has been sent what was said to it until then, or when the connection
/// broke. One that vanishes without a word (its machine lost power) is missed after a minute.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/descriptor.h"
#include "network/event_loop.h"
#include "network/host_line.h"

namespace network {

struct tcp_address_t {
    std::string host = "127.0.0.1";  // an address of IPv4 or IPv6
    uint16_t port = 0;               // 0: any that is free
};

/// Of [ADDRESS:]PORT, with brackets round an address of IPv6. None when it is none.
std::optional<tcp_address_t> tcp_address_named(std::string_view text);
std::string to_text(const tcp_address_t& address);

class tcp_port_t : public host_line_t {
  public:
    /// `waits` and the phone, on whose behalf the port waits, outlive it. Null, with the reason in `error`, when one
    /// cannot listen there.
    static std::unique_ptr<tcp_port_t> open(tcp_address_t address, const wait_set_t& waits, phone_t* phone,
                                            std::string* error);

    /// With the port that was chosen.
    const tcp_address_t& address() const { return address_; }
    bool connected() const { return static_cast<bool>(connection_); }
    /// Takes the next host when none is connected. True when one has come.
    bool accept();
    /// When, on base::tick64, accept should be tried again; it could not have what it needs.
    std::optional<uint64_t> deadline() const { return retry_at_; }
    void read(std::string& into) override;
    void write(std::string& from) override;
    /// Whether the host has gone, when this much is left to be written to it.
    bool host_has_gone(size_t unread) const;
    /// Ends the connection.
    void disconnect();
    /// Enters into the set that the host is waited for, or its next words, or room for what is said to it.
    void wait(bool for_words, bool for_room);

  private:
    tcp_port_t(tcp_address_t address, base::descriptor_t listener, const wait_set_t& waits, phone_t* phone);

    tcp_address_t address_;
    const wait_set_t& waits_;
    phone_t* const phone_;
    const base::descriptor_t listener_;
    waited_t listener_waited_;
    base::descriptor_t connection_;
    std::unique_ptr<waited_t> connection_waited_;
    bool at_end_ = false;  // the host has closed its side
    bool broken_ = false;
    std::optional<uint64_t> retry_at_;
};

}  // namespace network
