// clang-format off
#include <digest.h>
#include <windows.h>
#include <bcrypt.h>
// clang-format on

// It fails where memory is short: the digest is then all zeros.
std::array<uint8_t, 16> md5_digest(const void* octets, size_t size) {
    std::array<uint8_t, 16> digest{};
    BCRYPT_ALG_HANDLE md5 = nullptr;
    if (BCryptOpenAlgorithmProvider(&md5, BCRYPT_MD5_ALGORITHM, nullptr, 0) < 0) {
        return digest;
    }
    BCRYPT_HASH_HANDLE hash = nullptr;
    if (BCryptCreateHash(md5, &hash, nullptr, 0, nullptr, 0, 0) >= 0) {
        auto* const input = static_cast<UCHAR*>(const_cast<void*>(octets));
        if (BCryptHashData(hash, input, static_cast<ULONG>(size), 0) < 0 ||
            BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0) < 0) {
            digest.fill(0);
        }
        BCryptDestroyHash(hash);
    }
    BCryptCloseAlgorithmProvider(md5, 0);
    return digest;
}
