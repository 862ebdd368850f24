// clang-format off
#include <digest.h>
#include <windows.h>
#include <bcrypt.h>
// clang-format on

std::optional<std::array<uint8_t, 16>> md5_digest(const void* octets, size_t size) {
    BCRYPT_ALG_HANDLE md5 = nullptr;
    if (BCryptOpenAlgorithmProvider(&md5, BCRYPT_MD5_ALGORITHM, nullptr, 0) < 0) {
        return std::nullopt;
    }
    std::array<uint8_t, 16> digest{};
    bool done = false;
    BCRYPT_HASH_HANDLE hash = nullptr;
    if (BCryptCreateHash(md5, &hash, nullptr, 0, nullptr, 0, 0) >= 0) {
        auto* const input = static_cast<UCHAR*>(const_cast<void*>(octets));
        done = BCryptHashData(hash, input, static_cast<ULONG>(size), 0) >= 0 &&
               BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0) >= 0;
        BCryptDestroyHash(hash);
    }
    BCryptCloseAlgorithmProvider(md5, 0);
    return done ? std::optional(digest) : std::nullopt;
}
