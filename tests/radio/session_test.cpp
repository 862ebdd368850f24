// The RIL functions over a pseudo-terminal, against a modem that a test scripts.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/linux/hex.h>
#include <platform/linux/testing.h>
#include <platform/linux/text.h>
#include <ril.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <optional>

#include "radio/modem_port.h"
#include "radio/tpdu.h"
#include "tests/radio/scripted_modem.h"

namespace {

using namespace std::chrono_literals;
using platform::testing::advance_clock;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr auto patience = 10s;

const tpdu::octets_t card_header = *platform::from_hex("050423F423F40003010201");

// ---- What the driver's callbacks got. -------------------------------------------------------------------------------

struct result_t {
    DWORD code;
    HRESULT request;
    std::optional<DWORD> data;

    bool operator==(const result_t&) const = default;
};

class recorder_t {
  public:
    void clear() {
        const std::lock_guard lock(mutex_);
        results_.clear();
        messages_.clear();
        types_.clear();
        order_.clear();
        blocked_ = false;
    }
    void add(const result_t& result) {
        const std::lock_guard lock(mutex_);
        results_.push_back(result);
        order_ += 'r';
        changed_.notify_all();
    }
    void add(DWORD code, const void* data, DWORD size) {
        std::unique_lock lock(mutex_);
        if (code == RIL_NOTIFY_MESSAGE && size == sizeof(RILMESSAGE)) {
            messages_.push_back(*static_cast<const RILMESSAGE*>(data));
            order_ += 'm';
        } else if (code == RIL_NOTIFY_SYSTEMCHANGED && size == sizeof(DWORD)) {
            types_.push_back(*static_cast<const DWORD*>(data));
            order_ += 's';
        }
        changed_.notify_all();
        changed_.wait(lock, [this] { return !blocked_; });
    }
    void block(bool blocked) {
        const std::lock_guard lock(mutex_);
        blocked_ = blocked;
        changed_.notify_all();
    }
    std::vector<result_t> results(size_t count) { return wait(results_, count); }
    std::vector<RILMESSAGE> messages(size_t count) { return wait(messages_, count); }
    std::vector<DWORD> types(size_t count) { return wait(types_, count); }
    std::string order() {
        const std::lock_guard lock(mutex_);
        return order_;
    }

  private:
    template <typename T>
    std::vector<T> wait(const std::vector<T>& list, size_t count) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, patience, [&] { return list.size() >= count; }));
        return list;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<result_t> results_;
    std::vector<RILMESSAGE> messages_;
    std::vector<DWORD> types_;
    std::string order_;
    bool blocked_ = false;
};

recorder_t& recorder() {
    static recorder_t* const instance = new recorder_t;
    return *instance;
}

constexpr DWORD parameter = 0x5EED;

void on_result(DWORD code, HRESULT request, const void* data, DWORD size, DWORD told) {
    EXPECT_EQ(told, parameter);
    result_t result{code, request, {}};
    if (size == sizeof(DWORD)) {
        result.data = *static_cast<const DWORD*>(data);
    }
    recorder().add(result);
}

void on_notify(DWORD code, const void* data, DWORD size, DWORD told) {
    EXPECT_EQ(told, parameter);
    recorder().add(code, data, size);
}

// ---- Messages. ------------------------------------------------------------------------------------------------------

