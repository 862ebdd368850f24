// examples/windows/client.c against zpd.dll, with the device manager of device.h between them.
#include <gmock/gmock.h>
#include <windows.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "com/zpd/zpd_ioctl.h"
#include "tests/driver/home.h"
#include "tests/driver/octets.h"
#include "tests/driver/scripted_radio.h"
#include "tests/incoming.h"
#include "tests/windows/device.h"
#include "tests/windows/zpd_dll.h"

device_driver_t device_driver = nullptr;
void (*device_sleep)() = nullptr;

HANDLE device_open(LPCWSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD disposition,
                   DWORD flags, HANDLE model) {
    if (std::wstring(name) != L"ZPD1:") {
        return CreateFileW(name, access, share, security, disposition, flags, model);
    }
    if (device_driver == nullptr) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    return CreateEventExW(nullptr, nullptr, 0, EVENT_ALL_ACCESS);  // something to close
}

BOOL device_control(HANDLE /*device*/, DWORD code, void* input, DWORD input_length, void* output, DWORD output_length,
                    DWORD* returned, OVERLAPPED* /*overlapped*/) {
    return device_driver(1, code, static_cast<BYTE*>(input), input_length, static_cast<BYTE*>(output), output_length,
                         returned);
}

void device_pause(DWORD /*milliseconds*/) {
    device_sleep();
}

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

struct outcome_t {
    int status;
    std::string output, errors;
};

