#include "com/zpd/state.h"

#include "com/miscio/text.h"
#include "com/qmlog/api2.h"
#include "com/zpd/daemon/message.h"
#include "com/zpd/machine.h"

void abstract_state_t::enter(datagram_t* datagram) {
    QM_DEBUG("0x%X entering '%s'", identity(datagram), name.c_str());
}

void abstract_state_t::leave(datagram_t* datagram) {
    QM_DEBUG("0x%X leaving '%s'", identity(datagram), name.c_str());
}

void abstract_state_t::go_to(datagram_t* datagram) {
    const uint32_t d = identity(datagram);
    QM_DEBUG("go_to: 0x%X -> '%s': calling machine->transition()", d, name.c_str());
    machine->transition(datagram, this);
    QM_DEBUG("go_to: 0x%X -> '%s': returned from machine->transition()", d, name.c_str());
}

void abstract_io_state_t::enter(datagram_t* datagram) {
    QM_DEBUG("entering    '%s' elements->size()=%d", name.c_str(), static_cast<uint32_t>(elements.size()));
    elements[datagram] = 1;
    QM_DEBUG("inserted to '%s' elements->size()=%d", name.c_str(), static_cast<uint32_t>(elements.size()));
}

void abstract_io_state_t::leave(datagram_t* datagram) {
    QM_DEBUG("leaving     '%s' elements->size()=%d", name.c_str(), static_cast<uint32_t>(elements.size()));
    elements.erase(datagram);
    QM_DEBUG("eerased from'%s' elements->size()=%d", name.c_str(), static_cast<uint32_t>(elements.size()));
}

void state_queued_t::enter(datagram_t* datagram) {
    abstract_io_state_t::enter(datagram);
    fifo.push_back(datagram);
    datagram->status = ZPD_STATUS_QUEUED;
    machine_owner::wake_sender(*machine->daemon);
}

void state_queued_t::leave(datagram_t* datagram) {
    if (!fifo.empty() && fifo.front() == datagram) {
        fifo.pop_front();
    } else {
        QM_CRITICAL_ERROR("");
    }
    abstract_io_state_t::leave(datagram);
}

void state_dispatcher_t::enter(datagram_t* datagram) {
    datagram->status = ZPD_STATUS_SUBMITTED;
    if (datagram->aborted) {
        machine->state_deferred->go_to(datagram);
    } else if (machine_owner::request_ril(*machine->daemon, datagram)) {
        machine->state_rilled->go_to(datagram);
    } else {
        machine->state_failed->go_to(datagram);
    }
}

void state_rilled_t::enter(datagram_t* datagram) {
    abstract_io_state_t::enter(datagram);
    by_request[datagram->ril_request_id] = datagram;
}

void state_rilled_t::leave(datagram_t* datagram) {
    by_request.erase(datagram->ril_request_id);
    abstract_io_state_t::leave(datagram);
}

void state_rilled_t::process_ril_result(datagram_t* datagram, uint32_t error) {
    QM_DEBUG("datagram_t *d=0x%X, error=0x%08X", identity(datagram), error);
    machine_owner::set_last_send_failed(*machine->daemon, error != 0);
    if (error != 0) {
        machine->state_queued->go_to(datagram);
    } else {
        machine->state_sent->go_to(datagram);
    }
    machine_owner::wake_sender(*machine->daemon);
}

void state_sent_t::enter(datagram_t* datagram) {
    datagram->status = ZPD_STATUS_SENT;
    machine->state_done->go_to(datagram);
}

void state_failed_t::enter(datagram_t* datagram) {
    datagram->status = ZPD_STATUS_FAILED;
    for (const auto& sibling : datagram->message->datagrams) {
        if (sibling != nullptr && sibling.get() != datagram) {
            sibling->aborted = true;
        }
    }
    machine->state_done->go_to(datagram);
}

void state_done_t::enter(datagram_t* datagram) {
    if (datagram->message->closed) {
        machine->state_ripped->go_to(datagram);
    } else {
        machine->state_waiting->go_to(datagram);
    }
}

void state_ripped_t::enter(datagram_t* datagram) {
    message_t* message = datagram->message;
    const uint32_t id = message->id;
    QM_DEBUG("0x%X=%d[0x%X=%d]", identity(message), id, identity(datagram), datagram->ordinal);
    const uint8_t ordinal = datagram->ordinal;
    datagram_t* listed = ordinal < message->datagrams.size() ? message->datagrams[ordinal].get() : nullptr;
    if (listed != datagram) {
        QM_CRITICAL_ERROR("internal datagram structure error; %d[%d] d=0x%X, dd=0x%X", id, ordinal, identity(datagram),
                          identity(listed));
        return;
    }
    QM_DEBUG("yes, d=dd=%X", identity(datagram));
    message->datagrams[ordinal].reset();
    message->datagram_count -= 1;
    if (message->datagram_count == 0) {
        machine_owner::delete_message(*machine->daemon, id);
    }
}

void state_retry_t::enter(datagram_t* datagram) {
    machine->state_queued->go_to(datagram);
}

void state_deferred_t::enter(datagram_t* datagram) {
    datagram->status = ZPD_STATUS_DEFERRED;
    machine->state_done->go_to(datagram);
}
