// The message database: what clients see of their messages, and how these are released.
#include <algorithm>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

datagram_t::datagram_t(message_t& owner, uint8_t position, octet_string_t header, octet_string_t slice,
                       wide_string_t number)
    : message(&owner), ordinal(position), udh(std::move(header)), data(std::move(slice)), phone(std::move(number)) {
    QM_ASSERT(message->datagrams.size() == ordinal, "message->datagrams.size()==ordinal");
    message->datagrams.emplace_back(this);
    message->datagram_count += 1;
}

void daemon_t::message_list(request_t& request) {
    if (request.input.unread() != 0) {
        QM_ERROR("trailing input bytes");
        request.error = ERROR_INVALID_DATA;
        return;
    }
    std::vector<uint32_t> open;
    for (const auto& [id, message] : messages) {
        if (!message->closed) {
            open.push_back(id);
        }
    }
    request.output.put_uint32(static_cast<uint32_t>(open.size()));
    const uint32_t room = request.output.room();
    const size_t listed = room < 5 ? 0 : std::min<size_t>(open.size(), room / 4 - 1);
    request.output.put_uint32(static_cast<uint32_t>(listed));
    for (size_t i = 0; i < listed; ++i) {
        request.output.put_uint32(open[i]);
    }
}

/// Reads a message id and finds its message; null with the request's error set when there is none.
message_t* daemon_t::find_message(request_t& request, uint32_t& id) {
    if (!request.input.get_uint32(id)) {
        QM_ERROR("can't read input parameter 'message_id'");
        request.error = ERROR_INVALID_DATA;
        return nullptr;
    }
    const auto found = messages.find(id);
    if (found == messages.end()) {
        QM_ERROR("message by id='%u' not found (already closed?)", id);
        request.error = ERROR_INVALID_MESSAGE;
        return nullptr;
    }
    return found->second.get();
}

void daemon_t::message_status(request_t& request) {
    uint32_t id;
    const message_t* message = find_message(request, id);
    if (message == nullptr) {
        return;
    }
    const auto count = static_cast<uint32_t>(message->datagrams.size());
    QM_DEBUG("returning message by id='%u' (datagrams: %d)", id, count);
    request.output.put_uint32(count);
    for (const auto& datagram : message->datagrams) {
        request.output.put_uint32(datagram != nullptr ? static_cast<uint32_t>(datagram->status) : ZPD_STATUS_RELEASED);
        request.output.put_uint32(datagram != nullptr ? datagram->reference : 0);
    }
}

void daemon_t::message_close(request_t& request) {
    uint32_t id;
    message_t* message = find_message(request, id);
    if (message == nullptr) {
        return;
    }
    if (message->closed) {
        QM_ERROR("message by id='%u' already closed", id);
        request.error = ERROR_INVALID_MESSAGE;
        return;
    }
    QM_DEBUG("removing message by id='%u'", id);
    message->closed = true;
    close_datagrams(message);
    QM_DEBUG("returning...");
}

/// Releases the datagrams that wait. Works on a copy: releasing one changes the message, and releasing the last one
/// ends it.
void daemon_t::close_datagrams(message_t* message) {
    const uint32_t id = message->id;
    const uint32_t message_identity = identity(message);
    std::vector<datagram_t*> datagrams;
    for (int i = 0; i < static_cast<int>(message->datagrams.size()); ++i) {
        QM_DEBUG("first loop, i=%d in", i);
        if (message->datagrams[i] != nullptr) {
            datagrams.push_back(message->datagrams[i].get());
        }
        QM_DEBUG("first loop, i=%d out", i);
    }
    const state_waiting_t& waiting = *machine->state_waiting;
    for (int i = 0; i < static_cast<int>(datagrams.size()); ++i) {
        datagram_t* const datagram = datagrams[i];
        QM_DEBUG("second loop, i=%d in 0x%X=%d[0x%X=%d]", i, message_identity, id, identity(datagram),
                 datagram->ordinal);
        QM_DEBUG("machine=%X", identity(machine.get()));
        QM_DEBUG("machine->state_waiting=%X", identity(&waiting));
        QM_DEBUG("machine->state_waiting->elements=%X", identity(&waiting.elements));
        ZPD_DUMP_STATES(*machine);
        QM_DEBUG("end of dump machine->state_waiting->elements");
        const bool waits = waiting.elements.contains(datagram);
        QM_DEBUG("second loop if-condition = %d", waits ? 1 : 0);
        if (waits) {
            QM_DEBUG("yes, calling machine->state_ripped->go_to(0x%X)", identity(datagram));
            machine->state_ripped->go_to(datagram);
        }
        QM_DEBUG("second loop, i=%d out", i);
    }
}

/// After a wrap of the ids two records can bear this one: the newer is found by it, the older was displaced. The one to
/// go is the one whose datagrams are all gone.
void daemon_t::delete_message(uint32_t id) {
    QM_DEBUG("");
    const auto found = messages.find(id);
    if (found != messages.end() && found->second->datagram_count == 0) {
        const uint32_t message_identity = identity(found->second.get());
        messages.erase(found);
        QM_DEBUG("message 0x%X=%d erased from message database", message_identity, id);
        return;
    }
    const auto displaced =
        std::find_if(displaced_messages.begin(), displaced_messages.end(),
                     [id](const auto& message) { return message->id == id && message->datagram_count == 0; });
    if (displaced == displaced_messages.end()) {
        QM_CRITICAL_ERROR("message descriptor %d not found", id);
        return;
    }
    const uint32_t message_identity = identity(displaced->get());
    displaced_messages.erase(displaced);
    QM_DEBUG("message 0x%X=%d erased from message database", message_identity, id);
}