RILMESSAGE outgoing(const std::string& number, const std::string& body) {
    RILMESSAGE message{};
    message.cbSize = sizeof message;
    message.dwParams = 0x0D80CA26;
    message.dwType = RIL_MSGTYPE_OUT_SUBMIT;
    message.dwFlags = RIL_MSGFLAG_HEADER | RIL_MSGFLAG_MORETOSEND;
    RIL_OUT_SUBMIT& out = message.msgOutSubmit;
    out.raDestAddress.cbSize = sizeof out.raDestAddress;
    out.raDestAddress.dwParams = 7;
    out.raDestAddress.dwNumPlan = RIL_NUMPLAN_TELEPHONE;
    const std::u16string wide = platform::to_utf16(number);
    std::copy_n(wide.begin(), std::min<size_t>(wide.size(), MAXLENGTH_ADDRESS), out.raDestAddress.wszAddress);
    out.dwProtocolID = RIL_MSGPROTOCOL_SMETOSME;
    out.rmdDataCoding = {sizeof(RILMSGDCS), 9, RIL_DCSTYPE_GENERAL, 0, 0, RIL_DCSALPHABET_8BIT, 0, 0};
    out.dwVPFormat = 1;
    out.cbHdrLength = static_cast<DWORD>(card_header.size());
    std::ranges::copy(card_header, out.rgbHdr);
    out.cbBodyLength = static_cast<DWORD>(body.size());
    std::ranges::copy(body, out.rgbMsg);
    return message;
}

tpdu::deliver_t card_datagram(const std::string& body) {
    tpdu::deliver_t deliver;
    deliver.originator = *tpdu::address_from_number("+491701234567");
    deliver.data_coding = tpdu::data_coding_8bit;
    deliver.service_centre_time = {26, 11, 21, 0, 17, 15, 4};
    deliver.header_indicator = true;
    deliver.user_data = *tpdu::join_user_data(card_header, tpdu::octets_t(body.begin(), body.end()));
    deliver.user_data_length = static_cast<uint8_t>(deliver.user_data.size());
    return deliver;
}

// "<length>" CR LF "<pdu>" CR LF, as it ends a +CMGR, +CMGL or +CMT line.
std::string with_pdu(const tpdu::deliver_t& deliver) {
    const tpdu::octets_t tpdu = *tpdu::encode(deliver);
    return std::to_string(tpdu.size()) + "\r\n" + platform::to_hex(*tpdu::encode_pdu({{}, tpdu})) + "\r\n";
}

const std::string ok = "\r\nOK\r\n";

std::string stored(const tpdu::deliver_t& deliver) {
    return "\r\n+CMGR: 0,," + with_pdu(deliver) + ok;
}

std::string body_of(const RILMESSAGE& message) {
    const RIL_IN_DELIVER& in = message.msgInDeliver;
    return {in.rgbMsg, in.rgbMsg + in.cchMsgLength};
}

class session : public ::testing::Test {
  protected:
    void SetUp() override { recorder().clear(); }
    void TearDown() override {
        recorder().block(false);
        radio::detach_modem();
    }
    void attach() { ASSERT_EQ(radio::attach_modem(modem.tty()), ""); }
    void open() {
        ASSERT_EQ(RIL_Initialize(1, on_result, on_notify, RIL_NCLASS_MESSAGE | RIL_NCLASS_NETWORK, parameter, &handle),
                  S_OK);
    }
    void attach_and_open() {
        attach();
        open();
        ASSERT_TRUE(modem.heard("AT+CMGL=4", 2)) << "both memories are listed";
    }
    HRESULT send(const std::string& body = "card", DWORD options = 0) {
        const RILMESSAGE message = outgoing("+491701234567", body);
        return RIL_SendMsg(handle, &message, options);
    }

    scripted_modem_t modem;
    HRIL handle = nullptr;
};

using attaching = session;

// ---- Attaching. -----------------------------------------------------------------------------------------------------

TEST_F(attaching, failures_say_what_and_why) {
    EXPECT_THAT(radio::attach_modem("/dev/no-such-tty"), HasSubstr("/dev/no-such-tty: No such file"));
    EXPECT_THAT(radio::attach_modem("/dev/null"), HasSubstr("/dev/null is no tty"));
    EXPECT_THAT(radio::attach_modem("/tmp"), HasSubstr("/tmp is no tty"));

    modem.once("AT+CPIN?", "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n");
    EXPECT_THAT(radio::attach_modem(modem.tty()), HasSubstr("SIM PIN"));
    modem.once("AT+CMGF=0", "\r\n+CMS ERROR: 303\r\n");
    EXPECT_THAT(radio::attach_modem(modem.tty()), HasSubstr("PDU mode"));
    EXPECT_EQ(radio::attach_modem(modem.tty()), "") << "a failure leaves the tty free";
    EXPECT_THAT(radio::attach_modem(modem.tty()), HasSubstr("attached already"));
}

