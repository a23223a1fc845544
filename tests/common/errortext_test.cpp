// The system's sentences for its codes.
#include "common/win/errortext.h"

#include <gtest/gtest.h>

namespace {

TEST(SystemErrorText, KnownCode_IsTheSentenceWithoutStopAndLineEnd) {
    const std::wstring text = kx::SystemErrorText(ERROR_FILE_NOT_FOUND);
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.find_first_of(L"\r\n"), std::wstring::npos);
    EXPECT_NE(text.back(), L'.');
    EXPECT_NE(text.back(), L' ');
}

TEST(SystemErrorText, DifferentCodes_HaveDifferentSentences) {
    EXPECT_NE(kx::SystemErrorText(ERROR_FILE_NOT_FOUND), kx::SystemErrorText(ERROR_ACCESS_DENIED));
}

// Bit 29 marks codes that no system function sets.
TEST(SystemErrorText, CodeOfAnApplication_IsEmpty) {
    EXPECT_EQ(kx::SystemErrorText(0x20000001), L"");
}

} // namespace
