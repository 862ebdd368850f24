// clang-format off
#include <digest.h>
#include <windows.h>
#include <wincrypt.h>
// clang-format on

// By the CryptoAPI, for Windows CE has no bcrypt.
std::optional<std::array<uint8_t, 16>> md5_digest(const void* octets, size_t size) {
    HCRYPTPROV provider = 0;
    if (!CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
        return std::nullopt;
    }
    std::array<uint8_t, 16> digest{};
    auto length = static_cast<DWORD>(digest.size());
    bool done = false;
    HCRYPTHASH hash = 0;
    if (CryptCreateHash(provider, CALG_MD5, 0, 0, &hash)) {
        done = CryptHashData(hash, static_cast<const BYTE*>(octets), static_cast<DWORD>(size), 0) &&
               CryptGetHashParam(hash, HP_HASHVAL, digest.data(), &length, 0) && length == digest.size();
        CryptDestroyHash(hash);
    }
    CryptReleaseContext(provider, 0);
    return done ? std::optional(digest) : std::nullopt;
}