TEST_F(attaching, a_tty_in_use_is_left_alone) {
    const int other = ::open(modem.tty().c_str(), O_RDWR | O_NOCTTY);
    flock(other, LOCK_EX);
    EXPECT_THAT(radio::attach_modem(modem.tty()), HasSubstr("in use by another program"));
    flock(other, LOCK_UN);
    ioctl(other, TIOCEXCL);
    EXPECT_THAT(radio::attach_modem(modem.tty()), HasSubstr("in use by another program"));
    ioctl(other, TIOCNXCL);
    close(other);

    std::string name = modem.tty().substr(std::strlen("/dev/"));
    std::ranges::replace(name, '/', '_');
    const std::filesystem::path lock_file = "/run/lock/LCK.." + name;
    std::ofstream(lock_file) << getppid() << '\n';
    EXPECT_THAT(radio::attach_modem(modem.tty()), HasSubstr("process " + std::to_string(getppid())));
    EXPECT_TRUE(modem.log().empty()) << "nothing is said to a modem that another talks to";

    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    std::ofstream(lock_file) << child << '\n';
    EXPECT_EQ(radio::attach_modem(modem.tty()), "") << "the lock of a dead process is taken over";
    radio::detach_modem();
    EXPECT_FALSE(std::filesystem::exists(lock_file));
}

TEST_F(attaching, a_silent_tty_is_given_up_in_time) {
    modem.on("AT", "");
    auto attached = std::async(std::launch::async, [this] { return radio::attach_modem(modem.tty()); });
    ASSERT_TRUE(modem.heard("AT"));
    advance_clock(5000);
    EXPECT_THAT(attached.get(), HasSubstr("no modem answers on " + modem.tty()));

    modem.on("AT", ok);
    modem.on("AT+CPMS=?", "");
    attached = std::async(std::launch::async, [this] { return radio::attach_modem(modem.tty()); });
    ASSERT_TRUE(modem.heard("AT+CPMS=?"));
    advance_clock(10000);
    EXPECT_THAT(attached.get(), HasSubstr("does not answer AT+CPMS=?"));
}

