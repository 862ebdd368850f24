#include "tests/driver/phone.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/incoming.h"

namespace fs = std::filesystem;

namespace {

/// A pattern's '~' is one or more hexadecimal digits.
bool matches(std::string_view line, std::string_view pattern) {
    const size_t at = pattern.find('~');
    if (at >= line.size()) {
        return line == pattern;
    }
    const size_t end = std::min(line.find_first_not_of("0123456789ABCDEFabcdef", at), line.size());
    return line.substr(0, at) == pattern.substr(0, at) && end > at && matches(line.substr(end), pattern.substr(at + 1));
}

}  // namespace

phone_t::phone_t() {
    platform::testing::no_failures();
    radio.reset();
}

phone_t::~phone_t() {
    platform::testing::no_failures();
    if (!running_) {
        start();
    }
    request(ZPD_IOCTL_LOG_OPTIONS, u8(1) + u8(0) + u8(7) + u8(0));  // else the log file would outlive the driver
    stop();
}

void phone_t::preset(const std::string& name, DWORD type, const std::string& octets, const std::string& key) {
    HKEY handle = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, widen(key).c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                              &handle, nullptr),
              0);
    EXPECT_EQ(RegSetValueExW(handle, widen(name).c_str(), 0, type, reinterpret_cast<const BYTE*>(octets.data()),
                             static_cast<DWORD>(octets.size())),
              0);
    EXPECT_EQ(RegCloseKey(handle), 0);
}

std::string phone_t::registry(const std::string& name) const {
    HKEY key = nullptr;
    std::string octets(256, '\0');
    auto size = static_cast<DWORD>(octets.size());
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("\\Software\\Varkon\\Drivers\\ZPD\\daemon"), 0, KEY_QUERY_VALUE, &key);
    const LONG error =
        RegQueryValueExW(key, widen(name).c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(octets.data()), &size);
    RegCloseKey(key);
    return error == 0 ? octets.substr(0, size) : "(none)";
}

void phone_t::start() {
    EXPECT_EQ(ZPD_Init(TEXT("Drivers\\Active\\1"), nullptr), 1u);
    running_ = true;
}

void phone_t::start_on(DWORD system_type) {
    const size_t asked = radio.attempts().questions;
    start();
    radio.result(radio.question(asked + 1), RIL_RESULT_OK, u32(system_type));
    network_ = system_type;
    pass(10000);
}

void phone_t::stop() {
    EXPECT_EQ(ZPD_Deinit(1), TRUE);
    running_ = false;
}

reply_t phone_t::request(DWORD code, const std::string& input, DWORD capacity) {
    std::vector<BYTE> in(input.begin(), input.end());  // of the exact sizes, for the sanitizers
    std::vector<BYTE> out(capacity, 0xEE);
    DWORD returned = 0xABCD;
    SetLastError(0xBAD);
    const BOOL done = ZPD_IOControl(1, code, in.data(), static_cast<DWORD>(in.size()), out.data(), capacity, &returned);
    return {done ? 0 : GetLastError(), {out.begin(), out.begin() + returned}};
}

reply_t phone_t::send(const std::string& card, const wide_string_t& number, bool utf8, bool long_reference) {
    return request(ZPD_IOCTL_SEND_MESSAGE, text(card) + u8(utf8) + u8(long_reference) + text16(number));
}

uint32_t phone_t::send_card(size_t octets) {
    const reply_t reply = send(std::string(octets, 'x'));
    EXPECT_EQ(reply.error, 0u);
    return u32_at(reply.output, 0);
}

std::vector<int32_t> phone_t::status(uint32_t id) {
    const reply_t reply = request(ZPD_IOCTL_MESSAGE_STATUS, u32(id));
    std::vector<int32_t> statuses;
    for (size_t at = 4; at < reply.output.size(); at += 8) {
        statuses.push_back(static_cast<int32_t>(u32_at(reply.output, at)));
        EXPECT_EQ(u32_at(reply.output, at + 4), 0u) << "the reserved word";
    }
    return statuses;
}

std::vector<uint32_t> phone_t::list() {
    const reply_t reply = request(ZPD_IOCTL_MESSAGE_LIST, {}, 1 << 16);
    std::vector<uint32_t> ids;
    for (size_t at = 8; at < reply.output.size(); at += 4) {
        ids.push_back(u32_at(reply.output, at));
    }
    return ids;
}

void phone_t::pass(uint64_t milliseconds) {
    platform::testing::advance_clock(milliseconds);
    if (network_ != no_network) {
        radio.system_changed(network_);
    }
}

size_t phone_t::rounds() const {
    return logged("NOTICE [MUTEX] THREAD=0x~|sender_thread: got it 0x~");
}

void phone_t::let_sender_look() {
    const size_t before = rounds();
    eventually([&] {
        pass(0);
        return rounds() > before;
    });
    request(ZPD_IOCTL_VERSION);  // under the lock: the round has ended
}

std::map<std::string, std::string> phone_t::incoming() const {
    std::map<std::string, std::string> stored;
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(incoming_folder(home()), none)) {
        stored[entry.path().filename().string()] = read_file(entry.path());
    }
    return stored;
}

std::vector<std::string> phone_t::cards() const {
    std::vector<std::string> cards;
    for (const auto& [name, octets] : incoming()) {  // the time, ":", the address, a line end, the data
        cards.push_back(octets.substr(octets.find(':') + 1));
        cards.back().replace(cards.back().find('\n'), 1, ":");
    }
    std::sort(cards.begin(), cards.end());
    return cards;
}

