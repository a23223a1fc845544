// UTF-16 and UTF-8: whole texts both ways, and U+FFFD for what is no text.
#include "common/win/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Pair {
    std::wstring wide;
    std::string utf8;
};

TEST(Utf8, TextsOfEveryLengthOfCharacter_GoBothWays) {
    const Pair pairs[] = {
        {L"", ""},
        {L"plain", "plain"},
        {L"\u00e9", "\xc3\xa9"},
        {L"\u20ac", "\xe2\x82\xac"},
        {L"\U0001f600", "\xf0\x9f\x98\x80"},
        {std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
    };
    for (const Pair& pair : pairs) {
        EXPECT_EQ(kx::Utf8FromWide(pair.wide), pair.utf8);
        EXPECT_EQ(kx::WideFromUtf8(pair.utf8), pair.wide);
    }
}

TEST(Utf8, UnpairedSurrogate_BecomesTheReplacementCharacter) {
    EXPECT_EQ(kx::Utf8FromWide(L"a\xd800z"), "a\xef\xbf\xbdz");
}

TEST(Utf8, MalformedByte_BecomesTheReplacementCharacter) {
    EXPECT_EQ(kx::WideFromUtf8("a\xffz"), L"a\ufffdz");
}

} // namespace