TEST_F(attaching, a_text_entry_that_a_crash_left_is_ended) {
    const int crashed = ::open(modem.tty().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_EQ(write(crashed, "AT+CMGS=10\r", 11), 11);
    ASSERT_TRUE(modem.heard("AT+CMGS=10"));
    ASSERT_EQ(write(crashed, "0011", 4), 4);
    attach();
    close(crashed);
    EXPECT_THAT(modem.log(), Not(Contains(HasSubstr("0011"))));
}

TEST_F(attaching, chooses_from_what_the_modem_offers) {
    const struct {
        const char* offered;
        std::vector<const char*> said;
    } rows[] = {
        {"\r\n+CNMI: (0-2),(0-3),(0,2),(0-2),(0,1)\r\n\r\nOK\r\n", {"AT+CSMS=0", "AT+CNMI=2,1,0,0,0"}},
        {"\r\n+CNMI: (1),(0,2),(0)\r\n\r\nOK\r\n", {"AT+CSMS=1", "AT+CNMI=1,2,0"}},
        {"\r\nERROR\r\n", {"AT+CNMI=2,1"}},
    };
    for (const auto& row : rows) {
        modem.once("AT+CNMI=?", row.offered);
        attach();
        for (const char* command : row.said) {
            EXPECT_EQ(modem.count(command), 1U) << command;
        }
        radio::detach_modem();
    }
}

// ---- Sending. -------------------------------------------------------------------------------------------------------

TEST_F(session, a_datagram_goes_out_octet_for_octet) {
    attach_and_open();
    const HRESULT request = send("ABC");
    ASSERT_GT(request, 0);
    EXPECT_EQ(recorder().results(1)[0], (result_t{RIL_RESULT_OK, request, 7}));
    EXPECT_EQ(modem.count("AT+CMGS=29"), 1U);
    // No service centre; 3GPP TS 23.040 9.2.2.2 as in the table of submits.
    EXPECT_EQ(modem.count(">0051000C919471103254760004AD0F0B050423F423F40003010201414243"), 1U);
    EXPECT_EQ(modem.count("AT+CMMS=1"), 0U) << "refused at the start";
}

TEST_F(session, refusals_and_odd_dialogues_of_a_submission) {
    const DWORD cms = static_cast<DWORD>(RIL_E_CMSERROR_BASE);
    const DWORD phone_failure = static_cast<DWORD>(RIL_E_PHONEFAILURE);
    const struct {
        const char* prompt;
        const char* reply;
        DWORD code;
        DWORD data;
    } rows[] = {
        {"\r\n> ", "\r\n+CMS ERROR: 38\r\n", RIL_RESULT_ERROR, cms | 38},
        {"\r\n> ", "\r\n+CMS ERROR: memory full\r\n", RIL_RESULT_ERROR, cms | 322},
        {"\r\n> ", "\r\nERROR\r\n", RIL_RESULT_ERROR, phone_failure},
        {"\r\n> ", "\r\n+CME ERROR: 30\r\n", RIL_RESULT_ERROR, phone_failure},
        {"\r\n+CMS ERROR: 331\r\n", "", RIL_RESULT_ERROR, cms | 331},
        {">\r\n", "+CMGS: 255\r\nOK\r\n", RIL_RESULT_OK, 255},
        {"\r\n>", "\r\n^RSSI: 12\r\n+CMGS: 0\r\n+CREG: 1,\"00C3\",\"A12B\",0\r\n\r\nOK\r\n", RIL_RESULT_OK, 0},
        {"\r\n> ", "\r\nOK\r\n", RIL_RESULT_OK, 0},
    };
    attach_and_open();
    size_t count = 0;
    for (const auto& row : rows) {
        modem.once("AT+CMGS", row.prompt);
        if (*row.reply != '\0') {
            modem.once_entry(row.reply);
        }
        const HRESULT request = send();
        EXPECT_EQ(recorder().results(++count).back(), (result_t{row.code, request, row.data})) << row.reply;
    }
}

TEST_F(session, more_to_send_keeps_the_link_where_the_modem_can) {
    modem.on("AT+CMMS=?", "\r\n+CMMS: (0-2)\r\n\r\nOK\r\n");
    attach_and_open();
    send("1", RIL_SENDMSG_MORETOSEND);
    send("2", RIL_SENDMSG_MORETOSEND);
    send("3");
    const std::vector<result_t> results = recorder().results(3);
    EXPECT_TRUE(results[0].request < results[1].request && results[1].request < results[2].request);
    EXPECT_EQ(modem.count("AT+CMMS=1"), 1U);
}

TEST_F(session, a_submission_without_an_answer_ends_after_120_seconds) {
    attach_and_open();
    modem.once_entry("");
    const HRESULT first = send("first");
    const HRESULT second = send("second");
    ASSERT_TRUE(modem.entered(1));
    advance_clock(119'000);
    EXPECT_EQ(recorder().order(), "");
    modem.once("AT", "\r\n+CMGS: 99\r\n\r\nOK\r\n\r\nOK\r\n");  // the late answer, and the one to AT
    advance_clock(1000);
    const std::vector<result_t> results = recorder().results(2);
    EXPECT_EQ(results[0], (result_t{RIL_RESULT_ERROR, first, static_cast<DWORD>(RIL_E_NETWORKTIMEOUT)}));
    EXPECT_EQ(results[1], (result_t{RIL_RESULT_OK, second, 7})) << "the late reference is not taken for this one's";
}

TEST_F(session, a_prompt_that_does_not_come) {
    attach_and_open();
    modem.once("AT+CMGS", "");
    const HRESULT request = send();
    ASSERT_TRUE(modem.heard("AT+CMGS=30"));
    advance_clock(20'000);
    EXPECT_EQ(recorder().results(1)[0],
              (result_t{RIL_RESULT_ERROR, request, static_cast<DWORD>(RIL_E_NETWORKTIMEOUT)}));
    send();
    EXPECT_EQ(recorder().results(2)[1].code, RIL_RESULT_OK);
}

TEST_F(session, what_cannot_go_on_the_air_fails_at_once) {
    RILMESSAGE message = outgoing("+491701234567", "card");
    EXPECT_EQ(RIL_SendMsg(nullptr, &message, 0), RIL_E_RADIONOTPRESENT);
    HRIL unset = nullptr;
    EXPECT_EQ(RIL_Initialize(1, on_result, on_notify, RIL_NCLASS_MESSAGE, parameter, &unset), RIL_E_RADIONOTPRESENT);
    attach_and_open();
    EXPECT_LT(RIL_SendMsg(nullptr, &message, 0), 0);
    EXPECT_LT(RIL_SendMsg(handle, nullptr, 0), 0);
    for (const char* number : {"", "+", "Maria", "0170x", "123456789012345678901", "+123456789012345678901"}) {
        message = outgoing(number, "card");
        EXPECT_LT(RIL_SendMsg(handle, &message, 0), 0) << number;
    }
    message = outgoing(std::string(300, '1'), "card");
    EXPECT_LT(RIL_SendMsg(handle, &message, 0), 0) << "no end of the number";
    message = outgoing("1", std::string(140 - 12 + 1, 'x'));
    EXPECT_LT(RIL_SendMsg(handle, &message, 0), 0) << "141 octets";
    message.msgOutSubmit.cbHdrLength = 0xFFFFFFFF;
    EXPECT_LT(RIL_SendMsg(handle, &message, 0), 0);
    message = outgoing("1", "card");
    message.dwType = RIL_MSGTYPE_OUT_CDMASUBMIT;
    EXPECT_LT(RIL_SendMsg(handle, &message, 0), 0);
    message = outgoing("1", "card");
    message.cbSize -= 1;
    EXPECT_LT(RIL_SendMsg(handle, &message, 0), 0);
    message = outgoing("12345678901234567890", std::string(140 - 12, 'x'));
    EXPECT_GT(RIL_SendMsg(handle, &message, 0), 0) << "20 digits, 140 octets";
    recorder().results(1);
    EXPECT_THAT(modem.log(), Contains(HasSubstr("0051001481214365870921436587090004AD8C0B05")));
}

// ---- Receiving. -----------------------------------------------------------------------------------------------------

TEST_F(session, a_stored_message_is_handed_over_then_deleted) {
    attach_and_open();
    modem.on("AT+CMGR=3", stored(card_datagram("hello")));
    recorder().block(true);
    modem.say("\r\n+CMTI: \"ME\",3\r\n");
    const RILMESSAGE message = recorder().messages(1)[0];
    send("meanwhile");
    ASSERT_TRUE(modem.heard("AT+CMGS=35")) << "a slow driver does not keep the modem waiting";
    EXPECT_EQ(modem.count("AT+CMGD=3"), 0U) << "not before the callback has returned";
    recorder().block(false);
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));

    EXPECT_EQ(message.cbSize, 0xAC4U);
    EXPECT_EQ(message.dwParams, 0x0D800A4EU);
    EXPECT_EQ(message.dwType, RIL_MSGTYPE_IN_DELIVER);
    EXPECT_EQ(message.dwFlags, RIL_MSGFLAG_HEADER);
    const RIL_IN_DELIVER& in = message.msgInDeliver;
    EXPECT_EQ(in.raOrigAddress.dwParams, 7U);
    EXPECT_EQ(in.raOrigAddress.dwType, RIL_ADDRTYPE_INTERNATIONAL);
    EXPECT_EQ(std::u16string(in.raOrigAddress.wszAddress), u"+491701234567");
    EXPECT_EQ(in.rmdDataCoding.dwAlphabet, RIL_DCSALPHABET_8BIT);
    EXPECT_EQ(tpdu::octets_t(in.rgbHdr, in.rgbHdr + in.cbHdrLength), card_header);
    EXPECT_EQ(body_of(message), "hello");
    const SYSTEMTIME& time = in.stSCReceiveTime;  // 00:17:15 one hour east of Greenwich
    EXPECT_EQ((std::vector<WORD>{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond}),
              (std::vector<WORD>{2026, 11, 20, 23, 17, 15}));
}

TEST_F(session, what_is_not_for_the_port_stays) {
    tpdu::deliver_t other_port = card_datagram("x");
    other_port.user_data[4] = 0xF5;
    tpdu::deliver_t seven_bit = card_datagram("x");
    seven_bit.data_coding = 0;
    seven_bit.user_data_length = static_cast<uint8_t>(seven_bit.user_data.size() * 8 / 7);
    tpdu::deliver_t no_header = card_datagram("x");
    no_header.header_indicator = false;
    tpdu::deliver_t operator_name = card_datagram("ours");
    operator_name.originator = {tpdu::number_type_t::alphanumeric, 0, "Net\nCo"};
    attach_and_open();
    modem.once("AT+CMGL=4", "\r\n+CMGL: 1,0,," + with_pdu(other_port) + "+CMGL: 2,1,," + with_pdu(seven_bit) +
                                "+CMGL: 3,0,," + with_pdu(no_header) +
                                "+CMGL: 4,0,,25\r\n000602812100...\r\n+CMGL: 5,0,,3\r\n0006FFFF\r\n+CMGL: 6,3,," +
                                with_pdu(card_datagram("to be sent")) + "+CMGL: 7,1,," + with_pdu(operator_name) +
                                "+CMGL: what,is,this\r\n" + ok);
    modem.say("\r\n+CMTI: \"SM\",-1\r\n");  // odd: all is listed
    const std::vector<RILMESSAGE> messages = recorder().messages(1);
    EXPECT_EQ(std::u16string(messages[0].msgInDeliver.raOrigAddress.wszAddress), u"Net\uFFFDCo");
    ASSERT_TRUE(modem.heard("AT+CMGD=7"));
    send();
    recorder().results(1);
    EXPECT_EQ(recorder().order(), "mr");
    for (const char* left : {"1", "2", "3", "4", "5", "6"}) {
        EXPECT_EQ(modem.count(std::string("AT+CMGD=") + left), 0U);
    }
}

TEST_F(session, what_waits_is_handed_over_in_order_when_a_session_opens) {
    modem.once("AT+CMGL=4",
               "\r\n+CMGL: 2,0,," + with_pdu(card_datagram("a")) + "+CMGL: 9,1,," + with_pdu(card_datagram("b")) + ok);
    modem.once("AT+CMGL=4", "\r\n+CMGL: 2,0,," + with_pdu(card_datagram("c")) + ok);
    attach();
    modem.say("\r\n+CMTI: \"SM\",2\r\n");
    modem.say("\r\n+CREG: 2\r\n");
    EXPECT_EQ(modem.count("AT+CMGL=4"), 0U);
    open();
    const std::vector<RILMESSAGE> messages = recorder().messages(3);
    EXPECT_EQ(body_of(messages[0]) + body_of(messages[1]) + body_of(messages[2]), "abc");
    ASSERT_TRUE(modem.heard("AT+CMGD=2", 2) && modem.heard("AT+CMGD=9"));
    std::vector<std::string> log = modem.log();
    std::erase_if(log, [](const std::string& line) {
        return !line.starts_with("AT+CPMS=\"") && !line.starts_with("AT+CMGD") && !line.starts_with("AT+CMGL");
    });
    // Each delete has its memory selected, however the deletes and lists fall.
    std::string memory;
    std::vector<std::string> deleted;
    for (const std::string& line : log) {
        memory = line.starts_with("AT+CPMS") ? line.substr(8) : memory;
        if (line.starts_with("AT+CMGD")) {
            deleted.push_back(memory + line.substr(8));
        }
    }
    std::ranges::sort(deleted);
    EXPECT_EQ(deleted, (std::vector<std::string>{"\"ME\"2", "\"SM\"2", "\"SM\"9"}));
}

TEST_F(session, a_delete_that_fails_is_repeated_and_the_message_is_not) {
    attach_and_open();
    const tpdu::deliver_t deliver = card_datagram("once");
    modem.on("AT+CMGR=3", stored(deliver));
    modem.once("AT+CMGD=3", "\r\n+CMS ERROR: 320\r\n");
    modem.say("\r\n+CMTI: \"SM\",3\r\n");
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));
    modem.once("AT+CMGL=4", "\r\n+CMGL: 3,1,," + with_pdu(deliver) + ok);
    modem.once("AT+CPMS=\"SM\"", ok);
    advance_clock(300'000);  // the time of the next listing
    ASSERT_TRUE(modem.heard("AT+CMGD=3", 2));
    send();
    recorder().results(1);
    EXPECT_EQ(recorder().order(), "mr");
}

