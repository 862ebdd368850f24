// The radio session, the table of pending requests, and the way of each result to the request that it belongs to.
#include <exception>
#include <utility>

#include "com/qmlog/api2.h"
#include "com/qmlog/hex_dump.h"
#include "com/zpd/daemon/daemon.h"

namespace {

constexpr uint32_t ril_port_index = 1;
constexpr uint32_t no_data32 = 0x12345678;

uint32_t first_word(const octet_string_t& data) {
    uint32_t word = no_data32;
    if (data.size() >= sizeof word) {
        data.copy(reinterpret_cast<char*>(&word), sizeof word);
    }
    return word;
}

/// Data of exactly four octets is shown as a number already.
bool needs_dump(const octet_string_t& data) {
    return data.size() != sizeof(uint32_t);
}

}  // namespace

void daemon_t::start_ril() {
    HRIL fresh = reinterpret_cast<HRIL>(uintptr_t{0xDEADBEEF});  // shows in the log when the radio layer wrote none
    ril_start_result = static_cast<uint32_t>(RIL_Initialize(ril_port_index, ril_result_cb, ril_notify_cb,
                                                            RIL_NCLASS_MESSAGE | RIL_NCLASS_NETWORK, 0, &fresh));
    // The handle before the call, deliberately.
    QM_DEBUG("RIL_Initialize() returned 0x%X, hril=0x%08X", ril_start_result, identity(hril));
    if (ril_start_result == S_OK || ril_start_result == S_FALSE) {
        hril = fresh;
        QM_DEBUG("using hril=0x%08X", identity(hril));
    } else {
        hril = nullptr;
        QM_ERROR("RIL_Initialize() failed, ril_error=0x%08X", ril_start_result);
    }
}

/// Tries once more to open a session that is not open.
bool daemon_t::ensure_ril_session() {
    if (hril == nullptr) {
        start_ril();
    }
    return hril != nullptr;
}

daemon_t::abstract_ril_request_t::abstract_ril_request_t(daemon_t* owner, uint32_t id) : daemon(owner), req_id(id) {
    QM_DEBUG("registering pending ril request: req_id=0x%X abstract_ril_request_t *this=0x%X. daemon_t *daemon=0x%X",
             req_id, identity(this), identity(daemon));
    abstract_ril_request_t*& entry = daemon->pending_ril_requests[req_id];
    if (entry != nullptr) {
        daemon->displaced_ril_requests.emplace_back(entry);
    }
    entry = this;
}

daemon_t::abstract_ril_request_t::~abstract_ril_request_t() {
    auto& pending = daemon->pending_ril_requests;
    const auto found = pending.find(req_id);
    if (found == pending.end()) {
        QM_ERROR("can't find req_id=0x%X in pending_ril_requests database (0x%X expected)", req_id, identity(this));
    } else if (found->second != this) {
        QM_ERROR("found a wrong entry 0x%X for req_id=0x%X in pending_ril_requests (0x%X expected)",
                 identity(found->second), req_id, identity(this));
    } else {
        QM_DEBUG("unregistering ril request: req_id=0x%X for abstract_ril_request_t* this=0x%X", req_id,
                 identity(this));
        pending.erase(found);
    }
}

void daemon_t::abstract_ril_request_t::log_result() const {
    QM_DEBUG("ril_result_code=0x%X, data32=0x%X, param=0x%X", ril_result_code, data32, param);
    if (needs_dump(data)) {
        QM_HEX_DUMP(qmlog::level_debug, data);
    }
}

void CALLBACK daemon_t::ril_result_cb(DWORD result_code, HRESULT request, const void* data, DWORD data_size,
                                      DWORD parameter) try {
    octet_string_t octets;
    if (data != nullptr) {
        octets.assign(static_cast<const char*>(data), data_size);
    }
    const uint32_t code = result_code;
    const auto req_id = static_cast<uint32_t>(request);
    const uint32_t data32 = first_word(octets);
    const uint32_t param = parameter;
    {
        const daemon_visit_t daemon;
        if (!daemon) {
            QM_CRITICAL_ERROR("EPIC FAIL: vcard daemon object not available; lost data dump follows");
        } else if (daemon->route_result(code, req_id, octets, data32, param)) {
            return;
        }
    }
    QM_ERROR("ril_ref=0x%X, ril_result_code=0x%X, data32=0x%X, param=0x%X", req_id, code, data32, param);
    if (needs_dump(octets)) {
        QM_HEX_DUMP(qmlog::level_error, octets);
    }
} catch (const std::exception& error) {
    QM_CRITICAL_ERROR("result of ril_ref=0x%X lost: %s", static_cast<uint32_t>(request), error.what());
}

/// False when no request waits for this result; else its data is taken.
bool daemon_t::route_result(uint32_t result_code, uint32_t req_id, octet_string_t& data, uint32_t data32,
                            uint32_t parameter) {
    const control_guard_t guard(*this, "ril_result_cb");
    const auto found = pending_ril_requests.find(req_id);
    if (found == pending_ril_requests.end()) {
        QM_CRITICAL_ERROR("can't find req_id=0x%X in pending_ril_requests database; lost data dump follows", req_id);
        return false;
    }
    if (found->second->req_id != req_id) {
        QM_CRITICAL_ERROR(
            "found a wrong entry req_id=0x%X in pending_ril_requests database (req_id=0x%X expected); "
            "lost data dump follows",
            found->second->req_id, req_id);
        return false;
    }
    const std::unique_ptr<abstract_ril_request_t> request(found->second);
    request->ril_result_code = result_code;
    request->data32 = data32;
    request->param = parameter;
    request->data = std::move(data);
    request->process_result();
    return true;
}
