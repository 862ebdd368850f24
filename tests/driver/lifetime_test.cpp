// The driver's end and its return, while everybody else goes on; many clients at once.

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <random>
#include <thread>

#include "com/qmlog/api2.h"
#include "tests/driver/phone.h"

using testing::AnyOf;
using testing::IsEmpty;

namespace {

using lifetime_test = driver_test;

TEST_F(lifetime_test, sleeping_sender_never_meets_the_next_daemon) {
    phone.start_on(gsm);
    for (size_t life = 2; life <= 50; ++life) {
        phone.stop();
        phone.start();
        radio.question(life);
    }
    for (size_t more = 1; more <= 3; ++more) {
        eventually([&] {
            platform::testing::advance_clock(10000);
            return radio.attempts().questions >= 50 + more;
        });
        phone.request(ZPD_IOCTL_VERSION);
    }
    // All fifty senders have been woken. Were more than one alive, each step would bring a question of each.
    const size_t before = radio.attempts().questions;
    platform::testing::advance_clock(10000);
    radio.question(before + 1);
    phone.request(ZPD_IOCTL_VERSION);
    EXPECT_EQ(radio.attempts().questions, before + 1);
}

TEST_F(lifetime_test, goes_and_comes_back_under_load) {
    phone.preset("activated", 1);
    radio.follow({.confirm_everything = true});
    std::atomic<bool> over{false};
    const auto client = [&] {
        while (!over) {
            const reply_t sent = phone.send("card");
            EXPECT_THAT(sent.error, AnyOf(0, 4319));
            if (sent.error == 0) {
                EXPECT_THAT(phone.close(u32_at(sent.output, 0)).error, AnyOf(0, 1002, 4319));
            }
            EXPECT_THAT(phone.request(ZPD_IOCTL_MESSAGE_LIST).error, AnyOf(0, 4319));
        }
    };
    const auto air = [&] {
        for (unsigned n = 0; !over; ++n) {
            radio.system_changed(gsm);
            radio.deliver(deliver_message(part_header(n & 0xFF, 2, 1 + n % 2), "x"));
            radio.result(static_cast<HRESULT>(n), RIL_RESULT_OK, u32(1));
        }
    };
    {
        const std::jthread one(client), another(client), radios(air);
        for (int life = 0; life < 50; ++life) {
            phone.start();
            EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION), done(u32(2)));
            phone.stop();
        }
        over = true;
    }
    phone.start();
    radio.deliver(deliver_message(port_header, "good", TEXT("+9")));
    EXPECT_EQ(phone.cards().back(), "+9:good");
}

TEST_F(lifetime_test, clients_and_radio_all_at_once) {
    phone.preset("activated", 1);
    phone.preset("incoming_dir_size", 10);
    phone.start_on(gsm);
    radio.follow({.confirm_everything = true});
    const auto client = [&](unsigned number) {
        for (unsigned round = 0; round < 50; ++round) {
            const uint32_t id = phone.send_card(200);
            if (number == 0) {
                phone.request(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(round % 2) + u8(7) + u8(round % 8));
            }
            if (number == 1) {
                phone.request(ZPD_IOCTL_RIL_CAPACITY, u8(1) + u8(1 + round % 4));
            }
            if (number == 2) {
                phone.start();  // once more: it changes nothing
            }
            EXPECT_THAT(phone.list(), testing::Contains(id));
            if (round % 2) {
                eventually([&] { return phone.status(id) == std::vector<int32_t>{4, 4}; });
            }
            EXPECT_EQ(phone.close(id), done());
            radio.deliver(deliver_message(part_header(number, 2, 1 + round % 2), "x"));
        }
    };
    { const std::jthread first(client, 0), second(client, 1), third(client, 2), fourth(client, 3); }
    EXPECT_THAT(phone.list(), IsEmpty());
    EXPECT_EQ(phone.incoming().size(), 11u);
    eventually([&] { return radio.attempts().submissions == 400; });
}

void eight_at_once(const std::function<void()>& act) {
    all_at_once(std::vector(8, act));
}

TEST_F(lifetime_test, starts_at_once_make_one_daemon) {
    for (size_t life = 1; life <= 25; ++life) {
        std::atomic<size_t> sent{0};
        eight_at_once([&] {
            phone.start();
            sent += phone.send("card").error == 0;
        });
        EXPECT_EQ(sent, 8u);
        EXPECT_EQ(phone.list().size(), 8u) << "a message was lost with its daemon";
        EXPECT_EQ(radio.attempts().sessions, life);
        eight_at_once([&] { phone.stop(); });
        EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION), failed(4319));
    }
}

/// Counts the cards that came while there was no daemon.
class refusals_t final : public qmlog::abstract_log_t {
  public:
    refusals_t() : abstract_log_t(qmlog::flag_message, qmlog::level_error) { enter(qmlog::process_log().dispatcher()); }
    ~refusals_t() override { leave(); }
    refusals_t(const refusals_t&) = delete;
    refusals_t& operator=(const refusals_t&) = delete;
    void write(const std::string& line) override { count += line == "can't process datagram: no daemon object"; }

    std::atomic<size_t> count{0};
};

