// A file's format: what its name says, and which streams it takes.
#include "worker/file/fileformat.h"

#include "memoryfile.h"
#include "testpackets.h"

#include <gtest/gtest.h>

namespace kxtest {

namespace {

using kxvcr::CreateWriter;
using kxvcr::FileFormat;
using kxvcr::FormatOfPath;

TEST(FileFormat, EndOfAPath_SaysTheFormatInEitherCase) {
    EXPECT_EQ(FormatOfPath(LR"(C:\a\b.mp4)"), FileFormat::Mp4);
    EXPECT_EQ(FormatOfPath(L"b.WebM"), FileFormat::WebM);
    EXPECT_EQ(FormatOfPath(L"b.mp4.MKV"), FileFormat::Matroska);
}

TEST(FileFormat, EveryOtherName_HasNoFormat) {
    for (const wchar_t* path :
         {L"", L"mp4", L"a.avi", L"a.mp4.", L"a.mp4 ", L"a.mp4:b", LR"(a.mp4\b)", L"a.mp", L"webm"}) {
        EXPECT_EQ(FormatOfPath(path), std::nullopt) << path;
    }
}

TEST(FileFormat, RowsOfTheTable_StandInTheOrderOfTheFormats) {
    for (const kxvcr::FileFormatRow& row : kxvcr::kFileFormats) {
        EXPECT_EQ(&kxvcr::RowOf(row.format), &row);
    }
}

TEST(FileFormat, Writer_TakesTheFormatsOwnCodecsAlone) {
    MemoryFile disk;

    EXPECT_NE(CreateWriter(FileFormat::Mp4, disk, H264(Aac()), {}), nullptr);
    EXPECT_NE(CreateWriter(FileFormat::WebM, disk, Vp9(Opus()), {}), nullptr);
    EXPECT_NE(CreateWriter(FileFormat::Matroska, disk, H264(Aac()), {}), nullptr);
    EXPECT_EQ(CreateWriter(FileFormat::Mp4, disk, Vp9(), {}), nullptr);
    EXPECT_EQ(CreateWriter(FileFormat::Mp4, disk, H264(Opus()), {}), nullptr);
    EXPECT_EQ(CreateWriter(FileFormat::WebM, disk, H264(), {}), nullptr);
    EXPECT_EQ(CreateWriter(FileFormat::Matroska, disk, Vp9(), {}), nullptr);
}

} // namespace

} // namespace kxtest
