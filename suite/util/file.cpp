// Whether a file exists, and the SHA-256 of its bytes.
#include "sdk/util/file.h"

#include "common/hex.h"
#include "filereader.h"
#include "outofmemory.h"

#include <botan/hash.h>
#include <windows.h>

#include <cstdint>
#include <memory>
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

constexpr size_t kBlockBytes = size_t{256} * 1024;

std::string ToHex(const std::vector<std::uint8_t>& digest) {
    std::string text;
    text.reserve(2 * digest.size());
    for (const std::uint8_t byte : digest) {
        kx::AppendHex(text, byte);
    }
    return text;
}

} // namespace

std::string GetFileSha256Hex(const std::string& path) {
    kxutil::FileReader file(path);
    if (!file.IsOpen()) {
        return {};
    }
    // The library takes the processor's own instructions for this digest where it has them.
    const std::unique_ptr<Botan::HashFunction> hash = Botan::HashFunction::create_or_throw("SHA-256");
    std::vector<unsigned char> block(kBlockBytes);
    for (;;) {
        const auto count = file.Read(block);
        if (!count) {
            return {};
        }
        if (*count == 0) {
            break;
        }
        hash->update(block.data(), *count);
    }
    std::vector<std::uint8_t> digest(hash->output_length());
    hash->final(digest.data());
    return ToHex(digest);
}

} // namespace DE
