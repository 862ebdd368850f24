// What strangers send, from the octets that a modem delivers, through the radio into a driver that runs. What must
// hold: the driver survives, and the files that it stores are exactly the messages whose parts have all come, each the
// concatenation of the parts of one sender's message in their order, the first of each.
#include <algorithm>
#include <map>
#include <utility>

#include "fuzz/fuzz.h"
#include "fuzz/fuzzed_phone.h"
#include "fuzz/input.h"
#include "fuzz/sent_datagram.h"
#include "radio/ril_message.h"

namespace {

/// The driver's view of a header (com/sms/sms_udh.h): every element must be whole, and the first concatenation counts.
struct place_t {
    bool valid = true;
    std::string message;  // empty: of one datagram
    size_t part = 1, parts = 1;
};
place_t place_of(air::octets_view_t header) {
    const std::map<uint8_t, size_t> lengths = {{0x00, 3}, {0x08, 4}, {0x04, 2}, {0x05, 4}};
    place_t place;
    for (air::bit_reader_t reader(header); reader.left() > 0;) {
        const uint8_t element = reader.octet();
        const air::octets_view_t data = reader.octets(reader.octet());
        const auto length = lengths.find(element);
        if (reader.failed() || (length != lengths.end() && data.size() != length->second)) {
            return {.valid = false};
        }
        if ((element == 0x00 || element == 0x08) && place.message.empty()) {
            const int reference = element == 0x00 ? data[0] : data[0] << 8 | data[1];
            place.parts = data[data.size() - 2];
            place.part = std::max<size_t>(data.back(), 1);
            place.message = std::to_string(reference) + "/" + std::to_string(place.parts);
        }
    }
    place.valid = place.part <= place.parts;
    return place;
}

/// What has come, and what must be stored of it.
class expected_t {
  public:
    void take(const radio::card_datagram_t& card) {
        const place_t place = place_of(card.header);
        if (!place.valid) {
            return;
        }
        const std::string sender = card.number.empty() ? "empty" : card.number;
        const std::string key = place.message.empty() ? "" : place.message + "/" + sender;
        auto& parts = incomplete_[key];
        parts.emplace(place.part, std::string(card.body.begin(), card.body.end()));
        if (parts.size() == place.parts) {
            std::string whole = sender + ":";
            for (const auto& [part, body] : parts) {
                whole += body;
            }
            stored_.push_back(whole);
            incomplete_.erase(key);
        }
    }
    std::vector<std::string> take_stored() {
        std::ranges::sort(stored_);
        return std::exchange(stored_, {});
    }

  private:
    std::vector<std::string> stored_;
    std::map<std::string, std::map<size_t, std::string>> incomplete_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzzed_phone_t phone;
    static expected_t expected;
    if (phone.begin()) {
        expected = {};
    }
    input_t input(data, size);
    const bool logs = input.octet() == 'L';
    if (logs) {
        phone.log(true);
    }
    while (!input.empty()) {
        const sent_datagram_t sent = sent_datagram(input, phone.inputs());
        if (const auto card = radio::card_datagram_of(sent.technology, sent.octets)) {
            RILMESSAGE message;
            must(radio::fill_card_message(sent.technology, sent.octets, message));
            phone.radio.deliver(message);
            expected.take(*card);
        }
    }
    if (logs) {
        phone.log(false);
    }
    must(phone.cards() == expected.take_stored());
    return 0;
}
