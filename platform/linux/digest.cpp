#include <digest.h>
#include <md5.h>

#include "platform/linux/injection.h"

std::optional<std::array<uint8_t, 16>> md5_digest(const void* octets, size_t size) {
    if (platform::injected_failure(__func__)) {
        return std::nullopt;
    }
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, static_cast<const uint8_t*>(octets), size);
    std::array<uint8_t, 16> digest{};
    MD5Final(digest.data(), &context);
    return digest;
}
