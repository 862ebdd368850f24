#include "network/trace.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "base/text.h"

namespace network {

namespace {

// The file header of pcap: written with the low octet first, times in microseconds.
constexpr uint32_t magic = 0xA1B2C3D4;
constexpr uint16_t major_version = 2;
constexpr uint16_t minor_version = 4;
constexpr uint32_t longest_record = 65'535;
constexpr uint32_t upper_pdu = 252;  // the link type

// Tags of an exported PDU. They, their lengths and their numbers have the high octet first.
constexpr uint16_t tag_end = 0;
constexpr uint16_t tag_dissector = 12;
constexpr uint16_t tag_direction = 35;

template <typename number_t>
void append_low_first(air::octets_t& to, number_t number) {
    for (size_t i = 0; i < sizeof number; ++i) {
        to.push_back(static_cast<uint8_t>(number >> (8 * i)));
    }
}

template <typename number_t>
void append_high_first(air::octets_t& to, number_t number) {
    for (size_t i = sizeof number; i > 0; --i) {
        to.push_back(static_cast<uint8_t>(number >> (8 * (i - 1))));
    }
}

/// The tags, then the message.
air::octets_t exported_pdu(std::string_view dissector, trace_direction_t direction, air::octets_view_t message) {
    constexpr size_t alignment = 4;
    std::string name(dissector);
    name.resize((name.size() + alignment - 1) / alignment * alignment);
    air::octets_t pdu;
    append_high_first(pdu, tag_dissector);
    append_high_first(pdu, static_cast<uint16_t>(name.size()));
    pdu.insert(pdu.end(), name.begin(), name.end());
    append_high_first(pdu, tag_direction);
    append_high_first(pdu, static_cast<uint16_t>(sizeof(uint32_t)));
    append_high_first(pdu, static_cast<uint32_t>(direction));
    append_high_first(pdu, tag_end);
    append_high_first(pdu, uint16_t{0});
    pdu.insert(pdu.end(), message.begin(), message.end());
    return pdu;
}

}  // namespace

std::string trace_t::open(const std::filesystem::path& file) {
    file_ = base::descriptor_t(::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!file_) {
        return fmt::format("cannot write the trace {}: {}", file.native(), base::errno_text(errno));
    }
    air::octets_t header;
    append_low_first(header, magic);
    append_low_first(header, major_version);
    append_low_first(header, minor_version);
    append_low_first(header, uint64_t{0});  // the zone and the accuracy of the times
    append_low_first(header, longest_record);
    append_low_first(header, upper_pdu);
    write(header);
    return file_ ? "" : fmt::format("cannot write the trace {}", file.native());
}

void trace_t::write(const air_message_t& message, trace_direction_t direction) {
    if (!file_) {
        return;
    }
    const air::octets_t pdu =
        exported_pdu(message.form == air_form_t::gsm_tpdu ? "gsm_sms" : "ansi_637_trans", direction, message.octets);
    constexpr uint64_t a_second = 1'000'000;
    const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
    const auto now = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count());
    air::octets_t record;
    append_low_first(record, static_cast<uint32_t>(now / a_second));
    append_low_first(record, static_cast<uint32_t>(now % a_second));
    append_low_first(record, static_cast<uint32_t>(pdu.size()));
    append_low_first(record, static_cast<uint32_t>(pdu.size()));
    record.insert(record.end(), pdu.begin(), pdu.end());
    write(record);
}

void trace_t::write(const air::octets_t& octets) {
    if (::write(file_.get(), octets.data(), octets.size()) != static_cast<ssize_t>(octets.size())) {
        file_.close();  // what follows a torn record could not be read
    }
}

}  // namespace network
