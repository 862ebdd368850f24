// A modem of the emulated network, and what a program at its tty may say: octets of any kind, and command lines. What
// must hold: nothing that came before keeps a command line from its one final result, or a text from its prompt; what
// the host says costs bounded space; and the trace of it is a row of whole records.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "base/clock.h"
#include "base/descriptor.h"
#include "base/octets.h"
#include "fuzz/fuzz.h"
#include "fuzz/input.h"
#include "network/modem.h"

namespace {

using namespace network;

constexpr size_t most_output = 16'000'000;  // of one line: as many listings of full memories as it holds

bool is_result(std::string_view line) {
    return line == "OK" || line == "ERROR" || line.starts_with("+CMS ERROR: ") || line.starts_with("+CME ERROR: ");
}

size_t results_in(std::string_view output) {
    size_t count = 0;
    while (!output.empty()) {
        const size_t end = std::min(output.find_first_of("\r\n"), output.size());
        count += is_result(output.substr(0, end)) ? 1 : 0;
        output.remove_prefix(std::min(end + 1, output.size()));
    }
    return count;
}

/// A piece, some times over, that neither ends a line nor edits it.
std::string line_of(input_t& input) {
    const std::string piece = input.piece(255);
    std::string line;
    for (size_t count = 1 + input.below(4) / 3 * 10; count > 0; --count) {
        line += piece;
    }
    std::ranges::replace_if(
        line, [](unsigned char octet) { return octet < 0x20 || octet == 0x7F; }, ' ');
    return line;
}

class host_t {
  public:
    explicit host_t(modem_t& modem) : modem_(modem) {}

    void say(std::string_view octets) {
        for (const char octet : octets) {
            if (modem_.dialogue().ready()) {
                modem_.dialogue().take(octet);
            }
            must(modem_.dialogue().output().size() <= most_output);
        }
    }
    std::string hear() { return std::exchange(modem_.dialogue().output(), {}); }

    /// A command line, and a text each time that it asks for one.
    void command(input_t& input) {
        come_to_terms();
        const std::string line = "AT" + line_of(input);
        say(line + '\r');
        while (prompts(line)) {
            say(line_of(input) + '\x1a');
        }
    }

  private:
    /// Whatever has been going on: no text is entered, no line is begun, and results come in words.
    void come_to_terms() {
        for (const char* const octets : {"\x1b", "\r", "\x1b", "ATQ0V1E0\r"}) {
            hear();
            say(octets);
        }
        must(hear().ends_with("\r\nOK\r\n"));
    }
    /// Of a line that changes the form of results, or tells messages, which may read like one, nothing is known.
    bool prompts(const std::string& line) {
        const std::string reply = hear();
        const bool prompted = reply.ends_with("\r\n> ");
        const bool plain = line.find_first_of("QqVvLlRr") == std::string::npos;
        must(!plain || results_in(reply) == (prompted ? 0 : 1));
        return prompted;
    }

    modem_t& modem_;
};

/// Blocks: a type, their length, octets, and the length again.
void check_trace(int file) {
    base::octets_t octets(static_cast<size_t>(lseek(file, 0, SEEK_END)));
    must(pread(file, octets.data(), octets.size(), 0) == static_cast<ssize_t>(octets.size()) && !octets.empty());
    base::octets_view_t left = octets;
    while (!left.empty()) {
        base::reader_t head(left);
        must(head.u32().has_value());
        const uint32_t length = head.u32().value_or(0);
        must(length >= 12 && length % 4 == 0 && length <= left.size());
        must(base::reader_t(left.subspan(length - 4)).u32() == length);
        left = left.subspan(length);
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    input_t input(data, size);
    const base::descriptor_t trace(memfd_create("trace", MFD_CLOEXEC));
    service_centre_t service_centre;
    must(service_centre.trace().open("/proc/self/fd/" + std::to_string(trace.get()), {}).empty());
    const std::string number = "+4917";
    const auto technology = input.below(4) == 0 ? access_technology_t::cdma : access_technology_t::gsm;
    modem_t modem(number, technology, service_centre);
    modem.power_on();
    service_centre.attach(number, modem.messages(), modem.faults());
    host_t host(modem);
    while (!input.empty()) {
        switch (input.below(8)) {
            case 0:
                host.say(input.piece(255));
                break;
            case 1:
                base::advance_clock(1000 * input.octet());
                modem.pass_deadline();
                break;
            case 2:
                service_centre.touch(number);
                service_centre.deliver_waiting();
                break;
            default:
                host.command(input);
        }
    }
    service_centre.detach(number);
    check_trace(trace.get());
    return 0;
}
