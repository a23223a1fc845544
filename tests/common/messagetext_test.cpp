// How values become the text of a diagnostic message.
#include "common/messagetext.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

namespace {

template <class... Values>
std::wstring Message(const Values&... values) {
    std::wostringstream stream;
    kx::messagetext::AppendMessage(stream, "Class::Function", values...);
    return stream.str();
}

struct Grouping : std::numpunct<wchar_t> {
    wchar_t do_thousands_sep() const override { return L'.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(MessageText, WithoutValues_IsTheFunctionInParentheses) {
    EXPECT_EQ(Message(), L"(Class::Function)");
}

TEST(MessageText, ValuesOfAllKinds_FollowEachOtherWithNothingBetween) {
    EXPECT_EQ(Message("code=", -1, L" wide ", std::string("narrow"), true), L"code=-1 wide narrow1(Class::Function)");
}

TEST(MessageText, NarrowBytes_AreWidenedOneByOne) {
    EXPECT_EQ(Message("\xe9\xff"), L"\u00e9\u00ff(Class::Function)");
}

TEST(MessageText, LargeNumbers_AreNotGroupedByTheStreamsLocale) {
    std::wostringstream stream;
    stream.imbue(std::locale(std::locale::classic(), new Grouping));
    kx::messagetext::AppendMessage(stream, "F", std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(stream.str(), L"18446744073709551615(F)");
}

} // namespace
