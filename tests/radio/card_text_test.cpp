// Cards in the 7-bit alphabet, as the radio hands them to the driver.
#include <gtest/gtest.h>
#include <platform/linux/hex.h>

#include "radio/ril_message.h"

namespace {

struct card_text_t {
    const char* name;
    const char* tpdu;
    std::string text;
};

TEST(card_text, becomes_octets) {
    const card_text_t cards[] = {
        // The header's 7 octets are 8 septets: no fill bits.
        {"no fill", "440B912120550501F00000621112314523000C06050423F40000C2E25106", "BEG2"},
        // 12 octets, and 2 fill bits.
        {"fill", "440B912120550501F0000062111231452300110B050423F400000003D80101088B47", "BEG"},
        {"gammu 1.42 -nokia",
         "440B912120550501F0000062111231452300440B050423F400000003DE0101202C1E934E9D751894121B0AA78EF9B697D9E171B9A1A01"
         "699"
         "BA554C0693D56A35584C366B288A4EA2CE3A0C4A890D05",
         "BEGIN:VCARD\r\nN:Lovelace\r\nTEL:+12025550123\r\nEND:VCARD\r\n"},
    };
    for (const auto& [name, tpdu, text] : cards) {
        const auto card = radio::card_datagram_of(radio::technology_t::gsm, *platform::from_hex(tpdu));
        ASSERT_TRUE(card) << name;
        const RIL_IN_DELIVER& in = card->message.msgInDeliver;
        EXPECT_EQ(std::string(in.rgbMsg, in.rgbMsg + in.cchMsgLength), text) << name;
        EXPECT_EQ(in.rmdDataCoding.dwAlphabet, RIL_DCSALPHABET_8BIT);
    }
}

}  // namespace
