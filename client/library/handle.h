/// What stands behind zpd_client_t, and how each call of <zpd/client.h> uses it: no exception leaves the library, and a
/// failure's words stay with the handle. Cancelling a thread unwinds through a call as it does elsewhere.
#pragma once

#include <sys/types.h>
#include <zpd/client.h>

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "client/client.h"

namespace library {

/// The result for a failure.
int result_of(const client::failure_t& failure);
client::failure_t bad_argument(std::string text);
/// A text that may be NULL.
inline std::string text_of(const char* text) {
    return text != nullptr ? text : "";
}

inline constexpr const char* no_memory = "this process ran out of memory";

}  // namespace library

/// The device, and the connection to it as long as it lasts.
struct zpd_client {
  public:
    explicit zpd_client(const char* device);

    /// Asks over the connection, a new one if need be. One on which an answer may still come is not used again.
    template <typename request_t>
    auto ask(const request_t& request) -> decltype(request(std::declval<client::client_t&>())) {
        if (const auto connected = connect(); !connected) {
            return connected.failure();
        }
        auto answer = request(*connection_);
        if (!answer && answer.failure().obstacle != client::obstacle_t::request) {
            connection_.reset();
        }
        return answer;
    }

    int succeed();
    int fail(const client::failure_t& failure);
    int fail_without_memory();
    const char* error() const { return error_; }

    std::string given;  // octets or a text that the last call gave by itself

  private:
    client::answer_t<client::done_t> connect();

    const std::string device_;
    pid_t process_;  // that made the connection
    std::optional<client::client_t> connection_;
    std::string words_;
    const char* error_ = "";
};

namespace library {

template <typename value_t>
value_t given(value_t value) {
    return value;
}
template <typename object_t>
object_t* given(std::unique_ptr<object_t> object) {
    return object.release();
}

/// A call with this handle: `call` gives a value or a failure, and the value goes to `out`, which may be NULL.
template <typename out_t, typename call_t>
int answer(zpd_client_t* client, out_t* out, const call_t& call) {
    if (out != nullptr) {
        *out = {};
    }
    if (client == nullptr) {
        return ZPD_BAD_ARGUMENT;
    }
    try {
        auto value = call();
        if (!value) {
            return client->fail(value.failure());
        }
        if (out != nullptr) {
            *out = given(std::move(*value));
        }
        return client->succeed();
    } catch (const std::exception&) {
        return client->fail_without_memory();
    }
}

}  // namespace library
