/// The RIL functions on a modem that a test scripts, what their callbacks got, and messages for both directions.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <platform/linux/hex.h>
#include <platform/linux/home.h>
#include <platform/linux/testing.h>
#include <platform/linux/text.h>
#include <ril.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "radio/modem_port.h"
#include "radio/tpdu.h"
#include "tests/radio/scripted_modem.h"

using events_t = std::vector<std::string>;

/// Events as the recorder has them.
inline std::string result(HRESULT request, DWORD code, std::optional<DWORD> data) {
    return fmt::format("request {}: code {} data {:X}", request, code, data.value_or(0));
}
inline std::string sent(HRESULT request, DWORD reference = 7) {
    return result(request, RIL_RESULT_OK, reference);
}
inline std::string failed(HRESULT request, HRESULT error) {
    return result(request, RIL_RESULT_ERROR, static_cast<DWORD>(error));
}
inline std::string system_type(DWORD type) {
    return fmt::format("system type {:X}", type);
}

/// What the callbacks got, in order. Thread-safe.
class recorder_t {
  public:
    void add(const std::string& event) {
        std::unique_lock lock(mutex_);
        events_.push_back(event);
        changed_.notify_all();
        changed_.wait(lock, [this] { return !blocked_; });
    }
    /// No callback returns while blocked.
    void block(bool blocked) {
        const std::lock_guard lock(mutex_);
        blocked_ = blocked;
        changed_.notify_all();
    }
    /// All events, once there are so many; fails the test after some seconds.
    events_t events(size_t count) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(10), [&] { return events_.size() >= count; }));
        return events_;
    }

  private:
    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    events_t events_;
    bool blocked_ = false;
};

/// A card datagram as the driver hands it to the radio, and as a service centre delivers it.
inline RILMESSAGE outgoing(const std::string& number, const std::string& body) {
    const tpdu::octets_t header = *platform::from_hex("050423F423F40003010201");
    RILMESSAGE message{};
    message.cbSize = sizeof message;
    message.dwParams = 0x0D80CA26;
    message.dwType = RIL_MSGTYPE_OUT_SUBMIT;
    message.dwFlags = RIL_MSGFLAG_HEADER;
    RIL_OUT_SUBMIT& out = message.msgOutSubmit;
    std::ranges::copy(platform::to_utf16(number), out.raDestAddress.wszAddress);
    out.rmdDataCoding = {sizeof(RILMSGDCS), 9, RIL_DCSTYPE_GENERAL, 0, 0, RIL_DCSALPHABET_8BIT, 0, 0};
    out.cbHdrLength = static_cast<DWORD>(header.size());
    std::ranges::copy(header, out.rgbHdr);
    out.cbBodyLength = static_cast<DWORD>(body.size());
    std::ranges::copy(body, out.rgbMsg);
    return message;
}
/// The same on a CDMA network, of the card 3.
inline RILMESSAGE outgoing_cdma(const std::string& number, const std::string& body) {
    RILMESSAGE message = outgoing(number, body);
    const RIL_OUT_SUBMIT gsm = message.msgOutSubmit;
    message.dwType = RIL_MSGTYPE_OUT_CDMASUBMIT;
    RIL_OUT_CDMASUBMIT& out = message.msgOutCDMASubmit = {};
    out.raDestAddress = gsm.raDestAddress;
    out.dwMsgDisplayMode = out.dwMsgID = 3;
    out.dwMsgPriority = out.dwMsgPrivacy = 1;
    out.dwTeleservice = out.dwMsgEncoding = 2;
    out.cbHdrLength = gsm.cbHdrLength;
    out.cbBodyLength = gsm.cbBodyLength;
    std::ranges::copy(gsm.rgbHdr, out.rgbHdr);
    std::ranges::copy(gsm.rgbMsg, out.rgbMsg);
    return message;
}
/// `place` is reference, parts and part; without it the datagram is a message of its own.
inline tpdu::deliver_t incoming(const std::string& body, const std::string& place = {}) {
    tpdu::deliver_t deliver =
        *tpdu::decode_deliver(*platform::from_hex("440C919471103254760004621112007151400706050423F423F4"));
    if (!place.empty()) {
        deliver.user_data[0] = 0x0B;
        const tpdu::octets_t element = *platform::from_hex("0003" + place);
        deliver.user_data.insert(deliver.user_data.end(), element.begin(), element.end());
    }
    deliver.user_data.insert(deliver.user_data.end(), body.begin(), body.end());
    deliver.user_data_length = static_cast<uint8_t>(deliver.user_data.size());
    return deliver;
}
/// "<length>" CR LF "<pdu>" CR LF, as it ends a +CMGR, +CMGL or +CMT line.
inline std::string with_pdu(const tpdu::deliver_t& deliver) {
    const tpdu::octets_t tpdu = *tpdu::encode(deliver);
    return fmt::format("{}\r\n{}\r\n", tpdu.size(), platform::to_hex(*tpdu::encode_pdu({{}, tpdu})));
}

