// The recording's file on disk: what may be created, what stays when it may not.
#include "worker/file/outputfile.h"

#include "common/win/handle.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using kxvcr::DiskFile;

class DiskFileTest : public testing::Test {
protected:
    DiskFileTest() {
        wchar_t name[MAX_PATH] = {};
        GetTempFileNameW(fs::temp_directory_path().c_str(), L"kxt", 0, name);
        folder = name;
        fs::remove(folder);
        fs::create_directory(folder);
    }
    ~DiskFileTest() override {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    static void Write(const fs::path& path, const char* text) { std::ofstream(path, std::ios::binary) << text; }
    static std::string Read(const fs::path& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    static std::span<const std::byte> Bytes(std::string_view text) { return std::as_bytes(std::span(text)); }

    fs::path folder;
};

TEST_F(DiskFileTest, NewFile_TakesBytesAtOffsetsAndIsCut) {
    const auto file = DiskFile::Create(folder / L"a.mkv");

    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->WriteAt(0, Bytes("0123456789")));
    EXPECT_TRUE(file->WriteAt(2, Bytes("xy")));
    EXPECT_TRUE(file->Truncate(6));

    EXPECT_EQ(Read(folder / L"a.mkv"), "01xy45");
}

TEST_F(DiskFileTest, ExistingFile_IsReplaced) {
    Write(folder / L"a.mkv", "a longer text from before");

    DiskFile::Create(folder / L"a.mkv")->WriteAt(0, Bytes("new"));

    EXPECT_EQ(Read(folder / L"a.mkv"), "new");
}

TEST_F(DiskFileTest, ExistingFileThatMayNotBeWritten_StaysAsItIs) {
    Write(folder / L"a.mkv", "before");
    kx::FileHandle used(
        CreateFileW((folder / L"a.mkv").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));

    EXPECT_EQ(DiskFile::Create(folder / L"a.mkv"), nullptr);

    used.Reset();
    EXPECT_EQ(Read(folder / L"a.mkv"), "before");
}

TEST_F(DiskFileTest, FolderMissing_CreatesNothing) {
    EXPECT_EQ(DiskFile::Create(folder / L"missing" / L"a.mkv"), nullptr);

    EXPECT_FALSE(fs::exists(folder / L"missing"));
}

TEST_F(DiskFileTest, NamesThatAreNoFile_AreRefused) {
    EXPECT_EQ(DiskFile::Create(folder), nullptr);
    EXPECT_EQ(DiskFile::Create(L"NUL"), nullptr);
    EXPECT_EQ(DiskFile::Create(folder / L"a?.mkv"), nullptr);
}

TEST_F(DiskFileTest, PathPastTheOrdinaryLimit_IsCreated) {
    const fs::path deep = folder / std::wstring(150, L'd');
    ASSERT_TRUE(CreateDirectoryW((LR"(\\?\)" + deep.wstring()).c_str(), nullptr));

    const auto file = DiskFile::Create(deep / (std::wstring(120, L'f') + L".mkv"));

    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->WriteAt(0, Bytes("x")));
}

// The system stores the hole before the bytes in no space, or in four gigabytes until the test ends.
TEST_F(DiskFileTest, OffsetPastFourGigabytes_IsReached) {
    constexpr std::uint64_t kOffset = (std::uint64_t{1} << 32) + 5;
    const auto file = DiskFile::Create(folder / L"a.mkv");

    EXPECT_TRUE(file->WriteAt(0, Bytes("first")));
    EXPECT_TRUE(file->WriteAt(kOffset, Bytes("second")));

    EXPECT_EQ(fs::file_size(folder / L"a.mkv"), kOffset + 6);
    EXPECT_TRUE(file->Truncate(kOffset + 3));
    EXPECT_EQ(fs::file_size(folder / L"a.mkv"), kOffset + 3);
    EXPECT_TRUE(file->Truncate(5));
    EXPECT_EQ(Read(folder / L"a.mkv"), "first");
}

TEST_F(DiskFileTest, Flush_WorksUntilTheFileIsDiscarded) {
    const auto file = DiskFile::Create(folder / L"a.mkv");
    file->WriteAt(0, Bytes("x"));

    EXPECT_TRUE(file->Flush());
    file->Discard();
    EXPECT_FALSE(file->Flush());
}

TEST_F(DiskFileTest, DiscardedFile_IsGone) {
    const auto file = DiskFile::Create(folder / L"a.mkv");
    file->WriteAt(0, Bytes("x"));

    file->Discard();

    EXPECT_FALSE(fs::exists(folder / L"a.mkv"));
}

} // namespace
