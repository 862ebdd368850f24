#include "device/packet.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "device/device_socket.h"

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
