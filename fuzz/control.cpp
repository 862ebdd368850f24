// Requests of clients that may hold anything, in sequence, of a driver whose radio answers as the input says. What must
// hold is com/zpd/zpd_ioctl.h: of each request its errors, its output within the room and of its form; of the messages,
// that what one request tells of them agrees with the others, and that in the end everything is sent and released.
#include <algorithm>
#include <set>
#include <thread>

#include "fuzz/fuzz.h"
#include "fuzz/fuzzed_phone.h"
#include "fuzz/input.h"

namespace {

const std::set<uint32_t> errors = {
    ZPD_ERROR_INVALID_FUNCTION,    ZPD_ERROR_NOT_FOUND,    ZPD_ERROR_ACCESS,        ZPD_ERROR_INVALID_DATA,
    ZPD_ERROR_INSUFFICIENT_BUFFER, ZPD_ERROR_OUT_OF_RANGE, ZPD_ERROR_LAUNCH_FAILED, ZPD_ERROR_DEVICE_NOT_AVAILABLE,
    ZPD_ERROR_TOO_MANY_DATAGRAMS};

/// What a request that is done has put out.
bool has_form(DWORD code, const std::string& output, DWORD room) {
    switch (code) {
        case ZPD_IOCTL_ACTIVATION:
        case ZPD_IOCTL_RIL_CAPACITY:
            return output.size() == 1;
        case ZPD_IOCTL_LOG_OPTIONS:
            return output.size() == 3;
        case ZPD_IOCTL_VERSION:
        case ZPD_IOCTL_SEND_MESSAGE:
        case ZPD_IOCTL_COUNT_DATAGRAMS:
        case ZPD_IOCTL_INCOMING_DIR_SIZE:
            return output.size() == 4;
        case ZPD_IOCTL_APPLICATION:
            return output.empty() || output.size() == 4 + u32_at(output, 0);
        case ZPD_IOCTL_PIM_CONTACTS_VAR:
            return output.size() == 8 + u32_at(output, 4);
        case ZPD_IOCTL_MESSAGE_STATUS:
            return output.size() == 4 + 8 * u32_at(output, 0);
        case ZPD_IOCTL_MESSAGE_LIST:
            return output.size() == 8 + 4 * u32_at(output, 4) &&
                   u32_at(output, 4) == std::min<uint32_t>(u32_at(output, 0), room / 4 - 2);
        default:
            return output.empty();
    }
}

class client_t {
  public:
    /// Nothing is launched, and the settings are as at first.
    explicit client_t(fuzzed_phone_t& phone) : phone_(phone) {
        platform::testing::fail_calls("SHLaunchApplicationForURI", ERROR_GEN_FAILURE, -1);
        phone_.log(false);
        ask(ZPD_IOCTL_APPLICATION, u8(ZPD_APPLICATION_CLEAR), 0);
        ask(ZPD_IOCTL_RIL_CAPACITY, u8(1) + u8(7), 1);
    }

    void step(input_t& input) {
        switch (input.below(8)) {
            case 0:
                return anything(input);
            case 1:
                return send(input);
            case 2:
                return of_a_message(input);
            case 3:
                return answer(input);
            case 4:
                return radio().follow(
                    {.submissions = {input.below(2) ? E_FAIL : S_OK, input.below(2) ? E_FAIL : S_OK}});
            case 5:
                return radio().system_changed(input.u32());
            case 6:
                return phone_.pass(1000 * input.octet());
            default:
                return query(input);
        }
    }

    /// The radio takes all from now on: the last card goes out behind everything that waits.
    void drain() {
        radio().follow({});
        const reply_t sent = ask(ZPD_IOCTL_SEND_MESSAGE, text("x") + u8(0) + u8(0) + text16(TEXT("+1")), 4);
        const uint32_t last = sent.error == 0 ? u32_at(sent.output, 0) : 0;
        for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
             answered_ < radio().accepted() || phone_.status(last).at(0) != ZPD_STATUS_SENT;) {
            must(std::chrono::steady_clock::now() < end);
            phone_.pass(10'000);
            confirm_all();
            std::this_thread::yield();
        }
        for (const uint32_t id : phone_.list()) {
            must(std::ranges::none_of(phone_.status(id), [](int32_t status) { return status < 2; }) ||
                 phone_.status(id).empty());
            must(phone_.close(id).error == 0);
        }
        must(phone_.list().empty());
    }

