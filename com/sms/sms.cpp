#include "com/sms/sms.h"

#include <digest.h>

#include <charconv>
#include <cstdio>
#include <iterator>
#include <random>
#include <utility>

#include "com/miscio/utc_time.h"
#include "com/qmlog/api2.h"

namespace {

std::minstd_rand stored_name_random;

}  // namespace

void seed_stored_names(uint32_t seed) {
    stored_name_random.seed(seed);
}

std::string message_key(const incoming_datagram& datagram) {
    const sms_udh_ie_concat_t* concatenation = datagram.header.concatenation();
    if (concatenation == nullptr) {
        return {};
    }
    // "PHONE_%s_ID_%04X_LEN_%d" by hand: printf took a fifth of the time of a datagram.
    const uint32_t id = concatenation->id();
    const auto digit = [id](int shift) { return "0123456789ABCDEF"[id >> shift & 0xF]; };
    constexpr size_t before_amount = 13;
    char end[32] = {'_', 'I', 'D', '_', digit(12), digit(8), digit(4), digit(0), '_', 'L', 'E', 'N', '_'};
    const char* const behind = std::to_chars(end + before_amount, std::end(end), concatenation->amount()).ptr;
    std::string key;
    key.reserve(6 + datagram.address.size() + sizeof end);
    key.append("PHONE_", 6).append(datagram.address).append(end, static_cast<size_t>(behind - end));
    return key;
}

bool sms_message_t::add_datagram(std::unique_ptr<incoming_datagram>& record) {
    const sms_udh_ie_concat_t* concatenation = record->header.concatenation();
    uint32_t ordinal = 1;
    if (amount == 0) {
        const uint32_t told = concatenation != nullptr ? concatenation->amount() : 1;
        address = record->address;
        datagrams.resize(told);  // before it counts: memory may be missing
        amount = told;
        id = concatenation != nullptr ? concatenation->id() : id;
        ordinal = concatenation != nullptr ? concatenation->ordinal() : 1;
    } else {
        // The table's key already holds address, reference and amount: comparing them is a second line of defence.
        if (concatenation == nullptr) {
            QM_ERROR("dropping datagram: no concatenation ie found");
            return false;
        }
        if (concatenation->id() != id) {
            QM_ERROR("dropping datagram: chunk id 0x%X mismatch (0x%X expected)", concatenation->id(), id);
            return false;
        }
        if (record->address != address) {
            QM_ERROR("dropping datagram: address '%s' mismatch ('%s' expected)", record->address.c_str(),
                     address.c_str());
            return false;
        }
        if (concatenation->amount() != amount) {
            QM_ERROR("dropping datagram: datagram amount %d mismatch (%d expected)", concatenation->amount(), amount);
            return false;
        }
        ordinal = concatenation->ordinal();
    }
    if (ordinal == 0 || ordinal > amount) {
        QM_ERROR("dropping datagram: index=%d out of bounds [1..%d]", ordinal, amount);
        return false;
    }
    if (datagrams[ordinal - 1] != nullptr) {
        QM_ERROR("dropping datagram: datagram #%d already received", ordinal);
        return false;
    }
    record->header = {};  // it has told its place
    datagrams[ordinal - 1] = std::move(record);
    received += 1;
    complete = received == amount;
    return true;
}

octet_string_t sms_message_t::get_concatenated_data() const {
    octet_string_t data;
    for (const auto& datagram : datagrams) {
        if (datagram == nullptr) {
            QM_ERROR("can't concatenate incomplete message");
            return {};
        }
        data += datagram->data;
    }
    return data;
}

std::optional<std::string> sms_message_t::stored_name() const {
    octet_string_t content = address + "/";
    for (const auto& datagram : datagrams) {
        if (datagram != nullptr) {
            content += datagram->data + "/";
        }
    }
    char now[32];
    (void)snprintf(now, sizeof now, "%d/%d/", utc_seconds().value_or(-1), static_cast<int>(stored_name_random()));
    content += now;

    const auto digest = md5_digest(content.data(), content.size());
    if (!digest) {
        return std::nullopt;
    }
    std::string name;
    for (const uint8_t octet : *digest) {
        constexpr char digits[] = "0123456789abcdef";
        name += digits[octet >> 4];
        name += digits[octet & 0xF];
    }
    return name;
}
