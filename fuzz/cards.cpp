// Cards: cut into datagrams that put together are the card, between characters where it is UTF-8.
#include <algorithm>

#include "base/text.h"
#include "cli/datagram_count.h"
#include "cli/phone_number.h"
#include "cli/text_encoding.h"
#include "cli/vcard_split.h"
#include "com/sms/sms.h"
#include "fuzz/fuzz.h"

namespace {

/// Recorded sizes may say more than there is left for the last one.
void cut(const std::string& card, bool is_utf8, bool use_long_ie) {
    std::vector<uint32_t> chunks;
    if (!sms_split_chunks(card, is_utf8, use_long_ie, 0, chunks)) {
        return;
    }
    must(!chunks.empty());
    size_t at = 0;
    for (const uint32_t chunk : chunks) {
        must(at < card.size() || card.empty());
        must(chunk <= (chunks.size() == 1 ? 133U : use_long_ie ? 127U : 128U));
        at += chunk;
        must(!is_utf8 || at >= card.size() || (static_cast<uint8_t>(card[at]) & 0xC0) != 0x80);
    }
    must(at >= card.size());
    must((is_utf8 && !base::is_utf8(card)) || chunks.size() == datagram_count(card, is_utf8, use_long_ie));
}

bool acts_on_a_terminal(unsigned char octet) {
    return octet < 0x20 || octet == 0x7F;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(data, data + size);
    for (const bool is_utf8 : {false, true}) {
        cut(text, is_utf8, false);
        cut(text, is_utf8, true);
    }
    for (const std::string_view vcard : split_vcards(text).cards) {
        must(split_vcards(vcard).cards.size() == 1 && !split_vcards(vcard).more);
    }
    if (const auto converted = to_utf8(text)) {
        must(base::is_utf8(*converted) && (encoding_of(text) != encoding_t::utf8 || text.ends_with(*converted)));
    }
    must(check_number(text).empty() ? bare_number(text) == text : true);
    if (check_number(text).empty()) {
        must(text.size() <= 21 && std::ranges::none_of(text, acts_on_a_terminal));
    }
    return 0;
}
