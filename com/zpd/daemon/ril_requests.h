/// The kinds of pending radio requests.
#pragma once

#include "com/zpd/daemon/daemon.h"

class daemon_t::ril_request_send_message_t final : public daemon_t::abstract_ril_request_t {
  public:
    /// The datagram stays the state machine's.
    ril_request_send_message_t(daemon_t* owner, uint32_t id, datagram_t* sent);
    void process_result() override;

  private:
    uint32_t error_of_result() const;

    datagram_t* const datagram;
};

class daemon_t::ril_request_get_current_system_type_t final : public daemon_t::abstract_ril_request_t {
  public:
    ril_request_get_current_system_type_t(daemon_t* owner, uint32_t id) : abstract_ril_request_t(owner, id) {}
    void process_result() override;
};
