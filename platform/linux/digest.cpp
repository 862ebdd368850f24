#include <digest.h>
#include <md5.h>

std::array<uint8_t, 16> md5_digest(const void* octets, size_t size) {
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, static_cast<const uint8_t*>(octets), size);
    std::array<uint8_t, 16> digest{};
    MD5Final(digest.data(), &context);
    return digest;
}
