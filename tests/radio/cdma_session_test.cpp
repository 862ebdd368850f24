// The RIL functions on a modem of a CDMA network, and on one that may be.
#include "radio/cdma.h"
#include "tests/radio/session_fixture.h"

namespace {

using testing::Contains;
using testing::Not;

constexpr DWORD on_cdma = RIL_SYSTEMTYPE_1XRTTPACKET;

class cdma_session : public session {
  protected:
    cdma_session() {
        modem.on("AT+GCAP", modem.line_and_ok("+GCAP: +CIS707-A, +MS, +ES, +DS, +FCLASS"));
        modem.on("AT+CPIN?", "\r\n+CME ERROR: 10\r\n");  // there is no SIM, and none is needed
    }

    HRESULT send_cdma(const std::string& body, DWORD options = 0) {
        const RILMESSAGE message = outgoing_cdma("+491701234567", body);
        return RIL_SendMsg(handle, &message, options);
    }
    /// Asks; `events` counts its result and the changes that it brings about.
    void expect_system_type(DWORD type, size_t events) {
        const HRESULT request = RIL_GetCurrentSystemType(handle);
        EXPECT_THAT(recorder.events(events), Contains(result(request, RIL_RESULT_OK, type)));
    }
    /// "<length>" CR LF "<message>" CR LF, as it ends a +CMGR or +CMT line.
    static std::string delivered(const std::string& body) {
        cdma::message_t message;
        message.type = cdma::message_type_t::deliver;
        message.address = {tpdu::number_type_t::international, 1, "12025550100", 0};
        message.header_indicator = true;
        message.user_data = {cdma::encoding_t::octets, incoming(body).user_data};
        const tpdu::octets_t octets = *cdma::encode(message);
        return fmt::format("{}\r\n{}\r\n", octets.size(), platform::to_hex(octets));
    }
};

TEST_F(cdma_session, datagrams_go_out_and_come_in_as_cdma_messages) {
    modem.on("AT+CMMS=?", modem.line_and_ok("+CMMS: (0-2)"));
    attach_and_open();
    modem.once(">", modem.line_and_ok("+CMGS: 40000"));
    modem.once(">", scripted_modem_t::ok);
    const HRESULT first = send_cdma("one", RIL_SENDOPT_PERSISTLINK);
    const HRESULT second = send_cdma("two");
    EXPECT_THAT(recorder.events(2), testing::ElementsAre(sent(first, 40000), sent(second, 0x0301)));
    EXPECT_THAT(modem.log(), testing::IsSupersetOf({std::string("AT+CMMS=1"), std::string("AT+CMGS=57")}));
    EXPECT_THAT(modem.log(), Contains(">0000021002040F88861A1C989B981899199A1A9B1B8008210003203018011100785828"
                                      "211FA11FA0001808100B7B73280501AD080100090100"));

    modem.on("AT+CMGR=3", "\r\n+CMGR: 0,," + delivered("stored") + scripted_modem_t::ok);
    modem.say("\r\n+CMTI: \"SM\",3\r\n");
    EXPECT_THAT(recorder.events(3), Contains("message stored"));
    EXPECT_TRUE(modem.heard("AT+CMGD=3"));
    modem.say("\r\n+CMT: ," + delivered("direct"));
    EXPECT_THAT(recorder.events(4), Contains("message direct"));
}

TEST_F(cdma_session, the_system_type_is_a_cdma_one_while_the_modem_is_served) {
    attach_and_open();
    expect_system_type(on_cdma, 1);
    modem.say("\r\n+CREG: 2\r\n");
    EXPECT_THAT(recorder.events(2), Contains(system_type(RIL_SYSTEMTYPE_NONE)));
}

TEST_F(cdma_session, a_modem_without_creg_tells_its_service_and_its_system) {
    for (const char* command : {"AT+CREG=2", "AT+CREG=1", "AT+CREG?"}) {
        modem.on(command, "\r\nERROR\r\n");
    }
    modem.on("AT+CAD?", modem.line_and_ok("+CAD: 1"));
    modem.on("AT+CSS?", modem.line_and_ok("+CSS: 2,CA,99999"));
    attach_and_open();
    expect_system_type(RIL_SYSTEMTYPE_NONE, 1);
    modem.on("AT+CSS?", modem.line_and_ok("+CSS: 2,CA,64"));
    expect_system_type(on_cdma, 3);
    modem.on("AT+CAD?", modem.line_and_ok("+CAD: 0"));
    expect_system_type(RIL_SYSTEMTYPE_NONE, 5);
}

TEST_F(cdma_session, a_modem_for_both_is_on_the_network_that_serves_it) {
    modem.on("AT+GCAP", modem.line_and_ok("+GCAP: +CGSM,+CIS707-A,CIS-856"));
    modem.on("AT+CPIN?", modem.line_and_ok("+CPIN: READY"));
    modem.on("AT+CAD?", modem.line_and_ok("+CAD: 0"));
    attach_and_open();
    expect_system_type(RIL_SYSTEMTYPE_GSM, 1);
    const HRESULT refused = send_cdma("card");
    EXPECT_THAT(recorder.events(2), Contains(failed(refused, RIL_E_RADIONOTPRESENT)));
    modem.on("AT+CAD?", modem.line_and_ok("+CAD: 1"));
    modem.say("\r\n+CREG: 1,\"0000\",\"00000000\"\r\n");
    EXPECT_THAT(recorder.events(3), Contains(system_type(on_cdma)));
}

TEST_F(session, a_gsm_modem_is_asked_nothing_of_cdma) {
    modem.on("AT+GCAP", modem.line_and_ok("+GCAP: +CGSM"));
    attach_and_open();
    EXPECT_THAT(modem.log(), Not(Contains(testing::StartsWith("AT+CAD"))));
}

}  // namespace
