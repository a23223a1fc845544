// Whether a file exists, and the SHA-256 of its bytes.
#include "sdk/util/file.h"

#include "common/win/owner.h"
#include "filereader.h"
#include "outofmemory.h"

#include <windows.h>
// bcrypt.h needs the types of windows.h.
#include <bcrypt.h>

#include <array>
#include <string_view>
#include <vector>

namespace DE {

bool FileExists(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        return false;
    }
    const DWORD attributes = GetFileAttributesA(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        kxutil::ThrowIfOutOfMemory(GetLastError());
        return false;
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

namespace {

struct AlgorithmPolicy {
    using Value = BCRYPT_ALG_HANDLE;
    static Value None() noexcept { return nullptr; }
    static void Free(Value value) noexcept { BCryptCloseAlgorithmProvider(value, 0); }
};

using Algorithm = kx::Owner<AlgorithmPolicy>;
using Hash = kx::Owner<kx::FreedBy<BCRYPT_HASH_HANDLE, &BCryptDestroyHash>>;

constexpr size_t kDigestBytes = 32;
constexpr size_t kBlockBytes = size_t{256} * 1024;

bool Succeeded(NTSTATUS status) {
    return status >= 0;
}

std::string ToHex(const std::array<unsigned char, kDigestBytes>& digest) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * digest.size());
    for (const unsigned char byte : digest) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 15]);
    }
    return text;
}

} // namespace

std::string GetFileSha256Hex(const std::string& path) {
    kxutil::FileReader file(path);
    if (!file.IsOpen()) {
        return {};
    }
    Algorithm algorithm;
    if (!Succeeded(BCryptOpenAlgorithmProvider(algorithm.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0))) {
        return {};
    }
    Hash hash;
    if (!Succeeded(BCryptCreateHash(algorithm.Get(), hash.Receive(), nullptr, 0, nullptr, 0, 0))) {
        return {};
    }
    std::vector<unsigned char> block(kBlockBytes);
    for (;;) {
        const auto count = file.Read(block);
        if (!count) {
            return {};
        }
        if (*count == 0) {
            break;
        }
        if (!Succeeded(BCryptHashData(hash.Get(), block.data(), static_cast<ULONG>(*count), 0))) {
            return {};
        }
    }
    std::array<unsigned char, kDigestBytes> digest{};
    if (!Succeeded(BCryptFinishHash(hash.Get(), digest.data(), static_cast<ULONG>(digest.size()), 0))) {
        return {};
    }
    return ToHex(digest);
}

} // namespace DE
