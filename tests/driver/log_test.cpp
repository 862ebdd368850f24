// The log at level 7, read line by line: a card sent, a card received, the network's type.

#include "tests/driver/phone.h"

namespace {

using log_test = driver_test;

lines_t dump(const std::string& queued, const std::string& rilled, const std::string& waiting) {
    return {"DEBUG STATE_queued={" + queued + "}", "DEBUG STATE_rilled={" + rilled + "}",
            "DEBUG STATE_waiting={" + waiting + "}"};
}

lines_t locked(const std::string& place) {
    return {"NOTICE [MUTEX] THREAD=0x~|" + place + ": waiting", "NOTICE [MUTEX] THREAD=0x~|" + place + ": got it 0x~"};
}
const lines_t released = {"NOTICE [MUTEX] THREAD=0x~|...: release 0x~"};

/// A transition from an io state (with `before` datagrams) or none to another io state.
lines_t enters(const std::string& state, int before) {
    const std::string count = " elements->size()=";
    return {"DEBUG calling d->state->enter(d), d=0x~, d->state=0x~",
            "DEBUG entering    '" + state + "'" + count + std::to_string(before),
            "DEBUG inserted to '" + state + "'" + count + std::to_string(before + 1)};
}

lines_t leaves(const std::string& state, int before) {
    const std::string count = " elements->size()=";
    return {"DEBUG calling d->state->leave(d), d=0x~",
            "DEBUG leaving     '" + state + "'" + count + std::to_string(before),
            "DEBUG eerased from'" + state + "'" + count + std::to_string(before - 1)};
}

std::string calling(const std::string& state) {
    return "DEBUG go_to: 0x~ -> '" + state + "': calling machine->transition()";
}
std::string returned(const std::string& state) {
    return "DEBUG go_to: 0x~ -> '" + state + "': returned from machine->transition()";
}

TEST_F(log_test, a_card_sent) {
    phone.preset("next_message_id", 300);
    phone.preset_logging();
    phone.start_on(gsm);
    phone.let_sender_look();
    phone.send(std::string(134, 'x'));
    const HRESULT first = radio.submission(1).request;
    radio.submission(2);
    phone.let_sender_look();
    radio.confirm(first);
    const auto log = phone.log();

    expect_in_order(
        log, "DEBUG @ZPD_IOControl", "DEBUG @daemon_t::iocontrol", locked("iocontrol"), dump("", "", ""),
        "DEBUG ZPD_IOCTL_SEND_MESSAGE", "DEBUG input buffer len=170; string len_bytes=26 len=13",
        "DEBUG read string of length 13", "DEBUG read string: '+491711234567'", "DEBUG @input_r_buffer_t::get_string16",
        "DEBUG vcard: 134 bytes, is_utf8: 'no', use_long_ie: 'no', phone: '+491711234567'",
        "INFO wrote 4 bytes to registry field 'next_message_id'",
        "INFO wrote registry field 'next_message_id', value='301'",
        "WARNING invalid message id 300 > 255 in concatenation header is replaced by 44",
        "DEBUG @sms_udh_ie_appport_t::set_dst", "DEBUG @sms_udh_ie_appport16_t::max_port_id", "DEBUG mx=65535",
        "INFO enqueue chunk 300[0] of 128 bytes [0:128]", dump("", "", ""), "DEBUG state_queued=0x~, name=QUEUED",
        "DEBUG Transition 0x~: 300[0]:<null>->QUEUED", "DEBUG Transition 0x~", "DEBUG Transition 0x~",
        enters("QUEUED", 0), dump("0x~", "", ""), dump("0x~", "", ""),
        "WARNING invalid message id 300 > 255 in concatenation header is replaced by 44",
        "INFO enqueue chunk 300[1] of 128 bytes [128:256]", dump("0x~", "", ""),
        "DEBUG Transition 0x~: 300[1]:<null>->QUEUED", enters("QUEUED", 1), dump("0x~,0x~", "", ""),
        "DEBUG @daemon_t::enqueue_multi_part_sms", dump("0x~,0x~", "", ""), released);

    expect_in_order(
        log, "INFO WaitForSingleObject() returned 'WAIT_OBJECT_0'", locked("sender_thread"), dump("0x~,0x~", "", ""),
        calling("DISPATCHER"), "DEBUG Transition 0x~: 300[0]:QUEUED->DISPATCHER", leaves("QUEUED", 2),
        dump("0x~", "", ""), "DEBUG calling d->state->enter(d), d=0x~, d->state=0x~",
        "NOTICE rilled datagram 0 of message 300: ref=0x~",
        std::string("DEBUG registering pending ril request: req_id=0x~ abstract_ril_request_t *this=0x~. ") +
            "daemon_t *daemon=0x~",
        "DEBUG req_id=0x~, datagram_t *d=0x~", calling("RILLED"), "DEBUG Transition 0x~: 300[0]:DISPATCHER->RILLED",
        enters("RILLED", 0), dump("0x~", "0x~", ""), returned("RILLED"), returned("DISPATCHER"), released,
        locked("sender_thread"), dump("0x~", "0x~", ""), "DEBUG Transition 0x~: 300[1]:QUEUED->DISPATCHER",
        "NOTICE rilled datagram 1 of message 300: ref=0x~", dump("", "0x~,0x~", ""), released);

    expect_in_order(
        log, "NOTICE rilled datagram 1 of message 300: ref=0x~", locked("ril_result_cb"),
        "DEBUG ril_result_code=0x1, data32=0x1, param=0x0", "ERROR ril_result_code=RIL_RESULT_OK=0x1 => error=0",
        "DEBUG datagram_t *d=0x~, error=0x00000000", calling("SENT"), "DEBUG Transition 0x~: 300[0]:RILLED->SENT",
        leaves("RILLED", 2), dump("", "0x~", ""), calling("DONE"), "DEBUG Transition 0x~: 300[0]:SENT->DONE",
        "DEBUG 0x~ leaving 'SENT'", calling("WAITING"), "DEBUG Transition 0x~: 300[0]:DONE->WAITING",
        "DEBUG 0x~ leaving 'DONE'", enters("WAITING", 0), dump("", "0x~", "0x~"), returned("WAITING"), returned("DONE"),
        returned("SENT"), "DEBUG unregistering ril request: req_id=0x~ for abstract_ril_request_t* this=0x~", released);
}

TEST_F(log_test, a_card_received) {
    phone.preset("activated", 1);
    phone.preset_logging();
    phone.start();
    radio.question(1);
    phone.request(ZPD_IOCTL_VERSION);
    for (const unsigned ordinal : {2u, 1u}) {
        radio.deliver(deliver_message(part_header(0x2A, 2, ordinal), ordinal == 1 ? "ABC" : "DEF"));
    }
    const auto message = [](const std::string& ordinal, const std::string& octets, const std::string& data) {
        return lines("DEBUG @daemon_t::ril_notify_cb", "INFO Incoming message, dwCode=RIL_NOTIFY_MESSAGE",
                     "INFO incoming GSM message: dwType=RIL_MSGTYPE_IN_DELIVER",
                     "INFO RIL_PARAM_M_DATACODING flag is present: now checking encoding",
                     "INFO flag RIL_PARAM_MDCS_ALPHABET set in msgInDeliver.rmdDataCoding.dwParams",
                     "INFO msgInDeliver.rmdDataCoding.dwAlphabet=RIL_DCSALPHABET_8BIT",
                     "INFO incoming message address '+123'", "INFO flag RIL_PARAM_M_HDRLENGTH set in dwParams",
                     "INFO flag RIL_PARAM_M_MSGLENGTH set in dwParams", "INFO flag RIL_PARAM_M_HDR set in dwParams",
                     "INFO flag RIL_PARAM_M_MSG set in dwParams", "INFO processing gsm/cdma incoming message",
                     "INFO incoming sms datagram: address='+123' UDHL=11",
                     "INFO 00: 00 03 2A 02 . 0" + ordinal + " 05 04 23 | F4 00 00" + std::string(17, ' ') +
                         R"( || \0\x{03}*\x{02}\x{0)" + ordinal + R"(}\x{05}\x{04}#\x{f4}\0\0)",
                     "INFO user data length, UDL=3", "INFO 00: " + octets + std::string(45, ' ') + " || " + data,
                     "INFO udh ie 1 out of 2: '{ie:CONCAT8,msg:" + ordinal + ",len:2,id=0x2A}'",
                     "INFO udh ie 2 out of 2: '{ie:APPPORT16,src:0x0,dst:0x23F4}'",
                     locked("process_gsm_or_cdma_message"), dump("", "", ""));
    };
    expect_in_order(phone.log(), message("2", "44 45 46", "DEF"), dump("", "", ""), released,
                    message("1", "41 42 43", "ABC"), "DEBUG incoming_dir_size is zero, don't check for directory size",
                    R"(DEBUG successfully saved message as '\Application Data\PUBLIC\VARKON\ZPD\INCOMING\~')",
                    dump("", "", ""), released);
}

TEST_F(log_test, a_system_type) {
    phone.preset_logging();
    phone.start();
    radio.question(1);
    phone.request(ZPD_IOCTL_VERSION);  // the round has ended
    radio.system_changed(0x448);
    const std::pair<unsigned, const char*> types[] = {
        {0x1, "IS95A"}, {0x2, "IS95B"},         {0x4, "1XRTTPACKET"},   {0x8, "GSM"},        {0x10, "GPRS"},
        {0x20, "EDGE"}, {0x40, "1XEVDOPACKET"}, {0x80, "1XEVDVPACKET"}, {0x100, "UMTS"},     {0x200, "HSDPA"},
        {0, "NONE"},    {0xC7, "CDMA"},         {0x7, "CDMA_1X"},       {0xC0, "CDMA_EVDX"}, {0x338, "GSMUMTS"},
        {0x7FF, "ALL"}};
    lines_t table;
    for (const auto& [bits, name] : types) {
        char line[80];
        snprintf(line, sizeof line, "NOTICE 0x%08X=RIL_SYSTEMTYPE_%-15s --> %s", bits, name,
                 bits & 0x448 ? "YES" : "no");
        table.emplace_back(line);
    }
    expect_in_order(
        phone.log(), "DEBUG creating ril_request_get_current_system_type_t object, daemon_t *this=0x~ ref=0x~",
        "DEBUG dwCode=RIL_NOTIFY_SYSTEMCHANGED; system_type=0x00000448",
        "NOTICE [MUTEX] THREAD=0x~|ril_notify_cb_system_changed: got it 0x~",
        "NOTICE Availability bit mask: data32=0x00000448", table, "NOTICE System type: GSM: YES; CDMA: YES;");
}

}  // namespace