/// A link to the modem's tty, as a host that must find it again names it.
struct lasting_path_t {
    explicit lasting_path_t(const scripted_modem_t& of) : modem(of) { renew(); }
    ~lasting_path_t() { std::filesystem::remove(link); }
    lasting_path_t(const lasting_path_t&) = delete;
    lasting_path_t& operator=(const lasting_path_t&) = delete;
    void renew() const {
        std::filesystem::remove(link);
        std::filesystem::create_symlink(modem.tty(), link);
    }

    const scripted_modem_t& modem;
    const std::string link = fmt::format("{}zpd-modem-{}", testing::TempDir(), getpid());
};

class session : public testing::Test {
  public:
    session() {
        current = this;
        EXPECT_EQ(platform::set_home(home), "");
    }
    ~session() override {
        recorder.block(false);
        radio::detach_modem();
        std::filesystem::remove_all(home);
    }

  protected:
    void attach() { ASSERT_EQ(radio::attach_modem({modem.tty()}), ""); }
    void open() {
        constexpr DWORD classes = RIL_NCLASS_MESSAGE | RIL_NCLASS_NETWORK;
        ASSERT_EQ(RIL_Initialize(1, on_result, on_notify, classes, parameter, &handle), S_OK);
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
    /// TP-MR of the last submission, behind ">", the empty service centre and the first octet.
    DWORD last_reference() {
        std::vector<std::string> log = modem.log();
        std::erase_if(log, [](const std::string& line) { return !line.starts_with('>'); });
        return log.empty() ? 0 : platform::from_hex(log.back().substr(5, 2))->front();
    }
    /// The modem says this, and the radio has read it: the answer to a question comes behind it.
    void say_and_wait(const std::string& text) {
        const size_t before = recorder.events(0).size();
        modem.say(text);
        RIL_GetCurrentSystemType(handle);
        recorder.events(before + 1);
    }
    /// As modem.heard, while the clock moves fast.
    bool heard_as_time_passes(const std::string& command, size_t times) {
        for (int step = 0; step < 2000; ++step) {
            if (modem.heard(command, times, std::chrono::milliseconds(5))) {
                return true;
            }
            platform::testing::advance_clock(50);
        }
        return false;
    }
    /// Requests that the modem leaves without an answer; returns the results that the end of the modem gives them.
    events_t leave_requests_pending() {
        attach_and_open();
        modem.on(">", "");
        const HRESULT first = send();
        const HRESULT second = send();
        const HRESULT third = RIL_GetCurrentSystemType(handle);
        EXPECT_TRUE(modem.heard(">"));
        return {failed(first, RIL_E_RADIONOTPRESENT), failed(second, RIL_E_RADIONOTPRESENT),
                result(third, RIL_RESULT_ERROR, {})};
    }
    /// A message comes to a place of "SM", there to be read.
    void receive(int place, const std::string& body) {
        modem.on(fmt::format("AT+CMGR={}", place), "\r\n+CMGR: 0,," + with_pdu(incoming(body)) + modem.ok);
        modem.say(fmt::format("\r\n+CMTI: \"SM\",{}\r\n", place));
    }

    const std::filesystem::path home = fmt::format("{}zpd-radio-{}", testing::TempDir(), getpid());
    scripted_modem_t modem;
    recorder_t recorder;
    RILMESSAGE last_message{};  // written before its event
    HRIL handle = nullptr;

  private:
    static constexpr DWORD parameter = 0x5EED;
    static inline session* current = nullptr;  // the callbacks' parameter is too narrow for it

    static void on_result(DWORD code, HRESULT request, const void* data, DWORD size, DWORD told) {
        EXPECT_EQ(told, parameter);
        EXPECT_EQ(size, data == nullptr ? 0 : sizeof(DWORD));
        const auto* number = static_cast<const DWORD*>(data);
        current->recorder.add(result(request, code, number == nullptr ? std::nullopt : std::optional(*number)));
    }
    static void on_notify(DWORD code, const void* data, DWORD size, DWORD told) {
        EXPECT_EQ(told, parameter);
        if (code == RIL_NOTIFY_SYSTEMCHANGED && size == sizeof(DWORD)) {
            current->recorder.add(system_type(*static_cast<const DWORD*>(data)));
            return;
        }
        ASSERT_EQ(code, RIL_NOTIFY_MESSAGE);
        ASSERT_EQ(size, sizeof(RILMESSAGE));
        current->last_message = *static_cast<const RILMESSAGE*>(data);
        const auto body = [](const auto& in) { return std::string(in.rgbMsg, in.rgbMsg + in.cchMsgLength); };
        const bool cdma = current->last_message.dwType == RIL_MSGTYPE_IN_CDMADELIVER;
        current->recorder.add("message " + (cdma ? body(current->last_message.msgInCDMADeliver)
                                                 : body(current->last_message.msgInDeliver)));
    }
};