  private:
    reply_t ask(DWORD code, const std::string& octets, DWORD room) {
        std::vector<BYTE> in(octets.begin(), octets.end());
        std::vector<BYTE> out(room);
        DWORD returned = room + 1;
        SetLastError(0xBAD);
        const BOOL done = ZPD_IOControl(1, code, in.data(), static_cast<DWORD>(in.size()), out.data(), room, &returned);
        must(returned <= room);
        const reply_t reply{done ? 0 : GetLastError(), {out.begin(), out.begin() + returned}};
        must(done ? has_form(code, reply.output, room) : errors.contains(reply.error));
        const bool tells_id = code == ZPD_IOCTL_SEND_MESSAGE && reply.error == ZPD_ERROR_DEVICE_NOT_AVAILABLE;
        must(done || reply.output.size() == (tells_id ? 4 : 0));
        return reply;
    }
    void anything(input_t& input) {
        const DWORD code = input.below(16) == 0 ? input.u32() : ZPD_IOCTL_CODE(static_cast<DWORD>(input.below(15)));
        const DWORD room = input.octet();
        ask(code, input.piece(250), room);
    }
    void send(input_t& input) {
        const std::string piece = input.piece(255);
        std::string card;
        for (size_t count = input.below(12); card.size() < count * piece.size();) {
            card += piece;
        }
        const std::string card_and_flags = text(card) + u8(input.below(2)) + u8(input.below(2));
        const reply_t counted = ask(ZPD_IOCTL_COUNT_DATAGRAMS, card_and_flags, 4);
        const reply_t sent = ask(ZPD_IOCTL_SEND_MESSAGE, card_and_flags + text16(widen(input.piece(40))), 4);
        must(counted.error == sent.error || sent.error == ZPD_ERROR_DEVICE_NOT_AVAILABLE);
        if (sent.error == 0) {
            must(phone_.status(u32_at(sent.output, 0)).size() == u32_at(counted.output, 0));
        }
    }
    void of_a_message(input_t& input) {
        const std::vector<uint32_t> ids = phone_.list();
        const uint32_t id = ids.empty() || input.below(16) == 0 ? input.u32() : ids[input.below(ids.size())];
        const bool open = std::ranges::find(ids, id) != ids.end();
        const reply_t status = ask(ZPD_IOCTL_MESSAGE_STATUS, u32(id), 4096);
        must(!open || status.error == 0);
        must(ask(ZPD_IOCTL_MESSAGE_STATUS, u32(id), static_cast<DWORD>(input.octet())).error != 0 || status.error == 0);
        if (input.below(2)) {
            must(ask(ZPD_IOCTL_MESSAGE_CLOSE, u32(id), 0).error == (open ? 0 : ZPD_ERROR_OUT_OF_RANGE));
            must(std::ranges::count(phone_.list(), id) == 0);
        }
    }
    void answer(input_t& input) {
        constexpr DWORD results[] = {RIL_RESULT_OK, RIL_RESULT_ERROR, 0, 77};
        const DWORD result = results[input.below(std::size(results))];
        if (input.below(8) == 0) {
            radio().result(static_cast<HRESULT>(input.u32()), result, input.piece(8));
        } else if (answered_ < radio().accepted()) {
            radio().result(radio().submission(++answered_).request, result, input.piece(8));
        }
    }
    void query(input_t& input) {
        std::vector<uint32_t> ids = phone_.list();
        must(std::ranges::adjacent_find(ids, std::greater_equal<>()) == ids.end());
        ask(ZPD_IOCTL_MESSAGE_LIST, {}, static_cast<DWORD>(input.below(32)));
    }
    void confirm_all() {
        while (answered_ < radio().accepted()) {
            radio().confirm(++answered_);
        }
    }
    scripted_radio_t& radio() const { return phone_.radio; }

    fuzzed_phone_t& phone_;
    size_t answered_ = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static fuzzed_phone_t phone;
    phone.begin();
    client_t client(phone);
    for (input_t input(data, size); !input.empty();) {
        client.step(input);
    }
    client.drain();
    return 0;
}
