#include "tests/driver/phone.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <map>
#include <ostream>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;

namespace {

std::string read_file(const fs::path& path) {
    std::ostringstream octets;
    octets << std::ifstream(path, std::ios::binary).rdbuf();
    return octets.str();
}

/// A pattern's '~' is one or more hexadecimal digits.
bool matches(const std::string& line, const std::string& pattern) {
    size_t at = 0;
    for (const char c : pattern) {
        if (c == '~') {
            const size_t begin = at;
            while (at < line.size() && std::isxdigit(static_cast<unsigned char>(line[at]))) {
                ++at;
            }
            if (at == begin) {
                return false;
            }
        } else if (at == line.size() || line[at++] != c) {
            return false;
        }
    }
    return at == line.size();
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const reply_t& reply) {
    stream << (reply.done ? "done" : "failed") << ", error " << reply.error << ", output";
    for (const unsigned char octet : reply.output) {
        stream << ' ' << unsigned{octet};
    }
    return stream;
}

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
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("\\Software\\Varkon\\Drivers\\ZPD\\daemon"), 0, KEY_QUERY_VALUE, &key) !=
        0) {
        return "(none)";
    }
    std::string octets(256, '\0');
    auto size = static_cast<DWORD>(octets.size());
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
    if (ZPD_IOControl(1, code, in.data(), static_cast<DWORD>(in.size()), out.data(), capacity, &returned)) {
        return done({out.begin(), out.begin() + returned});
    }
    const DWORD error = GetLastError();
    return failed(error, {out.begin(), out.begin() + returned});
}

reply_t phone_t::send(const std::string& card, const wide_string_t& number, bool utf8, bool long_reference) {
    return request(ZPD_IOCTL_SEND_MESSAGE, text(card) + u8(utf8) + u8(long_reference) + text16(number));
}

uint32_t phone_t::send_card(size_t octets) {
    const reply_t reply = send(std::string(octets, 'x'));
    EXPECT_TRUE(reply.done) << reply;
    return reply.output.size() == 4 ? u32_at(reply.output, 0) : 0xFFFFFFFF;
}

std::vector<int32_t> phone_t::status(uint32_t id) {
    const reply_t reply = request(ZPD_IOCTL_MESSAGE_STATUS, u32(id));
    std::vector<int32_t> statuses;
    for (size_t at = 4; reply.done && at < reply.output.size(); at += 8) {
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
    const auto lines = raw_log();
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [](const auto& line) {
        return line.find("sender_thread: got it") != std::string::npos;
    }));
}

void phone_t::let_sender_look() {
    const size_t before = rounds();
    eventually([&] {
        pass(0);
        return rounds() > before;
    });
    request(ZPD_IOCTL_VERSION);  // under the lock: the round has ended
}

std::vector<stored_t> phone_t::incoming() const {
    std::vector<stored_t> stored;
    const fs::path directory = home() / "Application Data/PUBLIC/VARKON/ZPD/INCOMING";
    if (!fs::exists(directory)) {
        return stored;
    }
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string octets = read_file(entry.path());
        const size_t colon = octets.find(':');
        const size_t line_end = std::min(octets.find('\n'), octets.size() - 1);
        stored.push_back({entry.path().filename().string(), octets.substr(0, colon),
                          octets.substr(colon + 1, line_end - colon - 1), octets.substr(line_end + 1)});
    }
    return stored;
}

std::vector<std::string> phone_t::cards() const {
    std::vector<std::string> cards;
    for (const stored_t& stored : incoming()) {
        cards.push_back(stored.address + ":" + stored.data);
    }
    std::sort(cards.begin(), cards.end());
    return cards;
}

std::vector<std::string> phone_t::raw_log() const {
    std::istringstream file(read_file(home() / "Application Data/PUBLIC/VARKON/ZPD/LOG/zpd.log"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line) && !file.eof();) {  // a line without its end is being written
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> phone_t::log() const {
    std::map<std::string, std::string> levels;  // of the header line last written, a thread
    std::vector<std::string> entries;
    for (const std::string& line : raw_log()) {
        const size_t thread = line.find("] [") + 3;
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
    const auto entries = log();
    return static_cast<size_t>(
        std::count_if(entries.begin(), entries.end(), [&](const auto& entry) { return matches(entry, line); }));
}

std::string phone_t::states(uint32_t message, unsigned ordinal) const {
    const std::string datagram = ": " + std::to_string(message) + "[" + std::to_string(ordinal) + "]:";
    std::string states;
    for (const std::string& entry : log()) {
        const size_t at = entry.find(datagram);
        if (!entry.starts_with("DEBUG Transition 0x") || at == std::string::npos) {
            continue;
        }
        const size_t from = at + datagram.size();
        const size_t arrow = entry.find("->", from);
        EXPECT_EQ(entry.substr(from, arrow - from), states.empty() ? "<null>" : states.substr(states.rfind(' ') + 1));
        states += (states.empty() ? "" : " ") + entry.substr(arrow + 2);
    }
    return states;
}

void eventually(const std::function<bool()>& predicate) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > end) {
            ADD_FAILURE() << "waited in vain";
            return;
        }
        std::this_thread::yield();
    }
}

void expect_lines(const lines_t& log, const lines_t& expected) {
    auto at = log.begin();
    for (const std::string& line : expected) {
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