TEST_F(session, direct_delivery_is_acknowledged_whatever_it_is) {
    modem.on("AT+CNMI=?", "\r\n+CNMI: (0-2),(0,2,3),(0,2),(0,2),(0,1)\r\n\r\nOK\r\n");
    attach();
    modem.say("\r\n+CMT: ,5\r\n0004FFFFFFFF\r\n");  // cannot be decoded
    ASSERT_TRUE(modem.heard("AT+CNMA"));
    modem.say("\r\n+CMT: ," + with_pdu(card_datagram("early")));  // nobody there
    ASSERT_TRUE(modem.heard("AT+CNMA", 2));
    open();
    EXPECT_EQ(body_of(recorder().messages(1)[0]), "early");
    recorder().block(true);
    modem.say("\r\n+CMT: \"Ann\"," + with_pdu(card_datagram("later")));
    EXPECT_EQ(body_of(recorder().messages(2)[1]), "later");
    EXPECT_EQ(modem.count("AT+CNMA"), 2U) << "not before the driver has it";
    recorder().block(false);
    ASSERT_TRUE(modem.heard("AT+CNMA", 3));
}

// ---- Registration. --------------------------------------------------------------------------------------------------

TEST_F(session, the_system_type_and_its_changes) {
    attach_and_open();
    const HRESULT request = RIL_GetCurrentSystemType(handle);
    EXPECT_EQ(recorder().results(1)[0], (result_t{RIL_RESULT_OK, request, RIL_SYSTEMTYPE_GSM}));
    modem.say("\r\n+CREG: 2\r\n");
    modem.say("\r\n+CREG: 2\r\n");  // no change
    modem.say("\r\n+CREG: 5,\"00C3\",\"A12B\",6\r\n");
    modem.on("AT+CREG?", "\r\n+CREG: 2,1,\"00C3\",\"A12B\"\r\n\r\nOK\r\n");
    modem.on("AT+COPS?", "\r\n+COPS: 0,0,\"Net, Co\",7\r\n\r\nOK\r\n");
    modem.say("\r\n+CREG: 1,\"00C3\",\"A12B\"\r\n");  // no technology: it is asked for
    EXPECT_EQ(recorder().types(3), (std::vector<DWORD>{RIL_SYSTEMTYPE_NONE, RIL_SYSTEMTYPE_UMTS | RIL_SYSTEMTYPE_HSDPA,
                                                       RIL_SYSTEMTYPE_UMTS}));
    modem.once_entry("\r\n+CREG: 0\r\n+CMGS: 8\r\n\r\nOK\r\n");
    send();
    recorder().results(2);
    EXPECT_EQ(recorder().order(), "rssssr") << "in the order of arrival, also in the middle of a submission";
}

