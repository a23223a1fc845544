// File test and SHA-256 digest of the real Util.dll.
#include "sdk/util/file.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>
#include <windows.h>
// bcrypt.h needs the types of windows.h.
#include <bcrypt.h>

#include <array>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using kxtest::TempFolder;
using kxtest::WriteFileBytes;

constexpr char kSha256OfNothing[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char kSha256OfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kSha256OfMillionAs[] = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
constexpr char kSha256OfMebibyteOfAs[] = "9bc1b2a288b26af7257a36277ae3816a7d4f16e89c1e7e77d0a5c48bad62b360";
constexpr char kSha256OfCountingBytes[] = "bf9a352f4514ab20bc7c79e65d3c2074dc1f0648b55b58d21a7b9c297c1721eb";

std::string DigestOf(std::string_view bytes) {
    const TempFolder folder;
    WriteFileBytes(folder.Name("file.bin"), bytes);
    return DE::GetFileSha256Hex(folder.Name("file.bin"));
}

TEST(UtilFile, FileExists_IsTrueForAFileOnly) {
    const TempFolder folder;
    WriteFileBytes(folder.Name("file.txt"), "x");
    EXPECT_TRUE(DE::FileExists(folder.Name("file.txt")));
    EXPECT_FALSE(DE::FileExists(folder.Name("missing.txt")));
    EXPECT_FALSE(DE::FileExists(folder.Path().string()));
    EXPECT_FALSE(DE::FileExists(""));
}

TEST(UtilFile, NameThatGoesOnBehindAZero_NamesNoFile) {
    const TempFolder folder;
    WriteFileBytes(folder.Name("file.txt"), "x");
    const std::string name = folder.Name("file.txt") + std::string("\0.bak", 5);
    EXPECT_FALSE(DE::FileExists(name));
    EXPECT_EQ(DE::GetFileSha256Hex(name), "");
}

TEST(UtilFile, DigestOfKnownContents_IsTheirSha256InLowerCase) {
    EXPECT_EQ(DigestOf(""), kSha256OfNothing);
    EXPECT_EQ(DigestOf("abc"), kSha256OfAbc);
    EXPECT_EQ(DigestOf(std::string(1'000'000, 'a')), kSha256OfMillionAs);
    EXPECT_EQ(DigestOf(std::string(1'048'576, 'a')), kSha256OfMebibyteOfAs);
}

TEST(UtilFile, DigestOfAFileThatEndsWithinABlock_CoversEveryByte) {
    std::string bytes;
    for (int index = 0; index < 300'001; ++index) {
        bytes.push_back(static_cast<char>(static_cast<unsigned char>(index % 251)));
    }
    EXPECT_EQ(DigestOf(bytes), kSha256OfCountingBytes);
}

/** The digest by Windows' own library. */
std::string WindowsDigestOf(const std::vector<unsigned char>& bytes) {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    std::array<unsigned char, 32> digest{};
    BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    BCRYPT_HASH_HANDLE hash = nullptr;
    BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0);
    BCryptHashData(hash, const_cast<PUCHAR>(bytes.data()), static_cast<ULONG>(bytes.size()), 0);
    EXPECT_EQ(BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0), 0);
    BCryptDestroyHash(hash);
    BCryptCloseAlgorithmProvider(algorithm, 0);
    std::ostringstream text;
    for (const unsigned char byte : digest) {
        text << std::hex << std::setw(2) << std::setfill('0') << unsigned{byte};
    }
    return text.str();
}

// The digest's own blocks have 64 bytes, the last of which takes 55; the file is read in pieces of 256 KiB.
TEST(UtilFile, DigestOfSizesAroundTheBordersOfBlocks_IsTheOneOfWindows) {
    constexpr std::size_t kPiece = std::size_t{256} * 1024;
    for (const std::size_t border : {std::size_t{1}, std::size_t{55}, std::size_t{64}, std::size_t{119},
                                     std::size_t{128}, std::size_t{4096}, kPiece, 2 * kPiece, 5 * kPiece + 64}) {
        for (const std::size_t size : {border - 1, border, border + 1}) {
            std::vector<unsigned char> bytes(size);
            std::uint32_t random = 1;
            for (unsigned char& byte : bytes) {
                random = random * 1664525 + 1013904223;
                byte = static_cast<unsigned char>(random >> 24);
            }
            EXPECT_EQ(DigestOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()}), WindowsDigestOf(bytes))
                << size;
        }
    }
}

TEST(UtilFile, DigestOfWhatIsNoReadableFile_IsEmpty) {
    const TempFolder folder;
    EXPECT_EQ(DE::GetFileSha256Hex(folder.Name("missing.bin")), "");
    EXPECT_EQ(DE::GetFileSha256Hex(folder.Path().string()), "");
    EXPECT_EQ(DE::GetFileSha256Hex(""), "");
}

HANDLE OpenSharing(const std::string& name, DWORD access, DWORD share) {
    return CreateFileA(name.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr);
}

TEST(UtilFile, FileHeldOpenExclusively_ExistsAndHasADigestOnlyAfterwards) {
    const TempFolder folder;
    const std::string name = folder.Name("held.bin");
    WriteFileBytes(name, "abc");
    const HANDLE held = OpenSharing(name, GENERIC_READ, 0);
    EXPECT_TRUE(DE::FileExists(name));
    EXPECT_EQ(DE::GetFileSha256Hex(name), "");
    CloseHandle(held);
    EXPECT_EQ(DE::GetFileSha256Hex(name), kSha256OfAbc);
}

TEST(UtilFile, FileHeldOpenByAWriterThatShares_HasADigest) {
    const TempFolder folder;
    const std::string name = folder.Name("written.bin");
    WriteFileBytes(name, "abc");
    const HANDLE held = OpenSharing(name, GENERIC_READ | GENERIC_WRITE | DELETE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    EXPECT_EQ(DE::GetFileSha256Hex(name), kSha256OfAbc);
    CloseHandle(held);
}

// A pipe stands in for a file whose medium fails: it delivers some bytes, and then reading fails.
TEST(UtilFile, ReadThatFails_GivesNoDigestOfTheBytesBeforeIt) {
    const char name[] = "\\\\.\\pipe\\KxUtilFileTest";
    const HANDLE pipe = CreateNamedPipeA(name, PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, 4096, 4096, 0, nullptr);
    DWORD written = 0;
    std::thread writer([&] {
        ConnectNamedPipe(pipe, nullptr);
        WriteFile(pipe, "abc", 3, &written, nullptr);
        FlushFileBuffers(pipe);
        DisconnectNamedPipe(pipe);
    });
    EXPECT_EQ(DE::GetFileSha256Hex(name), "");
    writer.join();
    EXPECT_EQ(written, 3u);
    CloseHandle(pipe);
}

} // namespace
