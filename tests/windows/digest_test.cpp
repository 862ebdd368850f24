// The digest that a driver on Windows CE takes (platform/windows-ce/digest.cpp), by the same interface of desktop
// Windows.
#include <digest.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

std::string md5_of(const std::string& octets) {
    std::string text;
    for (const unsigned octet : md5_digest(octets.data(), octets.size()).value_or(std::array<uint8_t, 16>{})) {
        char digits[3];
        (void)snprintf(digits, sizeof digits, "%02x", octet & 0xFF);
        text += digits;
    }
    return text;
}

// RFC 1321 A.5
TEST(digest_test, is_md5) {
    EXPECT_EQ(md5_of(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5_of("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(md5_of("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

}  // namespace