outcome_t client(std::vector<std::wstring> arguments) {
    arguments.insert(arguments.begin(), L"client");
    std::vector<wchar_t*> argv;
    for (std::wstring& argument : arguments) {
        argv.push_back(argument.data());
    }
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int status = client_main(static_cast<int>(argv.size()), argv.data());
    return {status, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

void write(const std::filesystem::path& path, const std::string& octets) {
    create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << octets;
}

std::string read(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A driver that was started for the client, and gives its first message the id 0.
class client_test : public ::testing::Test {
  protected:
    client_test() {
        radio.reset();
        const DWORD first_id = 0;
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"Software\\Varkon\\Drivers\\ZPD\\daemon", L"next_message_id", REG_DWORD,
                        &first_id, sizeof first_id);
        zpd.init(nullptr, nullptr);
        radio.question(1);
        device_driver = zpd.iocontrol;
        device_sleep = [] { FAIL() << "there is nothing to wait for"; };
        write(home.path() / "card.vcf", card);
    }
    ~client_test() override {
        device_driver = nullptr;
        const HANDLE sender = zpd.sender();
        zpd.unload();
        expect_gone_with(sender);
    }
    const std::vector<std::wstring> send = {L"send", L"P:\\card.vcf", L"+12025550199"};

    const std::string card = "BEGIN:VCARD\r\nNOTE:" + std::string(300, 'x') + "\r\nEND:VCARD\r\n";  // three datagrams
    home_t home;
    scripted_radio_t& radio = scripted_radio_t::instance();
    const zpd_t zpd;
};

TEST_F(client_test, follows_a_card_until_it_is_sent_or_refused) {
    radio.follow({.submissions = {S_OK, S_OK, S_OK, S_OK, E_FAIL}, .confirm_everything = true});
    radio.system_changed(RIL_SYSTEMTYPE_GSM);
    device_sleep = [] { Sleep(20); };  // ten seconds in all: the driver looks at the network no sooner
    const outcome_t sent = client(send);
    EXPECT_EQ(sent.status, 0) << sent.errors;
    EXPECT_THAT(sent.output, HasSubstr("message 0\ndatagram 1 of 3: queued\n"));
    for (const char* line : {"datagram 1 of 3: sent\n", "datagram 2 of 3: sent\n", "datagram 3 of 3: sent\n"}) {
        EXPECT_THAT(sent.output, HasSubstr(line));
    }
    std::string octets;
    for (size_t number = 1; number <= 3; ++number) {
        const RIL_OUT_SUBMIT submit = radio.submission(number).message.msgOutSubmit;
        EXPECT_EQ(std::wstring(submit.raDestAddress.wszAddress), L"+12025550199");
        octets.append(reinterpret_cast<const char*>(submit.rgbMsg), submit.cchMsgLength);
    }
    EXPECT_EQ(octets, card);

    const outcome_t refused = client(send);
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.output, HasSubstr("datagram 2 of 3: refused\n"));
    EXPECT_THAT(refused.output, EndsWith("message 1 is not sent, 1 of its 3 datagrams are\n"));
    EXPECT_EQ(zpd.request(ZPD_IOCTL_MESSAGE_LIST), u32(0) + u32(0)) << "both are closed";
}

TEST_F(client_test, gives_up_a_card_that_nothing_happens_to) {
    device_sleep = [] {};
    const outcome_t waiting = client(send);
    EXPECT_EQ(waiting.status, 1);
    EXPECT_THAT(waiting.output, EndsWith("message 0 is not sent, 0 of its 3 datagrams are\n"));
}

TEST_F(client_test, has_cards_stored_and_reads_them) {
    radio.deliver(card_message("dropped", L"+12025550100"));
    EXPECT_EQ(client({L"inbox"}).output, "the service is not activated: cards that come are dropped\n");
    EXPECT_EQ(client({L"activate", L"reader"}).errors, "the application is not installed: error 3\n");

    create_directories(home.path() / "Applications" / "Install" / "reader");
    EXPECT_EQ(client({L"activate", L"reader"}).output, "received cards are stored\n");
    const std::string received("BEGIN:VCARD\r\n\0:\n\xFF", 17);
    radio.deliver(card_message(received, L"+12025550100"));
    const outcome_t listed = client({L"inbox"});
    EXPECT_EQ(listed.status, 0) << listed.errors;
    EXPECT_THAT(listed.output, MatchesRegex("\\w+  \\d+-\\d+-\\d+ \\d+:\\d+:\\d+  \\+12025550100  17 octets\n"));
    const std::string name = listed.output.substr(0, ZPD_STORED_NAME_LENGTH);
    EXPECT_EQ(client({L"read", std::wstring(name.begin(), name.end()), L"P:\\read.vcf"}).output, listed.output);
    EXPECT_EQ(read(home.path() / "read.vcf"), received);

    const auto folder = incoming_folder(home.path());
    const std::string old(ZPD_STORED_NAME_LENGTH, '0');
    write(folder / old, "1700000000:+1\nCARD");
    write(folder / std::string(ZPD_STORED_NAME_LENGTH, 'f'), "no card");
    write(folder / "desktop.ini", "1700000000:+1\nCARD");
    const outcome_t damaged = client({L"inbox"});
    EXPECT_EQ(damaged.status, 1);
    EXPECT_THAT(damaged.output, HasSubstr(old + "  2023-11-14 22:13:20  +1  4 octets\n"));
    EXPECT_THAT(damaged.output, HasSubstr(listed.output));
    EXPECT_EQ(damaged.errors, std::string(ZPD_STORED_NAME_LENGTH, 'f') + ": the stored card can't be read: error 13\n");
}

TEST_F(client_test, tells_what_failed) {
    EXPECT_EQ(client({L"send", L"P:\\card.vcf"}).status, 2);
    EXPECT_EQ(client({L"send", L"P:\\none.vcf", L"1"}).errors, "the card can't be read: error 2\n");
    write(home.path() / "large.vcf", std::string(ZPD_CARD_MAX_SHORT_REFERENCE + 1, 'x'));
    EXPECT_EQ(client({L"send", L"P:\\large.vcf", L"1"}).errors, "the card can't be read: error 223\n");
    write(home.path() / "largest.vcf", std::string(ZPD_CARD_MAX_SHORT_REFERENCE, 'x'));
    device_sleep = [] {};
    EXPECT_THAT(client({L"send", L"P:\\largest.vcf", std::wstring(255, L'1')}).output, HasSubstr("255 of 255: queued"));
    EXPECT_EQ(client({L"send", L"P:\\card.vcf", std::wstring(256, L'1')}).errors, "the card can't be read: error 87\n");
    EXPECT_EQ(client({L"read", L"..\\card.vcf", L"P:\\read.vcf"}).errors, "no name of a stored card: error 123\n");

    zpd.deinit(1);
    EXPECT_EQ(client(send).errors, "the card is not sent: error 4319\n") << "without the word for the id 0";
    device_driver = nullptr;
    const outcome_t none = client(send);
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.errors, "ZPD1: can't be opened: error 2\n");
}

}  // namespace
