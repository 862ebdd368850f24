// What datagrams cost between the driver's tables and the modem's hexadecimal text, beside libgammu doing the same:
// read the rows of one run against each other. Each of ours goes the way that the driver and the radio go, without
// their queues and threads.
#include <benchmark/benchmark.h>
#include <ril.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "air/tpdu.h"
#include "base/hex.h"
#include "bench/gammu_codec.h"
#include "bench/idle_radio.h"
#include "bench/set_up.h"
#include "com/sms/sms.h"
#include "com/zpd/daemon/datagram_coding.h"
#include "com/zpd/main.h"
#include "com/zpd/zpd_ioctl.h"
#include "platform/linux/home.h"
#include "radio/ril_message.h"

namespace {

using texts_t = std::vector<std::string>;

constexpr size_t parts = max_datagrams;
constexpr size_t octets_a_part = ZPD_CARD_MAX_SHORT_REFERENCE / parts;
constexpr uint8_t reference = 0x5A;
constexpr char number[] = "+12025550199";

std::string largest_card() {
    std::string card = "BEGIN:VCARD\r\nVERSION:2.1\r\nN:Placeholder;Ann\r\nNOTE:";
    const std::string end = "\r\nEND:VCARD\r\n";
    while (card.size() + end.size() < parts * octets_a_part) {
        card += static_cast<char>(' ' + card.size() % 90);
    }
    return card + end;
}

// From a card to the texts that AT+CMGS sends: the service centre of the SIM, "00", and the SMS-SUBMIT.

bool to_texts(const octet_string_t& card, const wide_string_t& phone, const gammu::taker_t& take) {
    std::vector<uint32_t> chunks;
    if (!sms_split_chunks(card, false, false, 0, chunks)) {
        return false;
    }
    message_t message(reference, phone, card);
    datagram_header_t header(reference, chunks.size(), false);
    uint32_t offset = 0;
    for (size_t i = 0; i < chunks.size(); ++i) {
        const auto* datagram = new datagram_t(message, static_cast<uint8_t>(i), header.encoded(i),
                                              octet_view_t(message.card).substr(offset, chunks[i]), message.phone);
        offset += chunks[i];
        RILMESSAGE ril_message;
        if (!fill_gsm_message(*datagram, ril_message)) {
            return false;
        }
        const std::optional<radio::submission_t> submission = radio::submission_of(ril_message);
        const std::optional<radio::entry_t> entry =
            submission ? radio::entry_of(*submission, static_cast<uint16_t>(i), false) : std::nullopt;
        if (!entry) {
            return false;
        }
        take(entry->digits);
    }
    return true;
}

/// The length of the user data, and the user data.
std::string_view user_data_of(const std::string& text) {
    constexpr size_t digits = 2 * (1 + 12 + octets_a_part);
    return std::string_view(text).substr(text.size() - std::min(digits, text.size()));
}

void check_texts(const std::string& card, const wide_string_t& phone) {
    texts_t ours;
    texts_t theirs;
    const auto keep = [](texts_t& texts) { return [&texts](std::string_view text) { texts.emplace_back(text); }; };
    require(to_texts(card, phone, keep(ours)) && gammu::to_texts(card, number, reference, keep(theirs))
                ? ""
                : "a card is not encoded");
    require(ours.size() == parts && std::ranges::equal(ours, theirs, {}, user_data_of, user_data_of)
                ? ""
                : "libgammu's datagrams hold other octets");
}

void card_to_texts(benchmark::State& state) {
    const std::string card = largest_card();
    const wide_string_t phone = widen(number);
    check_texts(card, phone);
    while (state.KeepRunning()) {
        to_texts(card, phone, [](std::string_view text) { benchmark::DoNotOptimize(text); });
    }
}

void card_to_texts_by_gammu(benchmark::State& state) {
    const std::string card = largest_card();
    while (state.KeepRunning()) {
        gammu::to_texts(card, number, reference, [](std::string_view text) { benchmark::DoNotOptimize(text); });
    }
}

// From the text of an SMS-DELIVER to the driver's table.

/// The driver in a home of its own.
class driver_t {
  public:
    driver_t() : home_(new_folder()) {
        require(platform::set_home(home_));
        ZPD_Init(nullptr, nullptr);
    }
    ~driver_t() {
        ZPD_Deinit(1);
        std::filesystem::remove_all(home_);
    }
    driver_t(const driver_t&) = delete;
    driver_t& operator=(const driver_t&) = delete;

