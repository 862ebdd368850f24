/// A client of the device: encodes the control codes (com/zpd/zpd_ioctl.h), calls, decodes. One connection an object,
/// one request at a time; not for use by several threads at once. Failures are answers, never exceptions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "client/errors.h"
#include "client/service.h"
#include "device/device_socket.h"
#include "device/packet.h"

namespace client {

using device::default_device;
using device::max_input;   // octets of a request
using device::max_output;  // octets of a reply
using device::octets_t;
using device::octets_view_t;
using device::reply_t;
using device::system_folder;  // of the devices of the system's services, each under its name
using device::user_folder;    // of those of the user's own

struct message_list_t {
    uint32_t total = 0;
    std::vector<uint32_t> ids;  // as many as fit the answer
};

struct log_options_t {
    uint8_t enabled = 0;
    uint8_t output_level = 0;
    uint8_t file_level = 0;
};

struct contacts_value_t {
    uint32_t type = 0;  // as the registry names it
    std::string octets;
};

class client_t final : public service_t {
  public:
    /// Opens a device by its name or its socket's path, see client/connection.h.
    static answer_t<client_t> connect(std::string_view device);

    /// Between two requests: the service has closed the connection.
    [[nodiscard]] bool has_ended() const;

    /// One raw request. A failure only when no usable reply came; a request that the driver refused is a reply.
    answer_t<reply_t> ioctl(uint32_t code, octets_view_t input, uint32_t output_capacity);

    answer_t<uint32_t> version();
    answer_t<bool> activation();
    answer_t<bool> set_activation(bool active);
    answer_t<std::vector<std::string>> applications();
    answer_t<done_t> register_application(std::string_view name);
    answer_t<done_t> clear_applications();
    answer_t<done_t> launch(std::string_view uri);

    /// The message id. The answer of the driver that stands for the id 0 counts as one.
    answer_t<uint32_t> send(const outgoing_card_t& card, std::string_view number);
    /// How many datagrams it takes.
    answer_t<uint32_t> count(const outgoing_card_t& card);
    answer_t<message_list_t> list();
    /// A status (ZPD_STATUS_*) a datagram.
    answer_t<std::vector<uint32_t>> status(uint32_t id);
    answer_t<done_t> close(uint32_t id);

    /// With a value, sets it first; the answer is what then holds.
    answer_t<log_options_t> log_options(std::optional<log_options_t> options = std::nullopt);
    answer_t<uint8_t> capacity(std::optional<uint8_t> capacity = std::nullopt);
    answer_t<uint32_t> incoming_dir_size(std::optional<uint32_t> files = std::nullopt);
    answer_t<contacts_value_t> contacts_setting(std::string_view name);

    // The service's own requests, see device/service_requests.h.
    answer_t<std::string> service_status() override;
    /// Any phone is the only one: one that is named is refused.
    answer_t<std::string> outbox_add(const handed_in_card_t& card) override;
    /// Several, the next ones while the service has the first in hand: an answer for each. Without answers any of them
    /// may be in the outbox.
    answer_t<std::vector<answer_t<std::string>>> outbox_add_all(const std::vector<handed_in_card_t>& cards);
    /// The leases of these messages hold so many seconds from now on: the ids of those that have none any more. Where
    /// it fails some may be renewed.
    answer_t<std::vector<uint64_t>> outbox_renew(uint32_t seconds, const std::vector<uint64_t>& ids);
    answer_t<std::string> outbox_list(uint64_t after, bool all) override;
    answer_t<std::string> outbox_watch(uint64_t id, uint64_t version, uint32_t milliseconds) override;
    answer_t<std::string> outbox_cancel(uint64_t id) override;
    answer_t<std::string> outbox_retry(uint64_t id, uint64_t expires) override;
    answer_t<std::string> events(uint64_t after, uint64_t since, uint32_t milliseconds) override;
    answer_t<std::string> inbox_list(uint64_t after) override;
    answer_t<std::string> inbox_octets(uint64_t number) override;
    answer_t<done_t> inbox_remove(uint64_t number) override;

  private:
    client_t(base::descriptor_t socket, std::string path) : socket_(std::move(socket)), path_(std::move(path)) {}

    [[nodiscard]] answer_t<done_t> send_request(uint32_t code, octets_view_t input, uint32_t output_capacity) const;
    [[nodiscard]] answer_t<reply_t> receive_reply() const;
    /// 0, or the errno.
    [[nodiscard]] int send_packet(const octets_t& packet) const;
    answer_t<octets_t> receive_packet() const;
    /// The output of a request that must succeed.
    answer_t<octets_t> call(uint32_t code, const base::writer_t& input);
    answer_t<std::string> call_text(uint32_t code, const base::writer_t& input);
    answer_t<done_t> command(uint32_t code, const base::writer_t& input);
    answer_t<uint32_t> call_u32(uint32_t code, const base::writer_t& input);

    base::descriptor_t socket_;
    std::string path_;
};

}  // namespace client
