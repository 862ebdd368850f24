// Every fault and every manner of a modem, on a phone that sends and receives cards of 1, 3 and 30 datagrams: each
// arrives once, octet for octet, and what is no card stays on the modem. The peer is a host at the AT commands of its
// modem, with nothing of ours on it.
#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "base/clock.h"
#include "network/fault_table.h"
#include "radio/assembly.h"
#include "radio/limits.h"
#include "tests/matrix/cards.h"
#include "tests/matrix/phone.h"
#include "tests/network/host.h"

namespace {

using network::host_t;

const std::string& ours = network::alice;
const std::string theirs = "+4917000000020";  // its digits leave half an octet free

/// What is done to our phone's modem: orders of 'zpd fault'.
struct row_t {
    const char* name;
    std::vector<std::string> start;   // before the phone starts
    std::vector<std::string> before;  // before each card
    std::vector<std::string> after;   // some seconds after its datagrams began to come or go
    std::string told;                 // a warning of the radio, or a line of the driver's log, tells of it
    bool texts = true;                // such as are no cards come too
    bool copies = false;              // the peer may get a datagram of ours twice
};

void PrintTo(const row_t& row, std::ostream* stream) {
    *stream << row.name;
}

const row_t rows[] = {
    {"nothing", {}, {}, {}, "stored and announced"},
    // What the network does.
    {"refused", {}, {"refuse=38x2"}, {}, "38"},
    {"refused_without_codes", {"errors=plain"}, {"refuse=38x2"}, {}, "ERROR"},
    {"refused_in_words", {"errors=verbose"}, {"refuse=42x2"}, {}, "42"},
    {"another_number_refused", {"refuse-to=+12025550177:1"}, {}, {}, ""},
    {"result_lost", {}, {"lose-results=1"}, {}, "nobody knows whether"},
    {"result_lost_in_words", {"errors=verbose"}, {"lose-results=1"}, {}, "nobody knows whether"},
    // Nobody can tell the rejected copy from a refusal there.
    {"result_lost_plainly", {"errors=plain"}, {"lose-results=1"}, {}, "refused without a reason", true, true},
    {"result_late", {}, {"late-results=700"}, {}, ""},
    {"result_too_late", {}, {"late-results=15000"}, {"late-results=0"}, "nobody knows whether"},
    {"everything_twice", {"duplicate"}, {}, {}, "came again"},
    {"reversed", {}, {"reorder={}"}, {}, ""},
    {"spaced", {"delivery-gap=200"}, {}, {}, ""},
    {"delayed", {"delay=3000"}, {}, {}, ""},
    {"no_network", {}, {"registration=searching"}, {"registration=home"}, "System type: GSM: no"},
    {"denied", {}, {"registration=denied"}, {"clear"}, "System type: GSM: no"},
    {"roaming", {"registration=roaming"}, {}, {}, ""},
    {"umts", {"technology=umts"}, {}, {}, ""},
    {"lte", {"technology=lte"}, {}, {}, ""},
    {"nr", {"technology=nr"}, {}, {}, ""},
    {"technology_changes", {}, {"technology=lte"}, {"technology=gsm"}, ""},
    // What the modem does.
    {"hung_up", {}, {"hang-up=2000"}, {}, "has hung up"},
    {"hung_up_amid_sending", {"late-results=1700"}, {}, {"hang-up=2000"}, "nobody knows whether"},
    {"unplugged", {}, {"hang-up"}, {"return"}, "has hung up"},
    {"silent", {}, {"silent"}, {"silent=off"}, "no answer to"},
    {"silent_until_opened", {}, {"silent=opened"}, {}, "no answer to"},
    {"restarted_locked", {"pin=4711"}, {"restart=2000:+CPIN: SIM PIN"}, {}, "has taken its PIN"},
    {"restarted", {}, {"restart=2000:RDY"}, {}, "the modem has restarted"},
    {"restarted_amid_it", {"late-results=5000"}, {}, {"restart=2000"}, ""},
    {"restarted_in_text_mode", {"text-mode"}, {"restart=2000:^SYSSTART"}, {}, ""},
    {"answers_late", {"late-answers=700"}, {}, {}, ""},
    {"answers_too_late", {}, {"late-answers=3000"}, {"late-answers=0"}, ""},
    {"full_for_a_time", {}, {"full"}, {"full=off"}, ""},
    {"memory_full", {"storage=8", "unannounced", "memory-full"}, {}, {}, "is full"},
    {"pdu_spare_bits", {"pdu=spare-bits"}, {}, {}, ""},
    {"pdu_even_address", {"pdu=even-address"}, {}, {}, ""},
    {"pdu_no_clock", {"pdu=no-clock"}, {}, {}, ""},
    {"pdu_padded", {"pdu=padded"}, {}, {}, ""},
    {"pdu_length_over", {"pdu=length-over"}, {}, {}, ""},
    {"pdu_length_under", {"pdu=length-under"}, {}, {}, ""},
    {"little_storage", {"storage=16"}, {}, {}, ""},
    {"both_ways", {"both-ways"}, {}, {}, "came again"},
    {"unannounced", {"unannounced"}, {}, {}, ""},
    {"wrong_index", {"wrong-index"}, {}, {}, "odd announcement"},
    {"delete_fails", {}, {"fail-deletes=3"}, {}, "cannot delete"},
    {"service_codes_answered", {"ussd=nothing"}, {}, {}, ""},
    {"sim_busy", {"sim-busy=5000"}, {}, {}, "it is waited for"},
    {"sim_not_ready", {"sim-busy=5000:515"}, {}, {}, "it is waited for"},
    {"sim_busy_again", {}, {"sim-busy=3000"}, {}, "tells anew of its SIM"},
    {"pin", {"pin=4711"}, {}, {}, "has taken its PIN"},
    {"pin_after_power_cycle", {"pin=4711"}, {"hang-up=2000"}, {}, "is back"},
    // On CDMA, which takes few of the texts.
    {"cdma", {"technology=cdma"}, {}, {}, "CDMA: YES", false},
    {"cdma_refused", {"technology=cdma"}, {"refuse=38x2"}, {}, "38", false},
    {"cdma_result_lost", {"technology=cdma"}, {"lose-results=1"}, {}, "nobody knows whether", false},
    {"cdma_twice", {"technology=cdma", "duplicate"}, {}, {}, "came again", false},
    {"cdma_reversed", {"technology=cdma"}, {"reorder={}"}, {}, "", false},
    {"cdma_hung_up", {"technology=cdma"}, {"hang-up=2000"}, {}, "is back", false},
    {"cdma_directly", {"technology=cdma", "offers=direct"}, {}, {}, "delivered directly", false},
    // How it talks.
    {"echo", {"echo=always"}, {}, {}, ""},
    {"no_echo", {"echo=off"}, {}, {}, ""},
    {"numeric_results", {"numeric-results"}, {}, {}, ""},
    {"single_octets", {"single-octets"}, {}, {}, ""},
    {"chatter", {"chatter"}, {}, {}, "^RSSI"},
    {"chatter_like_a_reply", {"chatter=+CREG: 1"}, {}, {}, ""},
    {"prompt_bare", {"prompt=bare"}, {}, {}, ""},
    {"prompt_on_the_line", {"prompt=same-line"}, {}, {}, ""},
    {"prompt_without_space", {"prompt=no-space"}, {}, {}, ""},
    {"prompt_own_line", {"prompt=own-line"}, {}, {}, ""},
    {"prompt_spaced_line", {"prompt=spaced-line"}, {}, {}, ""},
    {"prompt_late", {}, {"late-prompt=3000"}, {"late-prompt=0"}, ""},
    {"prompt_too_late", {}, {"late-prompt=25000"}, {"late-prompt=0"}, "prompt"},
    // What it offers.
    {"offers_stored", {"offers=stored"}, {}, {}, "stored and announced"},
    {"offers_direct", {"offers=direct"}, {}, {}, "delivered directly"},
    {"offers_one_choice", {"offers=one"}, {}, {}, "stored and announced"},
    {"offers_short_lists", {"offers=short"}, {}, {}, "stored and announced"},
    {"offers_nothing", {"offers=none"}, {}, {}, "looked for every"},
};

#ifdef ZPD_SANITIZED
constexpr size_t sizes[] = {3};  // what the others add is time
#else
constexpr size_t sizes[] = {30, 3, 1};
#endif

class matrix : public network::network_test, public testing::WithParamInterface<row_t> {
  protected:
    void SetUp() override {
        testing::internal::CaptureStderr();
        base::advance_clock(600'000);  // what an earlier row was told is news again
        for (const auto& [name, value] : {std::pair{"submission", "10"}, {"listing-again", "10"}}) {
            ASSERT_EQ(radio::set_limit(name, value), "");
        }
        ASSERT_TRUE(network_->attach(theirs, &error_)) << error_;
        peer_ = host(theirs);
        set_fault(theirs, "delivery-gap=0");  // what is sent is there
        order(GetParam().start);
        const std::filesystem::path pin_file = phone_.home() / "pin";
        std::ofstream(pin_file) << "4711\n";
        std::filesystem::permissions(pin_file, std::filesystem::perms::owner_read);
        // None of them is a card: a plain text, a flash one, one in UCS2, and a push for another port.
        for (const uint8_t coding : {uint8_t{0x00}, uint8_t{0x10}, uint8_t{0x08}, air::data_coding_8bit}) {
            send_text(coding);
        }
        ASSERT_NO_FATAL_FAILURE(phone_.start({.tty = network_->link(ours), .pin_file = pin_file}));
    }
    void TearDown() override {
        // What could not be deleted is deleted by now.
        let_time_pass(60'000);
        const std::string log = phone_.log();
        phone_.stop();
        const std::string warnings = testing::internal::GetCapturedStderr();
        EXPECT_NE((warnings + log).find(GetParam().told), std::string::npos) << "not told: " << GetParam().told;
        expect_texts_alone();
        if (HasFailure()) {
            std::cerr << warnings;
        }
        radio::reset_limits();
    }

    void order(const std::vector<std::string>& faults) {
        for (const std::string& fault : faults) {
            set_fault(ours, fault);
        }
    }
    std::string command(host_t& host, const std::string& line) {
        host.send(line + "\r");
        std::string reply = host.read_until("OK\r\n");
        expect_ok(reply, line);
        return reply;
    }
    std::vector<air::deliver_t> listed(host_t& host, const std::string& line) {
        const std::string reply = command(host, line);
        std::vector<air::deliver_t> messages;
        for (size_t at = 0; (at = reply.find("+CMGL:", at)) != std::string::npos; ++at) {
            messages.push_back(network::delivered(reply.substr(at)));
        }
        return messages;
    }
    void submit(const air::submit_t& message) {
        network::submit(*peer_, message);
        EXPECT_NE(peer_->read_until("OK\r\n"), "");
    }

    void send_text(uint8_t coding) {
        if (!GetParam().texts) {
            return;
        }
        air::submit_t message = network::submit_to(ours, {0x06, 0x05, 0x04, 0x0B, 0x84, 0x23, 0xF0, coding});
        message.data_coding = coding;
        message.header_indicator = coding == air::data_coding_8bit;
        message.user_data.push_back(static_cast<uint8_t>(++texts_));
        message.user_data.push_back(0);
        message.user_data_length = static_cast<uint8_t>(
            message.user_data.size() * (air::alphabet_of(coding) == air::alphabet_t::gsm7 ? 8 : 7) / 7);
        left_.insert(message.user_data);
        submit(message);
    }

    /// The peer sends it, with a text in between.
    void put_in(const std::string& card, size_t datagrams) {
        for (size_t i = 0; i < datagrams; ++i) {
            submit(datagram_of(card, i, ours, serial_));
            if (i == datagrams / 2) {
                send_text(0);
            }
        }
    }
    /// What lies on the peer's modem put together; each datagram once, or its copies alike.
    std::string take_out() {
        std::map<unsigned, std::string> bodies;
        for (const air::deliver_t& datagram : listed(*peer_, "AT+CMGL=4")) {
            const auto [header, body] = air::split_user_data(datagram.user_data).value();
            EXPECT_EQ(air::destination_port(header), 9204);
            const unsigned part = radio::assembly::place_of(header).value().part;
            const std::string text(body.begin(), body.end());
            const auto [kept, is_first] = bodies.emplace(part, text);
            EXPECT_TRUE(is_first || (GetParam().copies && kept->second == text)) << part << " came twice";
        }
        std::string card;
        for (const auto& [part, body] : bodies) {
            card += body;
        }
        return card;
    }

    /// Each text is there, whatever became of the modem's settings, and no card.
    void expect_texts_alone() {
        order({"clear"});
        host_t host(network_->link(ours));
        command(host, "\x1b\rATZ");
        std::set<air::octets_t> found;
        for (const std::string memory : {"ME", "SM"}) {
            for (const air::deliver_t& text : listed(host, "ATE0+CPMS=\"" + memory + "\";+CMGL=4")) {
                found.insert(text.user_data);
            }
        }
        EXPECT_EQ(found, left_);
    }

    phone_t phone_;
    std::unique_ptr<host_t> peer_;
    std::set<air::octets_t> left_;  // the texts
    unsigned texts_ = 0;
    size_t serial_ = 0;
};

TEST_P(matrix, a_card_arrives_once) {
    const auto order_for = [&](size_t messages) {
        for (std::string fault : GetParam().before) {
            const size_t place = fault.find("{}");
            order({place == std::string::npos ? fault : fault.replace(place, 2, std::to_string(messages))});
        }
    };
    constexpr uint64_t some_seconds = 3'000;
    std::vector<std::string> received;
    for (const size_t datagrams : sizes) {
        SCOPED_TRACE(datagrams);
        order_for(1);
        const std::string card = card_of(datagrams, ++serial_);
        const uint32_t id = phone_.send(card, theirs);
        let_time_pass(GetParam().after.empty() ? 0 : some_seconds);
        order(GetParam().after);
        ASSERT_TRUE(as_time_passes([&] { return phone_.sent(id); })) << "not sent";
        EXPECT_EQ(take_out(), card);
        command(*peer_, "AT+CMGD=1,4");

        order_for(datagrams + (GetParam().texts ? 1 : 0));
        received.push_back(card_of(datagrams, ++serial_));
        put_in(received.back(), datagrams);
        let_time_pass(GetParam().after.empty() ? 0 : some_seconds);
        order(GetParam().after);
        const bool came = as_time_passes([&] { return std::ranges::is_permutation(phone_.stored(), received); });
        ASSERT_TRUE(came) << testing::PrintToString(phone_.stored());
    }
    EXPECT_THAT(phone_.stored(), testing::UnorderedElementsAreArray(received)) << "in the end";
}

TEST(matrix_rows, have_every_fault) {
    std::set<std::string, std::less<>> ordered;
    for (const row_t& row : rows) {
        for (const auto* orders : {&row.start, &row.before, &row.after}) {
            for (const std::string& order : *orders) {
                ordered.insert(order.substr(0, order.find('=')));
            }
        }
    }
    for (const network::fault_t& fault : network::fault_table()) {
        EXPECT_TRUE(ordered.contains(fault.name)) << fault.name;
    }
}

INSTANTIATE_TEST_SUITE_P(modem, matrix, testing::ValuesIn(rows), [](const auto& row) { return row.param.name; });

}  // namespace
