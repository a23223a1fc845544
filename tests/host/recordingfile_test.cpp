// The recording's file as the host sees it, and what its name and an older file say.
#include "host/recordingfile.h"

#include "host/record.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

namespace kxrecord {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;
constexpr std::uint64_t kGibibyte = std::uint64_t{1} << 30;

TEST(DiskWarning, LessThanTheEndNeeds_IsLowFromTheFirstMoment) {
    EXPECT_TRUE(IsDiskLow(16 * kMebibyte - 1, 0, milliseconds(0)));
    EXPECT_FALSE(IsDiskLow(16 * kMebibyte, 0, milliseconds(0)));
}

TEST(DiskWarning, RoomForLessThanHalfAMinute_IsLow) {
    // 10 MiB a second: half a minute takes 300 MiB.
    EXPECT_TRUE(IsDiskLow(299 * kMebibyte, 100 * kMebibyte, milliseconds(10000)));
    EXPECT_FALSE(IsDiskLow(301 * kMebibyte, 100 * kMebibyte, milliseconds(10000)));
}

TEST(DiskWarning, RateOfTheFirstTwoSeconds_DoesNotCount) {
    EXPECT_FALSE(IsDiskLow(kGibibyte, 10 * kGibibyte, milliseconds(1999)));
    EXPECT_TRUE(IsDiskLow(kGibibyte, 10 * kGibibyte, milliseconds(2000)));
}

TEST(FileName, ItsEnding_NamesTheFormatInWhateverCase) {
    for (const wchar_t* const name : {L"a.mp4", L"a.MP4", L"C:\\x y\\a.webm", L"a.WebM", L".mkv", L"a.b.Mkv"}) {
        EXPECT_TRUE(NamesAFormat(name)) << name;
    }
    for (const wchar_t* const name : {L"", L"mp4", L"a.avi", L"a.mp4 ", L"a.mp4.txt", L"amkv", L"a."}) {
        EXPECT_FALSE(NamesAFormat(name)) << name;
    }
    EXPECT_TRUE(NamesWebM(L"a.WEBM"));
    EXPECT_FALSE(NamesWebM(L"a.mp4"));
}

struct ExistingFile : testing::Test {
    Existing With(const std::string& content) const {
        kxtest::WriteFileBytes(path, content);
        return WhatExists(path.wstring());
    }

    kxtest::TempFolder folder;
    std::filesystem::path path = folder.Path() / L"existing.mp4";
};

TEST_F(ExistingFile, None_IsNothing) {
    EXPECT_EQ(WhatExists(path.wstring()), Existing::Nothing);
}

TEST_F(ExistingFile, MovieAndMatroskaAndEmptyFiles_AreRecordings) {
    EXPECT_EQ(With(std::string("\0\0\0\x1c"
                               "ftypisom",
                               12)),
              Existing::Recording);
    EXPECT_EQ(With("\x1a\x45\xdf\xa3\x01\x00"), Existing::Recording);
    EXPECT_EQ(With(""), Existing::Recording);
}

TEST_F(ExistingFile, AnythingElse_IsNone) {
    EXPECT_EQ(With("ftyp"), Existing::Other);
    EXPECT_EQ(With("My diary"), Existing::Other);
    EXPECT_EQ(WhatExists(path.parent_path().wstring()), Existing::Folder);
}

} // namespace
} // namespace kxrecord
