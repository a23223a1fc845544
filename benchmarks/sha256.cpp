// A file's digest with nothing around it: read a block, hash a block.
#include "benchmarks/sha256.h"

#include "benchmarks/pairs.h"
#include "common/win/handle.h"

#include <botan/hash.h>
#include <windows.h>
// bcrypt.h needs the types of windows.h.
#include <bcrypt.h>

#include <functional>
#include <memory>
#include <span>

namespace bench {

namespace {

constexpr std::size_t kBlockBytes = std::size_t{256} * 1024;

bool ForEachBlock(const std::wstring& path, const std::function<void(std::span<const std::uint8_t>)>& take) {
    const kx::FileHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                          FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file) {
        return false;
    }
    std::vector<std::uint8_t> block(kBlockBytes);
    DWORD count = 0;
    while (ReadFile(file.Get(), block.data(), static_cast<DWORD>(block.size()), &count, nullptr) && count != 0) {
        take(std::span(block).first(count));
    }
    return true;
}

} // namespace

std::vector<std::uint8_t> Sha256OfFile(const std::wstring& path) {
    const std::unique_ptr<Botan::HashFunction> hash = Botan::HashFunction::create_or_throw("SHA-256");
    std::vector<std::uint8_t> digest;
    if (ForEachBlock(path, [&](std::span<const std::uint8_t> block) { hash->update(block.data(), block.size()); })) {
        digest.resize(hash->output_length());
        hash->final(digest.data());
    }
    return digest;
}

std::vector<std::uint8_t> Sha256OfFileByWindows(const std::wstring& path) {
    constexpr std::size_t kDigestBytes = 32;
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    Require(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0) >= 0 &&
                BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0) >= 0,
            "Windows has no SHA-256");
    std::vector<std::uint8_t> digest;
    if (ForEachBlock(path, [&](std::span<const std::uint8_t> block) {
            BCryptHashData(hash, const_cast<PUCHAR>(block.data()), static_cast<ULONG>(block.size()), 0);
        })) {
        digest.resize(kDigestBytes);
        BCryptFinishHash(hash, digest.data(), kDigestBytes, 0);
    }
    BCryptDestroyHash(hash);
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return digest;
}

} // namespace bench
