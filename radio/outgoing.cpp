#include "radio/observer.h"

namespace radio {

outgoing_t outgoing_of(const submission_t& submission) {
    outgoing_t datagram;
    const auto take = [&](bool has_header, const air::octets_t& user_data) {
        const std::optional<air::user_data_parts_t> parts =
            has_header ? air::split_user_data(user_data) : air::user_data_parts_t{{}, user_data};
        if (parts) {
            datagram.place = assembly::place_of(parts->header).value_or(assembly::place_t{});
            datagram.body = air::octets_t(parts->body.begin(), parts->body.end());
        }
    };
    if (const auto* gsm = std::get_if<air::submit_t>(&submission.message); gsm != nullptr) {
        datagram.number = air::number_from_address(gsm->destination);
        take(gsm->header_indicator, gsm->user_data);
    } else if (const auto* cdma = std::get_if<air::cdma::message_t>(&submission.message);
               cdma != nullptr && cdma->user_data) {
        datagram.number = air::number_from_address(cdma->address);
        take(cdma->header_indicator, cdma->user_data->characters);
    }
    return datagram;
}

}  // namespace radio
