/// Which datagrams make a message. Pure functions over what is known of each one: the journal stores, these decide.
///
/// What they rest on: a sender has one message under a reference at a time and submits its datagrams in order, one
/// after the other, save those that he submits again. So the datagrams of a message, in the order in which the service
/// centre got them, are neighbours, and no other datagram of a place that they have lies between them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "air/tpdu.h"

namespace radio::assembly {

using air::place_of;
using air::place_t;

/// A datagram among those with its sender, reference and number of parts.
struct record_t {
    int64_t id;        // rises in the order of arrival
    int64_t stamp;     // when the service centre got it, in seconds
    int64_t came;      // when it came here, in seconds of another clock
    uint8_t part;      // from 1
    bool gone;         // with a message that was whole
    std::string body;  // what it brings of the message
};
/// In the order of their stamps and, where these are equal, of arrival.
using records_t = std::vector<record_t>;
void insert(records_t& records, record_t record);

/// Seconds.
struct rules_t {
    int64_t close;  // between neighbours of one message, that nobody wonders at
    int64_t wait;   // for better ones, when a set is doubtful
    int64_t apart;  // that no two neighbours of a message are
};

/// A datagram for each place.
struct set_t {
    std::vector<int64_t> ids;  // in the order of the parts
    int64_t due;  // when it is the message, if no better one has come, on the clock of `came`; 0: beyond doubt
};
/// The message that goes next: the first one that is beyond doubt, or else the one that is due first. It is doubtful
/// when its neighbours are not close, when they are not in the order of their parts, and when some, but not all, repeat
/// what has gone: they may have been submitted again with that. None when there is no set.
std::optional<set_t> choose(const records_t& records, size_t parts, const rules_t& rules);

/// Neighbours that wait for others.
struct incomplete_t {
    std::vector<int64_t> ids;
    size_t places = 0;     // different parts
    int64_t since = 0;     // `came` of the first to come
    bool repeats = false;  // all repeat what has gone, and are nobody's loss
};
std::vector<incomplete_t> incomplete(const records_t& records, const rules_t& rules);

/// What waits and repeats what has gone. It must not be known longer than that: it would be taken for something new.
std::vector<const record_t*> left_over(const records_t& records);

}  // namespace radio::assembly
