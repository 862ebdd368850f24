// What crosses between GSM and CDMA besides the octets of cards, and what does not.
#include "network/air_message.h"

#include "air/cdma.h"
#include "tests/network/host.h"

namespace network {
namespace {

TEST_F(network_test, plain_text_crosses_to_cdma_and_the_rest_is_refused) {
    set_fault(bob, "technology=cdma");
    const auto from = host(alice, {"AT+CMEE=1"});
    const auto to = host(bob, {"AT+CNMI=2,2"});
    const std::string refusal = "\r\n+CMS ERROR: 50\r\n";
    const auto text = [](uint8_t data_coding, uint8_t length, air::octets_t user_data) {
        air::submit_t message = submit_to(bob, std::move(user_data));
        message.data_coding = data_coding;
        message.user_data_length = length;
        return message;
    };
    submit(*from, text(0x08, 2, {0x20, 0xAC}));
    EXPECT_EQ(from->read_until(refusal), refusal) << "UCS2";
    submit(*from, text(0x00, 1, {0x7B}));
    EXPECT_EQ(from->read_until(refusal), refusal) << "an umlaut";
    submit(*from, text(0x00, 2, {0x00, 0x24}));  // "@H"
    EXPECT_TRUE(from->read_until("OK\r\n").starts_with("\r\n+CMGS: "));
    to->read_until("+CMT: ,");
    to->read_until("\r\n");
    const std::string pdu = to->read_until("\r\n");
    const auto arrived = air::cdma::decode(base::from_hex(pdu.substr(0, pdu.size() - 2)).value_or(air::octets_t{}));
    ASSERT_TRUE(arrived) << pdu;
    EXPECT_EQ(arrived->user_data, (air::cdma::user_data_t{air::cdma::encoding_t::ascii, {'@', 'H'}}));
    air::cdma::message_t back = *arrived;
    back.type = air::cdma::message_type_t::submit;
    const auto submission = submission_of({air_form_t::cdma_point_to_point, *air::cdma::encode(back)});
    ASSERT_TRUE(submission);
    EXPECT_EQ(submission->submit.user_data, (air::octets_t{0x00, 0x24}));
    const air::octets_t octets = *air::cdma::encode(back);
    for (int copies = 0; copies < 2; ++copies) {
        to->expect("AT+CMGS=" + std::to_string(octets.size()) + "\r", "\r\n> ");
        to->send(base::to_hex(octets) + "\x1a");
        EXPECT_TRUE(to->read_until("OK\r\n").starts_with("\r\n+CMGS: "));
    }
    EXPECT_EQ(network_->statistics().submitted, 2U) << "a copy is not passed on";
}

}  // namespace
}  // namespace network
