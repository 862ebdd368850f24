/// What the errors of control requests mean, in plain words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace client {

/// Words for a Win32 error code as the driver and the device manager set them.
std::string error_words(uint32_t code);

/// What stood in the way of a call.
enum class obstacle_t {
    request,     // nothing: the driver refused this request
    no_service,  // no service runs on the device
    access,      // the device does not let this user in, or another user serves it
    busy,        // the service takes no more clients now
    no_answer,   // what is there does not answer as a service does
};

/// Why a call failed. `code` is the last error of the request, or 0 when there was no usable answer at all.
struct failure_t {
    uint32_t code = 0;
    std::string text;
    obstacle_t obstacle = obstacle_t::no_answer;
};

/// What a call gives: a value or a failure.
template <typename value_t>
class [[nodiscard]] answer_t {
  public:
    answer_t(value_t value) : value_(std::move(value)) {}          // NOLINT: a value is an answer
    answer_t(failure_t failure) : failure_(std::move(failure)) {}  // NOLINT: so is a failure

    explicit operator bool() const { return value_.has_value(); }
    value_t& operator*() { return *value_; }
    const value_t& operator*() const { return *value_; }
    value_t* operator->() { return &*value_; }
    const value_t* operator->() const { return &*value_; }
    const failure_t& failure() const { return failure_; }

  private:
    std::optional<value_t> value_;
    failure_t failure_;
};

/// The value of a call that gives none.
struct done_t {};

}  // namespace client
