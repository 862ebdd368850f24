#include "network/trace.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "base/text.h"

namespace network {

namespace {

// The types of blocks, and what stands in them; numbers have the low octet first.
constexpr uint32_t section_header = 0x0A0D0D0A;
constexpr uint32_t byte_order_magic = 0x1A2B3C4D;
constexpr uint32_t version_1_0 = 1;
constexpr uint64_t unknown_length = UINT64_MAX;  // of the section: it goes on
constexpr uint32_t interface_description = 1;
constexpr uint32_t upper_pdu = 252;  // the link type
constexpr uint32_t unlimited = 0;    // the longest message of an interface
constexpr uint32_t enhanced_packet = 6;
constexpr uint32_t received = 1;  // epb_flags, as the phone sees it
constexpr uint32_t sent = 2;

enum class option_t : uint16_t {
    end = 0,
    packet_flags = 2,
    name = 2,         // of an interface
    description = 3,  // of an interface
    application = 4,
    resolution = 9,  // of an interface's times
};

// Tags of an exported PDU; they, their lengths and their numbers have the high octet first.
constexpr uint8_t tag_dissector = 12;
constexpr uint8_t tag_direction = 35;

/// Options and packets end at a multiple of four octets.
void append_padded(base::writer_t& to, base::octets_view_t octets) {
    constexpr size_t alignment = 4;
    to.raw(octets);
    for (size_t size = octets.size(); size % alignment != 0; ++size) {
        to.octet(0);
    }
}

void append_option(base::writer_t& to, option_t option, base::octets_view_t value) {
    constexpr unsigned length_at = 16;
    to.u32(static_cast<uint32_t>(option) | static_cast<uint32_t>(value.size()) << length_at);
    append_padded(to, value);
}

void append_option(base::writer_t& to, option_t option, std::string_view text) {
    append_option(to, option, base::octets_t(text.begin(), text.end()));
}

/// The length stands at both ends.
base::octets_t block(uint32_t type, const base::writer_t& body) {
    const auto length = static_cast<uint32_t>(body.octets().size() + 3 * sizeof(uint32_t));
    return base::writer_t().u32(type).u32(length).raw(body.octets()).u32(length).octets();
}

base::octets_t section_header_block() {
    base::writer_t body;
    body.u32(byte_order_magic).u32(version_1_0).u64(unknown_length);
    append_option(body, option_t::application, "zpd");
    append_option(body, option_t::end, "");
    return block(section_header, body);
}

base::octets_t interface_block(std::string_view phone, std::string_view network) {
    constexpr uint8_t nanoseconds = 9;
    base::writer_t body;
    body.u32(upper_pdu).u32(unlimited);
    append_option(body, option_t::name, phone);
    append_option(body, option_t::description, network);
    append_option(body, option_t::resolution, base::octets_t{nanoseconds});
    append_option(body, option_t::end, "");
    return block(interface_description, body);
}

/// The tags, then the message. Its direction tells the dissector which way a TPDU goes, and is the service centre's.
base::octets_t exported_pdu(const air_message_t& message, trace_direction_t direction) {
    // Of lengths that need no padding.
    const std::string_view dissector = message.form == air_form_t::gsm_tpdu
                                           ? std::string_view("gsm_sms\0", 8)
                                           : std::string_view("ansi_637_trans\0\0", 16);
    base::writer_t pdu;
    pdu.octet(0).octet(tag_dissector).octet(0).octet(static_cast<uint8_t>(dissector.size()));
    pdu.raw(base::octets_t(dissector.begin(), dissector.end()));
    pdu.octet(0).octet(tag_direction).octet(0).octet(sizeof(uint32_t));
    pdu.raw(base::octets_t{0, 0, 0, static_cast<uint8_t>(direction == trace_direction_t::from_phone)});
    pdu.u32(0);  // the end of the tags
    return pdu.raw(message.octets).octets();
}

base::octets_t packet_block(uint32_t interface, const air_message_t& message, trace_direction_t direction) {
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    const auto now = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(since_1970).count());
    constexpr unsigned high_half = 32;
    const base::octets_t pdu = exported_pdu(message, direction);
    const auto length = static_cast<uint32_t>(pdu.size());
    base::writer_t body;
    body.u32(interface).u32(static_cast<uint32_t>(now >> high_half)).u32(static_cast<uint32_t>(now));
    body.u32(length).u32(length);  // as captured, and as it was
    append_padded(body, pdu);
    const uint32_t flags = direction == trace_direction_t::to_phone ? received : sent;
    append_option(body, option_t::packet_flags, base::writer_t().u32(flags).octets());
    append_option(body, option_t::end, "");
    return block(enhanced_packet, body);
}

std::string failure(const std::filesystem::path& file, int reason) {
    return fmt::format("cannot write the trace {}: {}", file.native(), base::errno_text(reason));
}

/// 0, or why not all of it could be written.
int write_all(int file, base::octets_view_t octets) {
    while (!octets.empty()) {
        const ssize_t count = ::write(file, octets.data(), octets.size());
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        octets = octets.subspan(count < 0 ? 0 : static_cast<size_t>(count));
    }
    return 0;
}

}  // namespace

std::string trace_t::open(const std::filesystem::path& file, failed_t failed) {
    base::descriptor_t opened(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const base::octets_t header = section_header_block();
    if (const int reason = opened ? write_all(opened.get(), header) : errno; reason != 0) {
        return failure(file, reason);
    }
    path_ = file;
    file_ = std::move(opened);
    failed_ = std::move(failed);
    size_ = header.size();
    interfaces_.clear();
    return {};
}

void trace_t::write(std::string_view phone, std::string_view network, const air_message_t& message,
                    trace_direction_t direction) {
    if (file_) {
        append(packet_block(interface_of(phone, network), message, direction));
    }
}

/// Its number: its place among the interfaces of the file.
uint32_t trace_t::interface_of(std::string_view phone, std::string_view network) {
    const auto [known, is_new] =
        interfaces_.try_emplace({std::string(phone), std::string(network)}, static_cast<uint32_t>(interfaces_.size()));
    if (is_new) {
        append(interface_block(phone, network));
    }
    return known->second;
}

/// What follows a torn block could not be read, so the torn one goes.
void trace_t::append(const base::octets_t& block) {
    if (!file_) {
        return;  // the block before it, an interface's, has failed
    }
    const int reason = write_all(file_.get(), block);
    if (reason == 0) {
        size_ += block.size();
        return;
    }
    [[maybe_unused]] const int of_no_avail = ftruncate(file_.get(), static_cast<off_t>(size_));  // on a pipe
    file_.close();
    if (failed_) {
        failed_(failure(path_, reason));
    }
}

}  // namespace network
