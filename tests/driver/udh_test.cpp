// The user data header and reassembly, class by class (3GPP TS 23.040 9.2.3.24).

#include <gmock/gmock.h>

#include "base/hex.h"
#include "com/sms/sms.h"
#include "com/sms/sms_udh.h"
#include "tests/driver/captured_log.h"
#include "tests/driver/phone.h"

using testing::ElementsAre;

namespace {

std::string unhex(const std::string& digits) {
    const auto octets = base::from_hex(digits).value();
    return {octets.begin(), octets.end()};
}

/// A sink for what is reported as a warning or worse.
captured_log_t troubles() {
    return captured_log_t(qmlog::flag_message | qmlog::flag_level, 4);
}

TEST(user_data_header, parses_and_encodes_again) {
    // The octets, their elements, what is wrong, and the offset of the first element that cannot be parsed.
    const std::tuple<const char*, std::string, std::string, int> cases[] = {
        {"00032A0201050423F40000", "{ie:CONCAT8,msg:1,len:2,id=0x2A}{ie:APPPORT16,src:0x0,dst:0x23F4}", "", -1},
        {"08041234FF0304020501", "{ie:CONCAT16,msg:3,len:255,id=0x1234}{ie:APPPORT8,src:0x1,dst:0x5}", "", -1},
        {"240070020AFF", "{ie:unknown,type:24,payload:}{ie:unknown,type:70,payload:0aff}", "", -1},
        {"", "", "", -1},
        {"00042A020100", "", "Invalid payload length 4 of ie=0x00", 0},
        {"0803000102", "", "Invalid payload length 3 of ie=0x08", 0},
        {"0401FF", "", "Invalid payload length 1 of ie=0x04", 0},
        {"05022300", "", "Invalid payload length 2 of ie=0x05", 0},
        {"050423F4000000", "{ie:APPPORT16,src:0x0,dst:0x23F4}", "invalid sms udh ie length 1<2", 6},
        {"7003AABB", "", "invalid sms udh ie payload length 3 in sms udh ie of length 4", 0},
        {"00032A0200", "{ie:CONCAT8,msg:1,len:2,id=0x2A}",
         "invalid ordinal datagram number '0' in concatenation header ie replaced by 1", -1},
    };
    for (const auto& [octets, expected, trouble, bad_offset] : cases) {
        SCOPED_TRACE(octets);
        const auto log = troubles();
        sms_udh_t header;
        header.parse_udh(unhex(octets));
        EXPECT_EQ(header.valid, bad_offset < 0);
        std::string texts;
        for (const auto& ie : header.ies) {
            texts += ie->text();
        }
        EXPECT_EQ(texts, expected);
        lines_t told;
        if (!trouble.empty()) {
            told.push_back("ERROR: " + trouble);
        }
        if (bad_offset >= 0) {
            told.push_back("ERROR: invalid sms udh ie at offset " + std::to_string(bad_offset));
        }
        EXPECT_EQ(log.lines, told);
        if (told.empty()) {
            const std::string whole = unhex(octets);
            EXPECT_EQ(header.str(), whole.empty() ? "" : u8(static_cast<unsigned>(whole.size()) + 1) + whole);
        }
    }
}

TEST(user_data_header, replaces_what_is_out_of_range) {
    sms_udh_ie_concat8_t narrow;
    sms_udh_ie_concat16_t wide;
    sms_udh_ie_appport8_t near;
    sms_udh_ie_appport16_t far;
    const auto log = troubles();
    narrow.set_id(0x1234);
    wide.set_id(0x12345);
    narrow.set_amount(256);
    narrow.set_ordinal(256);
    near.set_dst(0x23F4);
    near.set_src(256);
    far.set_dst(0x10000);
    far.set_src(0xFFFFFFFF);
    EXPECT_EQ(narrow.str(), unhex("000334FFFF"));
    EXPECT_EQ(wide.str(), unhex("080423450000"));
    EXPECT_EQ(near.str(), unhex("0402FFFF"));
    EXPECT_EQ(far.str(), unhex("0504FFFFFFFF"));
    EXPECT_THAT(log.lines,
                ElementsAre("WARNING: invalid message id 4660 > 255 in concatenation header is replaced by 52",
                            "WARNING: invalid message id 74565 > 65535 in concatenation header is replaced by 9029",
                            "ERROR: invalid datagram amount field '256' in concatenation header ie replaced by 255",
                            "ERROR: invalid ordinal datagram number '256' in concatenation header ie replaced by 255",
                            "ERROR: invalid destination port id 0x23F4 replaced by maximal available id=0xFF",
                            "ERROR: invalid source port id 0x100 replaced by maximal available id=0xFF",
                            "ERROR: invalid destination port id 0x10000 replaced by maximal available id=0xFFFF",
                            "ERROR: invalid source port id 0xFFFFFFFF replaced by maximal available id=0xFFFF"));
}

std::unique_ptr<incoming_datagram> datagram(const std::string& data, const std::string& address,
                                            const std::string& header) {
    auto record = std::make_unique<incoming_datagram>();
    record->data = data;
    record->address = address;
    record->header.parse_udh(header);
    return record;
}

TEST(reassembly, drops_what_does_not_belong) {
    sms_message_t message;
    auto second = datagram("B", "+1", part_header(0x2A, 2, 2));
    EXPECT_EQ(message_key(*second), "PHONE_+1_ID_002A_LEN_2");
    ASSERT_TRUE(message.add_datagram(second));
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"+1", port_header, "dropping datagram: no concatenation ie found"},
        {"+2", part_header(0x2B, 3, 9), "dropping datagram: chunk id 0x2B mismatch (0x2A expected)"},
        {"+12", part_header(0x2A, 3, 9), "dropping datagram: address '+12' mismatch ('+1' expected)"},
        {"+1", part_header(0x2A, 3, 9), "dropping datagram: datagram amount 3 mismatch (2 expected)"},
        {"+1", part_header(0x2A, 2, 9), "dropping datagram: index=9 out of bounds [1..2]"},
        {"+1", part_header(0x2A, 2, 2), "dropping datagram: datagram #2 already received"},
    };
    for (const auto& [address, header, trouble] : cases) {
        const auto log = troubles();
        auto record = datagram("x", address, header);
        EXPECT_FALSE(message.add_datagram(record));
        EXPECT_NE(record, nullptr) << "stays the caller's";
        EXPECT_THAT(log.lines, ElementsAre("ERROR: " + std::string(trouble)));
        EXPECT_FALSE(message.is_complete());
    }
    const auto log = troubles();
    EXPECT_EQ(message.get_concatenated_data(), "");
    EXPECT_THAT(log.lines, ElementsAre("ERROR: can't concatenate incomplete message"));
    auto first = datagram("A", "+1", part_header(0x2A, 2, 1, true));
    EXPECT_TRUE(message.add_datagram(first));
    EXPECT_TRUE(message.is_complete());
    EXPECT_EQ(message.get_concatenated_data(), "AB");
}

}  // namespace
