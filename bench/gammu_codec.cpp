#include "bench/gammu_codec.h"

#include <gammu.h>

#include <cstring>

namespace gammu {

namespace {

constexpr size_t parts = 255;
constexpr size_t octets_a_part = 128;

GSM_SMSMessage received;

/// libgammu's frame has each field in a place of its own, PHONE_SMSSubmit; on the air they are one after the other, as
/// its modem driver sends them.
class tpdu_t {
  public:
    explicit tpdu_t(const unsigned char* frame) : frame_(frame) {}

    std::string_view text(size_t user_data) {
        const GSM_SMSMessageLayout& at = PHONE_SMSSubmit;
        append(at.firstbyte, 1);
        append(at.TPMR, 1);
        append(at.Number, 2 + (frame_[at.Number] + 1U) / 2);
        for (const unsigned char place : {at.TPPID, at.TPDCS, at.TPVP, at.TPUDL}) {
            append(place, 1);
        }
        append(at.Text, user_data);
        EncodeHexBin(digits_ + 2, octets_, size_);
        return {digits_, 2 + 2 * size_};
    }

  private:
    void append(size_t place, size_t count) {
        memcpy(octets_ + size_, frame_ + place, count);
        size_ += count;
    }

    const unsigned char* frame_;
    unsigned char octets_[200];
    size_t size_ = 0;
    char digits_[2 + 2 * sizeof octets_ + 1] = "00";
};

}  // namespace

bool to_texts(const std::string& card, const std::string& number, uint8_t reference, const taker_t& take) {
    static GSM_SMSMessage message;
    GSM_SetDefaultSMSData(&message);
    EncodeUnicode(message.Number, number.data(), number.size());
    message.PDU = SMS_Submit;
    message.Coding = SMS_Coding_8bit;
    message.Class = -1;
    message.UDH.Type = UDH_UserUDH;
    for (size_t i = 0; i < parts; ++i) {
        const auto part = static_cast<unsigned char>(i + 1);
        const unsigned char header[] = {11, 0, 3, reference, parts, part, 5, 4, 0x23, 0xF4, 0, 0};
        memcpy(message.UDH.Text, header, sizeof header);
        message.UDH.Length = sizeof header;
        memcpy(message.Text, card.data() + i * octets_a_part, octets_a_part);
        message.Length = octets_a_part;
        unsigned char frame[400] = {};
        int size = 0;
        if (GSM_EncodeSMSFrame(GSM_GetGlobalDebug(), &message, frame, PHONE_SMSSubmit, &size, TRUE) != ERR_NONE) {
            return false;
        }
        take(tpdu_t(frame).text(static_cast<size_t>(size) - PHONE_SMSSubmit.Text));
    }
    return true;
}

bool to_message(const std::string& text) {
    unsigned char octets[200];
    return text.size() / 2 <= sizeof octets &&
           DecodeHexBin(octets, reinterpret_cast<const unsigned char*>(text.data()), text.size()) &&
           GSM_DecodePDUFrame(GSM_GetGlobalDebug(), &received, octets, text.size() / 2, nullptr, FALSE) == ERR_NONE;
}

std::string last_body() {
    return {reinterpret_cast<const char*>(received.Text), static_cast<size_t>(received.Length)};
}

}  // namespace gammu
