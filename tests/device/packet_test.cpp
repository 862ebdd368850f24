#include "device/packet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "base/hex.h"
#include "device/device_socket.h"
#include "device/service_requests.h"

TEST(packets, come_apart_as_they_were_put_together_and_only_then) {
    using namespace device;
    const octets_t input{1, 2, 3};
    const octets_t packet = encode(request_t{0x02000004, 7, input});
    EXPECT_EQ(packet, (octets_t{4, 0, 0, 2, 7, 0, 0, 0, 1, 2, 3}));
    const auto request = decode_request(packet);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->code, 0x02000004U);
    EXPECT_EQ(request->output_capacity, 7U);
    EXPECT_TRUE(std::ranges::equal(request->input, input));
    EXPECT_FALSE(decode_request(octets_view_t(packet).first(7)));
    EXPECT_TRUE(decode_request(octets_t(request_header + max_input)));
    EXPECT_FALSE(decode_request(octets_t(request_header + max_input + 1)));

    const octets_t reply = encode(reply_t{false, 4319, {0xFF}});
    EXPECT_EQ(decode_reply(reply)->last_error, 4319U);
    EXPECT_EQ(decode_reply(reply)->output, octets_t{0xFF});
    EXPECT_FALSE(decode_reply(octets_view_t(reply).first(reply.size() - 1)));
    EXPECT_FALSE(decode_reply({}));
}

/// The octets of a line of docs/protocol.md that begins with this word.
std::string documented(const std::string& word) {
    std::ifstream document(ZPD_SOURCE "/docs/protocol.md");
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with(word + "   ")) {
            line.erase(0, word.size());
            std::erase(line, ' ');
            return line;
        }
    }
    return "no line " + word;
}

TEST(packets, are_as_the_document_shows_them) {
    using namespace device;
    using base::writer_t;
    const writer_t input = writer_t().u64(3).u32(0);
    const writer_t output = writer_t().u32(5).raw(octets_t{'h', 'e', 'l', 'l', 'o'});
    const std::string reason = "there is no card 3";
    EXPECT_EQ(documented("request"), base::to_hex(encode(request_t{inbox_octets, max_output, input.octets()})));
    EXPECT_EQ(documented("reply"), base::to_hex(encode(reply_t{true, 0, output.octets()})));
    EXPECT_EQ(documented("refusal"),
              base::to_hex(encode(reply_t{false, error_not_found, octets_t(reason.begin(), reason.end())})));
}
