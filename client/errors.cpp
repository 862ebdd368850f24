#include "client/errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "com/zpd/zpd_ioctl.h"
#include "device/device_socket.h"

namespace client {

namespace {

struct words_t {
    uint32_t code;
    std::string_view text;
};

constexpr auto table = std::to_array<words_t>({
    {ZPD_ERROR_INVALID_FUNCTION, "the driver does not know this request"},
    {ZPD_ERROR_NOT_FOUND, "there is no such value"},
    {ZPD_ERROR_ACCESS, "access was refused"},
    {ZPD_ERROR_NOT_ENOUGH_MEMORY, "the driver ran out of memory"},
    {ZPD_ERROR_INVALID_DATA, "the driver could not read the parameters of the request"},
    {device::error_malformed, "the packet was malformed"},
    {ZPD_ERROR_INSUFFICIENT_BUFFER, "the answer does not fit the room for it"},
    {device::error_busy, "the service has as many clients as it takes; try again when one has ended"},
    {ZPD_ERROR_OUT_OF_RANGE, "a value is out of its range, or the message is unknown or closed"},
    {ZPD_ERROR_LAUNCH_FAILED, "no application could be started for it"},
    {ZPD_ERROR_CANNOT_IMPERSONATE, "the driver could not act on behalf of the client"},
    {ZPD_ERROR_DEVICE_NOT_AVAILABLE, "the driver or its radio is not available"},
    {ZPD_ERROR_TOO_MANY_DATAGRAMS, "the card needs more than 255 datagrams"},
});

}  // namespace

std::string error_words(uint32_t code) {
    const auto* const row = std::ranges::find(table, code, &words_t::code);
    const std::string_view text = row == table.end() ? "the request failed" : row->text;
    return fmt::format("{} (error {})", text, code);
}

}  // namespace client
