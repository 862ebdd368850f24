// The calls of the state machine on its daemon.
#include "com/zpd/daemon/daemon.h"

namespace machine_owner {

bool request_ril(daemon_t& daemon, datagram_t* datagram) {
    return daemon.request_ril(datagram);
}

void wake_sender(daemon_t& daemon) {
    daemon.wake_sender();
}

void set_last_send_failed(daemon_t& daemon, bool failed) {
    daemon.set_last_send_failed(failed);
}

void delete_message(daemon_t& daemon, uint32_t id) {
    daemon.delete_message(id);
}

}  // namespace machine_owner
