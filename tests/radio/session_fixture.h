/// The RIL functions on a modem that a test scripts, what their callbacks got, and messages for both directions.
#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ril.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "air/tpdu.h"
#include "base/clock.h"
#include "base/hex.h"
#include "base/text.h"
#include "radio/attach_modem.h"
#include "radio/limits.h"
#include "tests/driver/home.h"
#include "tests/radio/scripted_modem.h"

using events_t = std::vector<std::string>;

/// Events as the recorder has them.
inline std::string sent(HRESULT request, DWORD reference = 7) {
    return fmt::format("{}: ok {}", request, reference);
}
inline std::string failed(HRESULT request, DWORD error) {
    const std::map<HRESULT, std::string> names = {{RIL_E_NETWORKTIMEOUT, "network timeout"},
                                                  {RIL_E_RADIONOTPRESENT, "not present"},
                                                  {RIL_E_PHONEFAILURE, "phone failure"},
                                                  {0, "no data"}};
    const auto name = names.find(static_cast<HRESULT>(error));
    const DWORD code = error - static_cast<DWORD>(RIL_E_CMSERROR_BASE);
    return fmt::format("{}: {}", request, name != names.end() ? name->second : fmt::format("CMS {}", code));
}
inline std::string system_type(DWORD type) {
    return fmt::format("system {:X}", type);
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
        EXPECT_TRUE(changed_.wait_for(lock, scripted_modem_t::patience, [&] { return events_.size() >= count; }));
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
    const air::octets_t header = *base::from_hex("050423F423F40003010201");
    RILMESSAGE message{};
    message.cbSize = sizeof message;
    message.dwParams = 0x0D80CA26;
    message.dwType = RIL_MSGTYPE_OUT_SUBMIT;
    message.dwFlags = RIL_MSGFLAG_HEADER;
    RIL_OUT_SUBMIT& out = message.msgOutSubmit;
    std::ranges::copy(base::to_utf16(number), out.raDestAddress.wszAddress);
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
/// `place` is reference, of one octet or two, parts and part; without it the datagram is a message of its own.
inline air::deliver_t incoming(const std::string& body, const std::string& place = {}) {
    air::deliver_t deliver =
        *air::decode_deliver(*base::from_hex("440C919471103254760004621112007151400706050423F423F4"));
    if (!place.empty()) {
        deliver.user_data[0] = static_cast<uint8_t>(8 + place.size() / 2);
        const air::octets_t element = *base::from_hex((place.size() == 6 ? "0003" : "0804") + place);
        deliver.user_data.insert(deliver.user_data.end(), element.begin(), element.end());
    }
    deliver.user_data.insert(deliver.user_data.end(), body.begin(), body.end());
    deliver.user_data_length = static_cast<uint8_t>(deliver.user_data.size());
    return deliver;
}
/// "<length>" CR LF "<pdu>", as it ends a +CMGR, +CMGL or +CMT line.
inline std::string with_pdu(const air::deliver_t& deliver) {
    const air::octets_t tpdu = *air::encode(deliver);
    return fmt::format("{}\r\n{}", tpdu.size(), base::to_hex(*air::encode_pdu({{}, tpdu})));
}

class session : public testing::Test {
  public:
    session() {
        current = this;
        link(options.tty, modem);
        // Where tests move the clock, a busy machine has time to answer all the same.
        for (const char* limit : {"first-answer", "silence", "setting", "sim-ready", "storage"}) {
            EXPECT_EQ(radio::set_limit(limit, "300"), "");
        }
        EXPECT_EQ(radio::set_limit("submission", "100"), "") << "before messages are listed again";
    }
    ~session() override {
        recorder.block(false);
        radio::detach_modem();
        radio::reset_limits();
    }

  protected:
    void attach() { ASSERT_EQ(radio::attach_modem(options), ""); }
    void open() {
        constexpr DWORD classes = RIL_NCLASS_MESSAGE | RIL_NCLASS_NETWORK;
        ASSERT_EQ(RIL_Initialize(1, on_result, on_notify, classes, parameter, &handle), S_OK);
    }
    void attach_and_open() {
        attach();
        open();
        ASSERT_TRUE(modem.heard("AT+CMGL=4", 2)) << "both memories are listed";
    }
    /// attach_modem on its way, with the modem silent at this command.
    std::future<std::string> attach_up_to(const std::string& command) {
        const size_t before = modem.count(command);
        modem.once(command, "");
        auto attached = std::async(std::launch::async, [this] { return radio::attach_modem(options); });
        EXPECT_TRUE(modem.heard(command, before + 1));
        return attached;
    }
    HRESULT send() {
        const RILMESSAGE message = outgoing("+491701234567", "card");
        return RIL_SendMsg(handle, &message, 0);
    }
    /// Moves the clock fast until the predicate holds, which takes a part of a second when it does not: the others need
    /// some real time to do what its time has come for.
    static bool as_time_passes(const std::function<bool()>& predicate) {
        for (int step = 0; step < 2000; ++step) {
            if (predicate()) {
                return true;
            }
            base::advance_clock(50);
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        return false;
    }
    static void link(const std::filesystem::path& name, const scripted_modem_t& to) {
        std::filesystem::remove(name);
        std::filesystem::create_symlink(to.tty(), name);
    }
    /// A message comes to a place of "SM", there to be read.
    void receive(int place, const std::string& body) {
        modem.on(fmt::format("AT+CMGR={}", place), "\r\n+CMGR: 0,," + with_pdu(incoming(body)) + "\r\n" + modem.ok);
        modem.say(fmt::format("\r\n+CMTI: \"SM\",{}\r\n", place));
    }

    const home_t home;
    scripted_modem_t modem;
    radio::modem_options_t options{.tty = home.path() / "modem"};
    recorder_t recorder;
    HRIL handle = nullptr;
    std::function<void()> in_the_next_result;  // done once, on the thread of the callbacks

  private:
    static constexpr DWORD parameter = 0x5EED;
    static inline session* current = nullptr;  // the callbacks' parameter is too narrow for it

    static void on_result(DWORD code, HRESULT request, const void* data, DWORD size, DWORD told) {
        EXPECT_EQ(told, parameter);
        EXPECT_EQ(size, data == nullptr ? 0 : sizeof(DWORD));
        const DWORD number = data == nullptr ? 0 : *static_cast<const DWORD*>(data);
        current->recorder.add(code == RIL_RESULT_OK ? sent(request, number) : failed(request, number));
        if (const auto then = std::exchange(current->in_the_next_result, {})) {
            then();
        }
    }
    static void on_notify(DWORD code, const void* data, DWORD size, DWORD told) {
        EXPECT_EQ(told, parameter);
        if (code == RIL_NOTIFY_SYSTEMCHANGED && size == sizeof(DWORD)) {
            current->recorder.add(system_type(*static_cast<const DWORD*>(data)));
            return;
        }
        ASSERT_EQ(code, RIL_NOTIFY_MESSAGE);
        ASSERT_EQ(size, sizeof(RILMESSAGE));
        const auto& message = *static_cast<const RILMESSAGE*>(data);
        const auto body = [](const auto& in) { return std::string(in.rgbMsg, in.rgbMsg + in.cchMsgLength); };
        const bool cdma = message.dwType == RIL_MSGTYPE_IN_CDMADELIVER;
        current->recorder.add("message " + (cdma ? body(message.msgInCDMADeliver) : body(message.msgInDeliver)));
    }
};