    void activate(bool on) {
        BYTE input[] = {1, static_cast<BYTE>(on ? 1 : 0)};
        BYTE output[1];
        DWORD returned = 0;
        const BOOL done = ZPD_IOControl(1, ZPD_IOCTL_ACTIVATION, input, sizeof input, output, sizeof output, &returned);
        require(done != FALSE ? "" : "the driver is not activated");
    }
    /// The only card that was stored, or nothing.
    [[nodiscard]] std::string stored() const {
        std::filesystem::path folder = home_;
        for (const char* name : {ZPD_INCOMING_DIRECTORY}) {
            folder /= name;
        }
        std::string content;
        for (const auto& file : std::filesystem::directory_iterator(folder)) {
            std::ifstream stream(file.path(), std::ios::binary);
            content.append(std::istreambuf_iterator<char>(stream), {});
        }
        return content.substr(std::min(content.find(ZPD_STORED_AFTER_SENDER), content.size() - 1) + 1);
    }

  private:
    std::filesystem::path home_;
};

texts_t delivered(const std::string& card) {
    texts_t texts;
    datagram_header_t headers(reference, parts, false);
    for (size_t i = 0; i < parts; ++i) {
        air::deliver_t deliver;
        deliver.originator = air::address_from_number(number).value();
        deliver.data_coding = air::data_coding_8bit;
        deliver.service_centre_time = {.year = 26, .month = 3, .day = 5, .hour = 12, .minute = 30};
        deliver.header_indicator = true;
        const octet_string_t header = headers.encoded(i);
        const auto* body = reinterpret_cast<const uint8_t*>(card.data()) + i * octets_a_part;
        deliver.user_data =
            air::join_user_data({reinterpret_cast<const uint8_t*>(header.data()) + 1, header.size() - 1},
                                {body, octets_a_part})
                .value();
        deliver.user_data_length = static_cast<uint8_t>(deliver.user_data.size());
        texts.push_back(base::to_hex(air::encode(deliver).value()));
    }
    return texts;
}

bool to_table(const std::string& text) {
    const std::optional<air::octets_t> octets = base::from_hex(text);
    RILMESSAGE message;
    if (!octets || !radio::fill_card_message(radio::technology_t::gsm, *octets, message)) {
        return false;
    }
    notify(RIL_NOTIFY_MESSAGE, &message, sizeof message, 0);
    return true;
}

void check_table(driver_t& driver, const std::string& card, const texts_t& texts) {
    driver.activate(true);
    std::string theirs;
    for (const std::string& text : texts) {
        require(to_table(text) && gammu::to_message(text) ? "" : "a datagram is not decoded");
        theirs += gammu::last_body();
    }
    require(driver.stored() == card && theirs == card ? "" : "the datagrams make another card");
    driver.activate(false);
}

/// The datagrams of one card, over and over: each time it is whole the table is empty again, for the driver that is not
/// activated drops it.
void text_to_table(benchmark::State& state) {
    driver_t driver;
    const std::string card = largest_card();
    const texts_t texts = delivered(card);
    check_table(driver, card, texts);
    for (size_t next = 0; state.KeepRunning(); next = (next + 1) % texts.size()) {
        benchmark::DoNotOptimize(to_table(texts[next]));
    }
}

void text_to_message_by_gammu(benchmark::State& state) {
    const texts_t texts = delivered(largest_card());
    for (size_t next = 0; state.KeepRunning(); next = (next + 1) % texts.size()) {
        benchmark::DoNotOptimize(gammu::to_message(texts[next]));
    }
}

BENCHMARK(card_to_texts);
BENCHMARK(card_to_texts_by_gammu);
BENCHMARK(text_to_table);
BENCHMARK(text_to_message_by_gammu);

}  // namespace

BENCHMARK_MAIN();
