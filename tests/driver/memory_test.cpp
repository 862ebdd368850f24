// Memory that is refused at each place in turn: no exception leaves an entry point or a callback, and the driver goes
// on.

#include "tests/driver/memory.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <limits>
#include <utility>

#include "tests/driver/phone.h"

namespace {

class memory_test : public driver_test {
  protected:
    /// Has memory refused at the first allocation of `act`, then at its second, until it needs no more of them.
    void run_out_everywhere(
        const std::function<void()>& act, const std::function<void()>& prepare = [] {}) {
        bool refused = true;
        for (long count = 0; refused; ++count) {
            SCOPED_TRACE(count);
            prepare();
            refuse_memory_after(count);
            act();
            refused = was_memory_refused();
            ASSERT_LT(count, 100'000) << "there is no end of it";
        }
    }
    /// What the driver answers where memory is refused, and when there is enough.
    void expect_refusals(
        DWORD code, const std::string& input, const std::function<void()>& prepare = [] {}) {
        std::vector<BYTE> in(input.begin(), input.end());
        std::vector<BYTE> out(4096);
        size_t refusals = 0;
        DWORD error = 0;
        const auto act = [&] {
            DWORD returned = 0xABCD;
            SetLastError(0xBAD);
            const BOOL done = ZPD_IOControl(1, code, in.data(), static_cast<DWORD>(in.size()), out.data(),
                                            static_cast<DWORD>(out.size()), &returned);
            error = done ? 0 : GetLastError();
            refusals += error == ERROR_NOT_ENOUGH_MEMORY && returned == 0;
        };
        // A request may need memory at one place only, besides its lines in the log; and these need more of it where
        // another thread is writing one, which moves that place from one round to the next.
        for (int sweep = 0; refusals == 0 && sweep < 10; ++sweep) {
            run_out_everywhere(act, prepare);
            EXPECT_EQ(error, 0u) << "memory is back";
        }
        EXPECT_GT(refusals, 0u) << "code " << std::hex << code;
    }
    /// A card goes out and another comes in.
    void expect_service() {
        radio.system_changed(gsm);
        const uint32_t id = phone.send_card(200);
        eventually([&] {
            phone.pass(10000);
            return phone.status(id) == std::vector<int32_t>{4, 4};
        });
        EXPECT_EQ(phone.close(id), done());
        radio.deliver(deliver_message(port_header, "good", TEXT("+9")));
        EXPECT_THAT(phone.cards(), testing::Contains("+9:good"));
    }
};

TEST_F(memory_test, requests_are_refused) {
    phone.preset("activated", 1);
    phone.preset_logging();
    phone.start_on(gsm);
    radio.follow({.confirm_everything = true});
    const std::string card = text(std::string(200, 'x')) + u8(1) + u8(0);
    expect_refusals(ZPD_IOCTL_SEND_MESSAGE, card + text16(TEXT("+491711234567")));
    expect_refusals(ZPD_IOCTL_COUNT_DATAGRAMS, text(std::string(700, 'x')) + u8(1) + u8(1));
    for (int more = 0; more < 3; ++more) {
        phone.send_card(300);
    }
    expect_refusals(ZPD_IOCTL_MESSAGE_LIST, "");
    phone.preset("Own", REG_SZ, std::string(200, '1'), R"(\Software\Microsoft\Pim\Contacts\Settings)");
    expect_refusals(ZPD_IOCTL_PIM_CONTACTS_VAR, text16(TEXT("Own")));
    std::string id;
    run_out_everywhere(
        [&] { ZPD_IOControl(1, ZPD_IOCTL_MESSAGE_CLOSE, reinterpret_cast<BYTE*>(id.data()), 4, nullptr, 0, nullptr); },
        [&] { id = u32(phone.send_card(300)); });
    EXPECT_EQ(phone.request(ZPD_IOCTL_MESSAGE_CLOSE, id), failed(1002)) << "memory is back";
    expect_refusals(ZPD_IOCTL_APPLICATION, u8(1) + text("an application with a long name"));
    expect_refusals(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(1) + u8(7) + u8(7), [&] {  // a file log is made anew
        EXPECT_EQ(phone.request(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(1) + u8(7) + u8(0)).output.size(), 3u);
    });
    EXPECT_GT(phone.logged("CRITICAL ERROR ZPD_IOCTL_SEND_MESSAGE failed: std::bad_alloc"), 0u);
    EXPECT_EQ(phone.request(ZPD_IOCTL_APPLICATION, u8(2)), done()) << "it is not installed";
    expect_service();
}

TEST_F(memory_test, starts_end_without_a_daemon) {
    phone.preset("activated", 1);
    phone.preset_logging();
    size_t without = 0;
    run_out_everywhere([&] {
        EXPECT_EQ(ZPD_Init(nullptr, nullptr), 1u);
        DWORD version = 0;
        without += ZPD_IOControl(1, ZPD_IOCTL_VERSION, nullptr, 0, reinterpret_cast<BYTE*>(&version), 4, nullptr)
                       ? 0
                       : GetLastError() == ZPD_ERROR_DEVICE_NOT_AVAILABLE;
        EXPECT_EQ(ZPD_Deinit(1), TRUE);
    });
    EXPECT_GT(without, 0u);
    EXPECT_GT(phone.logged("CRITICAL ERROR can't create the daemon: std::bad_alloc"), 0u);
    phone.start();
    radio.follow({.confirm_everything = true});
    expect_service();
}

TEST_F(memory_test, callbacks_lose_what_they_bring) {
    phone.preset("activated", 1);
    phone.preset_logging();
    phone.start_on(gsm);
    const RILMESSAGE whole = deliver_message(port_header, "card");
    const RILMESSAGE part = deliver_message(part_header(7, 2, 1), "part");
    run_out_everywhere([&] { radio.deliver(whole); });
    run_out_everywhere([&] { radio.deliver(part); });
    const RILMESSAGE first = deliver_message(part_header(0x1234, 2, 1, true), "two \r\n\t\\ ");
    const RILMESSAGE last = deliver_message("\x22\x01x" + part_header(0x1234, 2, 2, true), std::string(100, '\0'));
    run_out_everywhere([&] { radio.deliver(last); }, [&] { radio.deliver(first); });
    run_out_everywhere([&] { radio.system_changed(gsm); });
    const std::string data(100, 'x');
    run_out_everywhere([&] { radio.result(0x7777, RIL_RESULT_OK, data); });
    EXPECT_GT(phone.logged("CRITICAL ERROR notification 0x00020001 lost: std::bad_alloc"), 0u);
    EXPECT_GT(phone.logged("CRITICAL ERROR result of ril_ref=0x7777 lost: std::bad_alloc"), 0u);
    phone.send_card(1);
    const HRESULT request = radio.submission(1).request;
    const std::string reference = u32(1);
    run_out_everywhere([&] { radio.result(request, RIL_RESULT_OK, reference); });
    radio.follow({.confirm_everything = true});
    expect_service();
}

#ifndef _WIN32  // where the clock that tests move needs memory for a wait
// At each place behind the first call of the radio in turn, on the sender's thread.
TEST_F(memory_test, the_sender_goes_on_without_memory) {
    phone.preset("activated", 1);
    phone.preset_logging();
    phone.start_on(gsm);
    constexpr long nowhere = -1;
    std::atomic<long> place = nowhere;  // of the next call's thread
    radio.follow({.confirm_everything = true, .within = [&] {
                      if (const long count = place.exchange(nowhere); count != nowhere) {
                          refuse_memory_after(count);
                      }
                  }});
    const auto what_becomes_of_a_card = [&](long count) {
        place = count;
        const uint32_t id = phone.send_card(200);
        std::vector<int32_t> status;
        eventually([&] {
            phone.pass(10000);
            status = phone.status(id);
            return std::ranges::none_of(status,
                                        [](int32_t one) { return static_cast<uint32_t>(one) < ZPD_STATUS_FAILED; });
        });
        EXPECT_EQ(phone.close(id), done());
        return status;
    };
    const std::vector<int32_t> failed = {ZPD_STATUS_FAILED, ZPD_STATUS_DEFERRED};
    long before = -1;
    int failures = 0;
    for (long count = 0; refusals_of_memory() != std::exchange(before, refusals_of_memory()); ++count) {
        failures += what_becomes_of_a_card(count) == failed ? 1 : 0;
    }
    what_becomes_of_a_card(std::numeric_limits<long>::max());
    EXPECT_GT(failures, 0);
    EXPECT_GT(phone.logged("CRITICAL ERROR round not finished: std::bad_alloc"), 0u);
    expect_service();
}
#endif

}  // namespace