TEST_F(lifetime_test, starts_and_ends_at_once_lose_no_card) {
    constexpr size_t rounds = 25;
    phone.preset("activated", 1);
    phone.preset("logging_enabled", 1);
    phone.start();
    phone.stop();
    const refusals_t refusals;
    eight_at_once([&] {
        for (size_t round = 0; round < rounds; ++round) {
            phone.start();
            radio.deliver(deliver_message(port_header, "card"));
            const reply_t sent = phone.send("card");
            EXPECT_THAT(sent.error, AnyOf(0, 4319));
            if (round % 2) {
                phone.stop();
            }
        }
    });
    EXPECT_EQ(phone.incoming().size() + refusals.count, 8 * rounds);
    phone.start();
    phone.stop();
    EXPECT_EQ(phone.request(ZPD_IOCTL_VERSION), failed(4319)) << "there was one daemon";
}

class random_test : public driver_test {
  protected:
    std::mt19937 random{20080229};  // the same numbers each time
    unsigned up_to(unsigned most) { return static_cast<unsigned>(random() % (most + 1)); }
    std::string octets(unsigned most) {
        std::string text(up_to(most), '\0');
        std::ranges::generate(text, [this] { return static_cast<char>(random()); });
        return text;
    }
    std::string input_for(unsigned function) {
        switch (up_to(3) == 0 ? 0 : function) {
            case 5:
            case 6:
                return text(octets(400)) + u8(up_to(1)) + u8(up_to(1)) + (function == 5 ? text(octets(40)) : "");
            case 8:
            case 9:
                return u32(up_to(0xFFFF));
            case 3:
                return u8(up_to(3)) + text("app" + std::to_string(up_to(9)));
            case 14:
                return text(octets(20));
            default:
                return octets(up_to(50) == 0 ? 5000 : 12);
        }
    }
    void mutate(RILMESSAGE& message) {
        RIL_IN_DELIVER& deliver = message.msgInDeliver;
        for (unsigned changes = up_to(2); changes > 0; --changes) {
            uint8_t* const octets[] = {&deliver.rgbHdr[up_to(16)],
                                       reinterpret_cast<uint8_t*>(&message) + up_to(sizeof message - 1)};
            DWORD* const lengths[] = {&deliver.cbHdrLength, &deliver.cchMsgLength};
            *octets[up_to(1)] = static_cast<uint8_t>(random());
            *lengths[up_to(1)] = up_to(1) ? up_to(200) : random();
        }
    }
    /// Cards still come and go.
    void expect_service() {
        phone.request(ZPD_IOCTL_INCOMING_DIR_SIZE, u8(1) + u32(0));
        EXPECT_EQ(phone.request(ZPD_IOCTL_ACTIVATION, u8(1) + u8(1)), done(u8(1)));
        radio.deliver(deliver_message(port_header, "good", TEXT("+9")));
        EXPECT_EQ(phone.cards().back(), "+9:good");
    }
};

TEST_F(random_test, requests_harm_nothing) {
    phone.preset("Own", REG_SZ, "1", R"(\Software\Microsoft\Pim\Contacts\Settings)");
    phone.start_on(gsm);
    radio.follow({.confirm_everything = true});
    platform::testing::fail_calls("SHLaunchApplicationForURI", 1155, -1);  // start nothing
    platform::testing::fail_calls("RegSetValueExW", 5, -1);                // wear out no disk
    size_t answered = 0;
    for (int i = 0; i < 100000; ++i) {
        const unsigned function = up_to(15);
        const DWORD code = up_to(99) == 0 ? random() : 0x02000000 | function << 2;
        const reply_t reply = phone.request(code, input_for(function), up_to(40));
        answered += reply.error == 0;
        if (reply.error == 0 && code == ZPD_IOCTL_SEND_MESSAGE) {
            phone.close(u32_at(reply.output, 0));
        }
        if (reply.error == 0 && code == ZPD_IOCTL_LOG_OPTIONS) {
            phone.request(ZPD_IOCTL_LOG_OPTIONS, std::string("\1\0\7\0", 4));
        }
    }
    EXPECT_GT(answered, 10000u);
    platform::testing::no_failures();
    phone.request(ZPD_IOCTL_APPLICATION, u8(2));
    expect_service();
    const uint32_t id = phone.send_card(300);
    eventually([&] { return phone.status(id) == std::vector<int32_t>{4, 4, 4}; });
}

TEST_F(random_test, messages_harm_nothing) {
    phone.preset("activated", 1);
    phone.preset("incoming_dir_size", 8);
    phone.start();
    for (int i = 0; i < 100000; ++i) {
        const std::string header = up_to(1) ? port_header : part_header(up_to(3), up_to(3), up_to(4), up_to(1));
        auto message = std::make_unique<RILMESSAGE>(deliver_message(header, octets(140)));  // of its exact size
        if (up_to(3) == 0) {
            message->dwType = RIL_MSGTYPE_IN_CDMADELIVER;
        }
        mutate(*message);
        radio.deliver(*message);
    }
    EXPECT_EQ(phone.incoming().size(), 9u);
    expect_service();
}

}  // namespace
