#include "client/library/handle.h"

#include <unistd.h>

#include <array>

#include "com/zpd/zpd_ioctl.h"
#include "device/device_socket.h"
#include "device/service_requests.h"

namespace {

using client::answer_t;
using client::done_t;
using client::failure_t;
using client::obstacle_t;

int result_of_refusal(uint32_t error) {
    switch (error) {
        case device::error_value:
        case device::error_input:
        case ZPD_ERROR_TOO_MANY_DATAGRAMS:
        case ZPD_ERROR_OUT_OF_RANGE:
            return ZPD_BAD_ARGUMENT;
        case device::error_not_found:
            return ZPD_NOT_FOUND;
        case device::error_not_now:
            return ZPD_NOT_NOW;
        case device::error_full:
            return ZPD_FULL;
        case device::error_not_written:
            return ZPD_NOT_WRITTEN;
        default:
            return ZPD_REFUSED;
    }
}

}  // namespace

namespace library {

int result_of(const failure_t& failure) {
    switch (failure.obstacle) {
        case obstacle_t::no_service:
            return ZPD_NO_SERVICE;
        case obstacle_t::access:
            return ZPD_NO_ACCESS;
        case obstacle_t::busy:
            return ZPD_BUSY;
        case obstacle_t::no_answer:
            return ZPD_NO_ANSWER;
        default:
            return result_of_refusal(failure.code);
    }
}

failure_t bad_argument(std::string text) {
    return {device::error_value, std::move(text), obstacle_t::request};
}

}  // namespace library

zpd_client::zpd_client(const char* device)
    : device_(device != nullptr ? std::string(device) : std::string(device::default_device)), process_(getpid()) {}

// A child must not read its parent's answers: it closes its copy of the descriptor, which the parent does not notice.
answer_t<done_t> zpd_client::connect() {
    const pid_t process = getpid();
    if (process_ != process || (connection_ && connection_->has_ended())) {
        connection_.reset();
    }
    process_ = process;
    if (!connection_) {
        auto connection = client::client_t::connect(device_);
        if (!connection) {
            return connection.failure();
        }
        connection_ = std::move(*connection);
    }
    return done_t{};
}

int zpd_client::succeed() {
    error_ = "";
    return ZPD_OK;
}

int zpd_client::fail(const failure_t& failure) {
    words_ = failure.text;
    error_ = words_.c_str();
    return library::result_of(failure);
}

// It may have come between a request and its answer.
int zpd_client::fail_without_memory() {
    connection_.reset();
    error_ = library::no_memory;
    return ZPD_NO_MEMORY;
}

zpd_client_t* zpd_client_new(const char* device) try { return new zpd_client(device); } catch (const std::exception&) {
    return nullptr;
}

void zpd_client_free(zpd_client_t* client) {
    delete client;
}

const char* zpd_client_error(const zpd_client_t* client) {
    return client != nullptr ? client->error() : "";
}

const char* zpd_library_version() {
    return ZPD_LIBRARY_VERSION;
}

const char* zpd_result_text(int result) {
    static constexpr std::array texts{
        "done",
        "an argument is none that this call takes",
        "no service runs on the device",
        "the device does not let this user in",
        "the service takes no more clients now",
        "the service ended or did not answer",
        "the service refused the request",
        "there is no such message or card",
        "the message does not allow it now",
        "the outbox is full",
        "the service could not write it to its disk",
        library::no_memory,
    };
    const bool known = result >= 0 && static_cast<size_t>(result) < texts.size();
    return known ? texts.at(static_cast<size_t>(result)) : "it failed";
}
