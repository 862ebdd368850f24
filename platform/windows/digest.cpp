#include <windows.h>
#include <wincrypt.h>

#include <digest.h>

// The provider that every Windows has, CE too. That it fails is not foreseen: the digest is then all zeros.
std::array<uint8_t, 16> md5_digest(const void* octets, size_t size) {
    std::array<uint8_t, 16> digest{};
    HCRYPTPROV provider = 0;
    if (!CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
        return digest;
    }
    HCRYPTHASH hash = 0;
    if (CryptCreateHash(provider, CALG_MD5, 0, 0, &hash)) {
        auto digest_size = static_cast<DWORD>(digest.size());
        if (!CryptHashData(hash, static_cast<const BYTE*>(octets), static_cast<DWORD>(size), 0) ||
            !CryptGetHashParam(hash, HP_HASHVAL, digest.data(), &digest_size, 0)) {
            digest.fill(0);
        }
        CryptDestroyHash(hash);
    }
    CryptReleaseContext(provider, 0);
    return digest;
}