// ---- Ends. ----------------------------------------------------------------------------------------------------------

TEST_F(session, a_tty_that_hangs_up_ends_every_request) {
    attach_and_open();
    modem.on_entry("");
    const HRESULT first = send("1");
    const HRESULT second = send("2");
    const HRESULT third = RIL_GetCurrentSystemType(handle);
    ASSERT_TRUE(modem.entered(1));
    modem.hang_up();
    const DWORD gone = static_cast<DWORD>(RIL_E_RADIONOTPRESENT);
    EXPECT_EQ(recorder().results(3),
              (std::vector<result_t>{
                  {RIL_RESULT_ERROR, first, gone}, {RIL_RESULT_ERROR, second, gone}, {RIL_RESULT_ERROR, third, {}}}));
    EXPECT_EQ(recorder().types(1), (std::vector<DWORD>{RIL_SYSTEMTYPE_NONE}));
    EXPECT_EQ(send(), RIL_E_RADIONOTPRESENT);
    EXPECT_EQ(RIL_GetCurrentSystemType(handle), RIL_E_RADIONOTPRESENT);
}

TEST_F(session, the_end_waits_for_the_callback_that_runs) {
    attach_and_open();
    modem.on("AT+CMGR=3", stored(card_datagram("x")));
    modem.on("AT+CMGR=4", stored(card_datagram("y")));
    recorder().block(true);
    modem.say("\r\n+CMTI: \"SM\",3\r\n");
    recorder().messages(1);
    modem.say("\r\n+CMTI: \"SM\",4\r\n");
    ASSERT_TRUE(modem.heard("AT+CMGR=4"));
    auto ended = std::async(std::launch::async, [this] { return RIL_Deinitialize(handle); });
    EXPECT_EQ(ended.wait_for(50ms), std::future_status::timeout);
    recorder().block(false);
    EXPECT_EQ(ended.get(), S_OK);
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));
    EXPECT_LT(send(), 0);
    EXPECT_LT(RIL_Deinitialize(handle), 0);
    modem.once("AT+CMGL=4", "\r\n+CMGL: 4,1,," + with_pdu(card_datagram("y")) + ok);
    open();
    EXPECT_EQ(body_of(recorder().messages(2)[1]), "y") << "it stayed for the next session";
}

