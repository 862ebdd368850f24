// The message database: what clients see of their messages, and how these are released.
#include <algorithm>

#include "com/qmlog/api2.h"
#include "com/zpd/daemon/daemon.h"

datagram_t::datagram_t(message_t& owner, uint8_t position, octet_string_t header, octet_view_t slice,
                       wide_view_t number)
    : message(&owner), ordinal(position), udh(std::move(header)), data(slice), phone(number) {
    QM_ASSERT(message->datagrams.size() == ordinal, "message->datagrams.size()==ordinal");
    message->datagrams.emplace_back(this);
    message->datagram_count += 1;
}

void daemon_t::message_list(request_t& request) {
    if (request.input.unread() != 0) {
        QM_ERROR("trailing input bytes");
        return request.fail(ZPD_ERROR_INVALID_DATA);
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

message_t* daemon_t::find_message(uint32_t id) const {
    const auto found = messages.find(id);
    return found != messages.end() ? found->second.get() : nullptr;
}

void daemon_t::message_status(request_t& request) {
    uint32_t id;
    if (!request.input.get_uint32(id)) {
        QM_ERROR("can't read input parameter 'message_id'");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    const message_t* message = find_message(id);
    if (message == nullptr) {
        QM_ERROR("message by id='%u' not found (already closed?)", id);
        return request.fail(ZPD_ERROR_OUT_OF_RANGE);
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
    if (!request.input.get_uint32(id)) {
        QM_ERROR("can't read input parameter 'message_id'");
        return request.fail(ZPD_ERROR_INVALID_DATA);
    }
    message_t* message = find_message(id);
    if (message == nullptr) {
        QM_ERROR("message by id='%u' not found (already closed?)", id);
        return request.fail(ZPD_ERROR_OUT_OF_RANGE);
    }
    if (message->closed) {
        QM_ERROR("message by id='%u' already closed", id);
        return request.fail(ZPD_ERROR_OUT_OF_RANGE);
    }
    QM_DEBUG("removing message by id='%u'", id);
    message->closed = true;
    // A copy: releasing a datagram changes the message, and releasing the last one ends it.
    std::vector<datagram_t*> datagrams;
    for (int i = 0; i < static_cast<int>(message->datagrams.size()); ++i) {
        QM_DEBUG("first loop, i=%d in", i);
        if (message->datagrams[i] != nullptr) {
            datagrams.push_back(message->datagrams[i].get());
        }
        QM_DEBUG("first loop, i=%d out", i);
    }
    const uint32_t message_identity = identity(message);
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
    QM_DEBUG("returning...");
}

/// After a wrap of the ids two records can bear this one: the newer is found by it, the older was displaced. Takes the
/// one out whose datagrams are all gone; null when there is none.
std::unique_ptr<message_t> daemon_t::take_finished(uint32_t id) {
    std::unique_ptr<message_t> finished;
    const auto found = messages.find(id);
    if (found != messages.end() && found->second->datagram_count == 0) {
        finished = std::move(found->second);
        messages.erase(found);
        return finished;
    }
    const auto displaced =
        std::find_if(displaced_messages.begin(), displaced_messages.end(),
                     [id](const auto& message) { return message->id == id && message->datagram_count == 0; });
    if (displaced != displaced_messages.end()) {
        finished = std::move(*displaced);
        displaced_messages.erase(displaced);
    }
    return finished;
}

void daemon_t::delete_message(uint32_t id) {
    QM_DEBUG("");
    const std::unique_ptr<message_t> finished = take_finished(id);
    if (finished == nullptr) {
        QM_CRITICAL_ERROR("message descriptor %d not found", id);
    }
    QM_DEBUG("message 0x%X=%d erased from message database", identity(finished.get()), id);
}
