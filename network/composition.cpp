#include "network/composition.h"

#include <algorithm>
#include <functional>

#include "air/gsm_alphabet.h"
#include "base/text.h"

namespace network {

namespace {

constexpr size_t max_parts = 255;

/// The header of a part: its place among all, unless it is the only one, and the ports, if there are any.
air::octets_t header_of(uint8_t reference, size_t parts, size_t part, const std::optional<ports_t>& ports) {
    air::bit_writer_t header;
    if (parts > 1) {
        header.bits(0x0003, 16);  // element 0, of 3 octets
        header.bits(reference, 8);
        header.bits(static_cast<unsigned>(parts), 8);
        header.bits(static_cast<unsigned>(part), 8);
    }
    if (ports) {
        header.bits(0x0504, 16);  // element 5, of 4 octets
        header.bits(ports->destination, 16);
        header.bits(ports->originator, 16);
    }
    return header.octets();
}

/// Cuts what has `size` units into pieces of at most `room`, each cut where `may_cut` says that a character ends. None
/// when the pieces are too many.
std::vector<size_t> ends_of_pieces(size_t size, size_t room, const std::function<bool(size_t)>& may_cut) {
    std::vector<size_t> ends;
    for (size_t end = 0; end < size;) {
        end = std::min(size, end + room);
        while (end < size && !may_cut(end)) {
            --end;
        }
        ends.push_back(end);
    }
    return ends.size() > max_parts ? std::vector<size_t>() : ends;
}

/// Fills a part with octets behind its header, if it has one.
void set_octets(air::submit_t& submit, const air::octets_t& header, air::octets_view_t body) {
    submit.user_data = header.empty() ? air::octets_t(body.begin(), body.end())
                                      : air::join_user_data(header, body).value_or(air::octets_t{});
    submit.user_data_length = static_cast<uint8_t>(submit.user_data.size());
}

/// The header takes the place of whole septets, fill bits before the first of the text (3GPP TS 23.040 9.2.3.24).
void set_septets(air::submit_t& submit, const air::octets_t& header, std::span<const uint8_t> septets) {
    const size_t header_octets = header.empty() ? 0 : 1 + header.size();
    std::vector<uint8_t> all((header_octets * 8 + 6) / 7, 0);
    all.insert(all.end(), septets.begin(), septets.end());
    submit.user_data = air::gsm_alphabet::pack(all);
    submit.user_data_length = static_cast<uint8_t>(all.size());
    if (!header.empty()) {
        submit.user_data[0] = static_cast<uint8_t>(header.size());
        std::ranges::copy(header, submit.user_data.begin() + 1);
    }
}

/// How an alphabet is cut and written.
struct writing_t {
    uint8_t data_coding;
    size_t room;       // units in one datagram
    size_t part_room;  // in one of several
    void (*set)(air::submit_t&, const air::octets_t& header, std::span<const uint8_t> units);
};

composed_t compose(std::span<const uint8_t> units, const writing_t& writing, const std::optional<ports_t>& ports,
                   std::string_view destination, uint8_t reference, const std::function<bool(size_t)>& may_cut) {
    const std::optional<air::address_t> address = air::address_from_number(destination);
    if (!address) {
        return {};
    }
    const bool whole = units.size() <= writing.room;
    const std::vector<size_t> ends = ends_of_pieces(units.size(), whole ? writing.room : writing.part_room, may_cut);
    composed_t parts;
    size_t begin = 0;
    for (const size_t end : ends) {
        const air::octets_t header = header_of(reference, ends.size(), parts.size() + 1, ports);
        air::submit_t part;
        part.destination = *address;
        part.data_coding = writing.data_coding;
        part.header_indicator = !header.empty();
        writing.set(part, header, units.subspan(begin, end - begin));
        parts.push_back(air::encode(part).value_or(air::octets_t{}));
        begin = end;
    }
    return parts;
}

constexpr uint8_t data_coding_ucs2 = 0x08;  // 3GPP TS 23.038 4
constexpr writing_t in_septets = {0, 160, 153, set_septets};
constexpr writing_t in_ucs2 = {data_coding_ucs2, 140, 134, set_octets};

}  // namespace

composed_t compose_text(std::string_view text, std::string_view destination, uint8_t reference) {
    if (const auto septets = air::gsm_alphabet::from_utf8(text)) {
        constexpr uint8_t escape = 0x1B;  // the character goes on behind it
        return compose(*septets, in_septets, std::nullopt, destination, reference,
                       [&](size_t at) { return (*septets)[at - 1] != escape; });
    }
    air::octets_t octets;
    for (const char16_t unit : base::to_utf16(text)) {
        octets.push_back(static_cast<uint8_t>(unit >> 8));
        octets.push_back(static_cast<uint8_t>(unit));
    }
    constexpr uint8_t low_surrogate = 0xDC;
    return compose(octets, in_ucs2, std::nullopt, destination, reference,
                   [&](size_t at) { return at % 2 == 0 && (octets[at] & 0xFC) != low_surrogate; });
}

composed_t compose_octets(air::octets_view_t octets, const ports_t& ports, std::string_view destination,
                          uint8_t reference) {
    constexpr writing_t behind_ports = {air::data_coding_8bit, 133, 128, set_octets};
    return compose(octets, behind_ports, ports, destination, reference, [](size_t) { return true; });
}

bool is_submission(air::octets_view_t tpdu) {
    constexpr uint8_t type_mask = 0x03;
    constexpr uint8_t type_submit = 0x01;
    return !tpdu.empty() && (tpdu[0] & type_mask) == type_submit;
}

std::optional<air::octets_t> readdressed(air::octets_view_t tpdu, std::string_view destination) {
    std::optional<air::submit_t> submit = air::decode_submit(tpdu);
    const auto other = destination.empty() || !submit ? std::nullopt : air::address_from_number(destination);
    if (other) {
        submit->destination = *other;
    }
    return submit ? air::encode(*submit) : std::nullopt;
}

}  // namespace network