TEST_F(session, detaching_deletes_what_was_handed_over_and_answers_what_is_pending) {
    attach_and_open();
    modem.on("AT+CMGR=3", stored(card_datagram("x")));
    recorder().block(true);
    modem.say("\r\n+CMTI: \"SM\",3\r\n");
    recorder().messages(1);
    auto detached = std::async(std::launch::async, [] { radio::detach_modem(); });
    EXPECT_EQ(detached.wait_for(50ms), std::future_status::timeout);
    recorder().block(false);
    detached.get();
    EXPECT_EQ(modem.count("AT+CMGD=3"), 1U);

    attach_and_open();
    modem.on_entry("");
    const HRESULT request = send();
    ASSERT_TRUE(modem.heard("AT+CMGS=30"));
    radio::detach_modem();
    EXPECT_EQ(recorder().results(1)[0],
              (result_t{RIL_RESULT_ERROR, request, static_cast<DWORD>(RIL_E_RADIONOTPRESENT)}));
    EXPECT_EQ(send(), RIL_E_RADIONOTPRESENT);
    radio::detach_modem();
}

TEST_F(session, a_new_session_takes_the_place_of_one_that_was_never_ended) {
    attach_and_open();
    const HRIL old = handle;
    open();
    EXPECT_NE(handle, old);
    const RILMESSAGE message = outgoing("1", "card");
    EXPECT_LT(RIL_SendMsg(old, &message, 0), 0);
    modem.on("AT+CMGR=3", stored(card_datagram("x")));
    modem.say("\r\n+CMTI: \"SM\",3\r\n");
    ASSERT_TRUE(modem.heard("AT+CMGD=3"));
    EXPECT_EQ(recorder().order(), "m");
}

}  // namespace
