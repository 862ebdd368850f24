// From a card in a request to the messages that the radio is given.

#include <gmock/gmock.h>

#include "tests/driver/phone.h"

using testing::AnyOf;
using testing::ElementsAre;

namespace {

using sending_test = driver_test;
using dwords_t = std::vector<DWORD>;

template <typename submit_t>
std::string header_of(const submit_t& submit) {
    return {submit.rgbHdr, submit.rgbHdr + submit.cbHdrLength};
}
template <typename submit_t>
std::string data_of(const submit_t& submit) {
    return {submit.rgbMsg, submit.rgbMsg + submit.cbBodyLength};
}

SYSTEMTIME clock_time() {
    SYSTEMTIME now;
    GetSystemTime(&now);
    return now;
}
std::vector<WORD> minute_of(const SYSTEMTIME& time) {
    return {time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute};
}

// What is counted is what is sent: each card goes through both requests and comes out of the radio whole.
TEST_F(sending_test, cards_are_cut_to_fit) {
    const std::string umlaut = "\xC3\xA4";
    const std::string umlauts = narrow(wide_string_t(128, WCHAR{0xE4}));
    const std::string stray(128, '\x80');
    // The sizes of the datagrams, or the error.
    const std::tuple<const char*, std::string, bool, bool, std::vector<size_t>, uint32_t> cases[] = {
        {"empty", "", false, false, {0}, 0},
        {"one datagram", std::string(133, 'x'), false, false, {133}, 0},
        {"one, of anything", std::string(133, '\x80'), true, true, {133}, 0},
        {"just two", std::string(134, 'x'), false, false, {128, 6}, 0},
        {"just two, long reference", std::string(134, 'x'), false, true, {127, 7}, 0},
        {"two full", std::string(256, 'x'), false, false, {128, 128}, 0},
        {"two full, UTF-8", std::string(256, 'x'), true, false, {128, 128}, 0},
        {"just three", std::string(257, 'x'), false, false, {128, 128, 1}, 0},
        {"binary cuts anywhere", std::string(127, 'x') + umlaut + "123456", false, false, {128, 7}, 0},
        {"straddling character moves on", std::string(127, 'x') + umlaut + "123456", true, false, {127, 8}, 0},
        {"straddling, long reference", std::string(126, 'x') + umlaut + "1234567", true, true, {126, 9}, 0},
        {"four octets straddle", std::string(125, 'x') + "\xF0\x9F\x98\x80" + "12345", true, false, {125, 9}, 0},
        {"every cut moves", "x" + umlauts, true, false, {127, 128, 2}, 0},
        {"stray octets at the end", "x" + std::string(133, '\x80'), true, false, {}, 1002},
        {"stray octets in the last", std::string(128, 'x') + std::string(20, '\x80'), true, false, {127, 21}, 0},
        {"128 stray octets", std::string(128, 'x') + stray + "x", true, false, {}, 1002},
        {"127 stray octets", std::string(128, 'x') + std::string(127, '\x80') + "x", true, false, {127, 128, 1}, 0},
        {"largest", std::string(32640, 'x'), false, false, std::vector<size_t>(255, 128), 0},
        {"largest, long reference", std::string(32385, 'x'), true, true, std::vector<size_t>(255, 127), 0},
        {"too long", std::string(32641, 'x'), false, false, {}, 6724},
        {"too long, UTF-8", std::string(32641, 'x'), true, false, {}, 6724},
        {"too long, long reference", std::string(32386, 'x'), false, true, {}, 6724},
        {"too long by its cuts", std::string(127, 'x') + umlaut + std::string(32511, 'x'), true, false, {}, 6724},
        {"255, then no cut", std::string(size_t{255} * 128, 'x') + stray + "x", true, false, {}, 1002},
    };
    phone.start_on(gsm);
    radio.follow({.confirm_everything = true});
    size_t sent = 0;
    for (const auto& [name, card, utf8, long_reference, sizes, error] : cases) {
        SCOPED_TRACE(name);
        const auto input = text(card) + u8(utf8) + u8(long_reference);
        const reply_t count = phone.request(ZPD_IOCTL_COUNT_DATAGRAMS, input, 4);
        const reply_t reply = phone.send(card, TEXT("+1"), utf8, long_reference);
        if (error != 0) {
            EXPECT_EQ(count, failed(error));
            EXPECT_EQ(reply, failed(error));
            continue;
        }
        EXPECT_EQ(count, done(u32(static_cast<int64_t>(sizes.size()))));
        std::string whole;
        std::vector<size_t> chunks;
        for (size_t i = 0; i < sizes.size(); ++i) {
            const std::string data = data_of(radio.submission(++sent).message.msgOutSubmit);
            chunks.push_back(data.size());
            whole += data;
        }
        EXPECT_EQ(chunks, sizes);
        EXPECT_EQ(whole, card);
    }
}

TEST_F(sending_test, gsm_submission_field_by_field) {
    phone.preset("next_message_id", 300);
    phone.start_on(gsm | cdma);
    const SYSTEMTIME before = clock_time();
    phone.send(std::string(128, 'a') + std::string(72, 'b'));
    phone.send(std::string(133, 'c'), TEXT("+49"), false, true);
    phone.send(std::string(140, 'd'), TEXT("+49"), false, true);
    for (const size_t number : {1u, 2u, 3u}) {
        const submission_t sent = radio.submission(number);
        const RILMESSAGE& message = sent.message;
        const RIL_OUT_SUBMIT& submit = message.msgOutSubmit;
        const RILADDRESS& to = submit.raDestAddress;
        EXPECT_THAT((dwords_t{message.cbSize, message.dwParams, message.dwType, to.cbSize, to.dwParams, to.dwType,
                              to.dwNumPlan, submit.dwProtocolID, submit.dwVPFormat}),
                    ElementsAre(0xAC4, 0x0D80CA26, RIL_MSGTYPE_OUT_SUBMIT, 0x210, 7, 0, 1, 1, 1));
        EXPECT_EQ(message.dwFlags, 5u) << "the last one too";
        EXPECT_EQ(wide_string_t(to.wszAddress), number == 3 ? TEXT("+49") : TEXT("+491711234567"));
        const RILMSGDCS& coding = submit.rmdDataCoding;
        EXPECT_THAT((dwords_t{coding.cbSize, coding.dwParams, coding.dwType, coding.dwFlags, coding.dwMsgClass,
                              coding.dwAlphabet, coding.dwIndication, coding.dwLanguage}),
                    ElementsAre(0x20, 9, 1, 0, 0, 2, 0, 0));
        EXPECT_THAT(minute_of(submit.stVP), AnyOf(minute_of(before), minute_of(clock_time())));
    }
    // The 8-bit reference is the low octet of the id; a single datagram, of 140 octets with its header, carries the
    // port alone.
    const std::pair<std::string, std::string> expected[] = {{part_header(44, 2, 1), std::string(128, 'a')},
                                                            {part_header(44, 2, 2), std::string(72, 'b')},
                                                            {port_header, std::string(133, 'c')},
                                                            {part_header(302, 2, 1, true), std::string(127, 'd')}};
    for (size_t i = 0; i < std::size(expected); ++i) {
        const RIL_OUT_SUBMIT submit = radio.submission(i + 1).message.msgOutSubmit;
        EXPECT_EQ(std::pair(header_of(submit), data_of(submit)), expected[i]);
    }
}

// Line by line, from the request to the radio's result.
TEST_F(sending_test, a_card_sent) {
    phone.preset("next_message_id", 300);
    phone.preset_logging();
    phone.start_on(gsm);
    phone.let_sender_look();
    phone.send(std::string(134, 'x'));
    EXPECT_EQ(radio.submission(1).options, RIL_SENDOPT_PERSISTLINK);
    EXPECT_EQ(radio.submission(2).options, 0u);
    phone.let_sender_look();
    radio.confirm(1);
    expect_log();
}

TEST_F(sending_test, cdma_submission_field_by_field) {
    phone.preset("next_message_id", 0x1234);
    phone.preset_logging();
    phone.start_on(cdma);
    const SYSTEMTIME before = clock_time();
    phone.send(std::string(134, 'x'), TEXT("5551234"), false, true);
    const RILMESSAGE message = radio.submission(2).message;
    const RIL_OUT_CDMASUBMIT& submit = message.msgOutCDMASubmit;
    const RILADDRESS& to = submit.raDestAddress;
    EXPECT_THAT((dwords_t{message.cbSize, message.dwParams, message.dwType, message.dwFlags, to.cbSize, to.dwParams,
                          to.dwType, to.dwNumPlan, submit.rsaDestSubaddr.cbSize, submit.rsaDestSubaddr.dwParams}),
                ElementsAre(0xAC4, 0x2F81CE26, RIL_MSGTYPE_OUT_CDMASUBMIT, 5, 0x210, 4, 0, 1, 0x20C, 0));
    EXPECT_EQ(wide_string_t(to.wszAddress), TEXT("5551234"));
    SYSTEMTIME validity = submit.stValidityPeriodAbs;
    EXPECT_EQ(minute_of(submit.stValidityPeriodRel), minute_of(validity));
    validity.wYear -= 1;
    EXPECT_THAT(minute_of(validity), AnyOf(minute_of(before), minute_of(clock_time())));
    EXPECT_EQ(submit.stDeferredDelTimeAbs.wYear | submit.stDeferredDelTimeRel.wYear, 0);
    EXPECT_EQ(submit.bDeliveryAckRequest | submit.bUserAckRequest | submit.bBearerReplyRequest, 0);
    EXPECT_THAT((dwords_t{submit.raCallBackNumber.cbSize, submit.raCallBackNumber.dwParams, submit.dwMsgPriority,
                          submit.dwMsgPrivacy, submit.dwTeleservice, submit.dwMsgID, submit.dwMsgEncoding,
                          submit.dwMsgDisplayMode}),
                ElementsAre(0x210, 0, 1, 1, 2, 0x1234, 2, 3));
    EXPECT_EQ(header_of(submit), part_header(0x1234, 2, 2, true));
    EXPECT_EQ(data_of(submit), "xxxxxxx");
    expect_in_order(phone.log(), {"DEBUG msg->dwParams(=0x2F81CE26) & nao_flags = nao_flags",
                                  "DEBUG cdma->dwMsgEncoding = RIL_MSGCODING_7BITASCII"});
}

TEST_F(sending_test, phone_numbers_up_to_the_field) {
    const std::tuple<DWORD, unsigned, bool> cases[] = {
        {gsm, 127, true},  {gsm, 128, true},   {gsm, 255, true},   {gsm, 256, false},  {gsm, 300, false},
        {cdma, 127, true}, {cdma, 128, false}, {cdma, 255, false}, {cdma, 256, false}, {gsm, 0, true}};
    phone.preset_logging();
    phone.start_on(gsm);
    radio.follow({.confirm_everything = true});
    size_t sent = 0;
    for (const auto& [network, length, fits] : cases) {
        SCOPED_TRACE(length);
        radio.system_changed(network);
        const wide_string_t number(length, WCHAR{'5'});
        const uint32_t id = u32_at(phone.send("card", number).output, 0);
        if (fits) {
            EXPECT_EQ(wide_string_t(radio.submission(++sent).message.msgOutSubmit.raDestAddress.wszAddress), number);
        }
        eventually([&, status = fits ? 4 : 2] { return phone.status(id) == std::vector<int32_t>{status}; });
    }
    EXPECT_EQ(phone.logged("ERROR the phone number is too long"), 5u);
}

TEST_F(sending_test, ids_wrap_and_last) {
    phone.preset("next_message_id", 65534);
    phone.start_on(gsm);
    EXPECT_EQ(phone.send("card"), done(u32(65534)));
    EXPECT_EQ(phone.request(ZPD_IOCTL_SEND_MESSAGE, text("card") + u8(0) + u8(0) + text16(TEXT("1")), 3), failed(122));
    EXPECT_EQ(phone.send("card"), done(u32(65535)));
    EXPECT_EQ(phone.registry("next_message_id"), u32(0));
    EXPECT_EQ(phone.send("card"), failed(4319, u32(0xFFFFFFFF))) << "id 0";
    radio.confirm(3);
    EXPECT_THAT(phone.status(0), ElementsAre(4)) << "sent like any other";
    phone.stop();
    phone.start();
    EXPECT_EQ(phone.send("card"), done(u32(1)));
    EXPECT_THAT(phone.list(), ElementsAre(1));
}

TEST_F(sending_test, radio_session_is_opened_when_needed) {
    phone.preset_logging();
    radio.follow({.sessions = {E_FAIL, E_INVALIDARG, E_FAIL}});
    phone.start();
    eventually([&] { return radio.attempts().sessions == 2; });  // the sender tries too, for its question
    EXPECT_EQ(radio.attempts().questions, 0u);
    EXPECT_EQ(phone.request(ZPD_IOCTL_COUNT_DATAGRAMS, text("card") + u8(0) + u8(0)), done(u32(1)));
    EXPECT_EQ(radio.attempts().sessions, 2u) << "counting needs no radio";
    EXPECT_EQ(phone.send("card"), failed(4319, u32(E_FAIL)));
    radio.follow({.sessions = {S_FALSE}});
    EXPECT_EQ(phone.send("card"), done(u32(239))) << "no id was used up";
    EXPECT_EQ(phone.send("card"), done(u32(240)));
    EXPECT_EQ(radio.attempts().sessions, 4u) << "an open one stays";
    EXPECT_EQ(phone.logged("ERROR RIL_Initialize() failed, ril_error=0x80004005"), 2u);
    radio.follow({.questions = {E_FAIL}});
    eventually([&] {
        platform::testing::advance_clock(10000);
        return radio.attempts().questions >= 2;
    });
    EXPECT_EQ(phone.logged("CRITICAL ERROR can't start RIL_GetCurrentSystemType request, error=0x80004005"), 1u);
}

}  // namespace