lines_t phone_t::log() const {
    std::map<std::string, std::string> levels;  // of the header line last written, a thread
    lines_t entries;
    std::istringstream file(read_file(home() / "Application Data/PUBLIC/VARKON/ZPD/LOG/zpd.log"));
    for (std::string line; std::getline(file, line) && !file.eof();) {  // a line without its end is being written
        const size_t thread = line.find("'ZPD'] [") + 7;
        const size_t rest = line.find("] ", thread) + 2;
        const size_t at = line.find(" at ", rest);
        std::string& level = levels[line.substr(thread, rest - thread)];
        if (line.compare(rest, 3, "-- ") == 0) {
            entries.push_back(level + " " + line.substr(rest + 3));
        } else if (line.back() == ':') {
            level = line.substr(rest, at - rest);
        } else {
            entries.push_back(line.substr(rest, at - rest - 1) + " @" + line.substr(line.rfind(' ') + 1));
        }
    }
    return entries;
}

size_t phone_t::logged(const std::string& line) const {
    return static_cast<size_t>(std::ranges::count_if(log(), [&](const auto& entry) { return matches(entry, line); }));
}

std::string phone_t::states(uint32_t message, unsigned ordinal) const {
    const std::string datagram = ": " + std::to_string(message) + "[" + std::to_string(ordinal) + "]:";
    std::string states = " <null>";
    for (const std::string& entry : log()) {
        const size_t at = entry.find(datagram);
        if (entry.starts_with("DEBUG Transition 0x") && at != std::string::npos) {
            const std::string step = entry.substr(at + datagram.size());
            const size_t arrow = step.find("->");
            EXPECT_TRUE(states.ends_with(" " + step.substr(0, arrow))) << entry;
            states += " " + step.substr(arrow + 2);
        }
    }
    return states.substr(std::min<size_t>(8, states.size()));
}

std::string read_file(const fs::path& path) {
    std::ostringstream octets;
    octets << std::ifstream(path, std::ios::binary).rdbuf();
    return octets.str();
}

void eventually(const std::function<bool()>& predicate) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    bool holds = false;
    do {
        std::this_thread::yield();
        holds = predicate();
    } while (!holds && std::chrono::steady_clock::now() < end);
    EXPECT_TRUE(holds) << "waited in vain";
}

void all_at_once(const std::vector<std::function<void()>>& acts) {
    std::atomic<size_t> ready{0};
    std::vector<std::jthread> threads;
    for (const auto& act : acts) {
        threads.emplace_back([&] {
            ++ready;
            while (ready < acts.size()) {
                std::this_thread::yield();
            }
            act();
        });
    }
}

void expect_in_order(const lines_t& log, const lines_t& expected) {
    auto at = log.begin();
    for (const std::string& line : expected) {
        if (line.empty()) {
            at = log.begin();
            continue;
        }
        at = std::find_if(at, log.end(), [&](const auto& entry) { return matches(entry, line); });
        if (at == log.end()) {
            ADD_FAILURE() << "not in the log, or not in this place: " << line;
            return;
        }
        ++at;
    }
}

RILMESSAGE deliver_message(const std::string& header, const std::string& data, const wide_string_t& address) {
    RILMESSAGE message{};
    message.cbSize = sizeof(message);
    message.dwParams = RIL_PARAM_M_TYPE | RIL_PARAM_M_ORIGADDRESS | RIL_PARAM_M_DATACODING | RIL_PARAM_M_HDRLENGTH |
                       RIL_PARAM_M_MSGLENGTH | RIL_PARAM_M_HDR | RIL_PARAM_M_MSG;
    message.dwType = RIL_MSGTYPE_IN_DELIVER;
    RIL_IN_DELIVER& deliver = message.msgInDeliver;
    deliver.raOrigAddress.dwParams = RIL_PARAM_A_ADDRESS;
    address.copy(deliver.raOrigAddress.wszAddress, MAXLENGTH_ADDRESS);
    deliver.rmdDataCoding.dwParams = RIL_PARAM_MDCS_ALPHABET;
    deliver.rmdDataCoding.dwAlphabet = RIL_DCSALPHABET_8BIT;
    deliver.cbHdrLength = static_cast<DWORD>(header.size());
    deliver.cchMsgLength = static_cast<DWORD>(data.size());
    header.copy(reinterpret_cast<char*>(deliver.rgbHdr), MAXLENGTH_HDR);
    data.copy(reinterpret_cast<char*>(deliver.rgbMsg), MAXLENGTH_MSG);
    return message;
}

std::string part_header(unsigned reference, unsigned amount, unsigned ordinal, bool long_reference) {
    const std::string concatenation =
        long_reference ? u8(8) + u8(4) + u8(reference >> 8) + u8(reference & 0xFF) : u8(0) + u8(3) + u8(reference);
    return concatenation + u8(amount) + u8(ordinal) + port_header;
}

lines_t lines_of(const fs::path& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file.is_open()) << path;
    lines_t lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with('#')) {
            lines.push_back(line);
        }
    }
    return lines;
}

void driver_test::expect_log() {
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    expect_in_order(phone.log(), lines_of(ZPD_SOURCE "/tests/driver/logs/" + name + ".txt"));
}
