// The user's SID, read from the token of the process.
#include "common/win/usersid.h"

#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

// The compiler may keep an imported function's address in a register for the length of one function.
std::wstring (*volatile UserSid)() = &kx::CurrentUserSid;

HMODULE OwnModule() {
    return GetModuleHandleW(nullptr);
}

TEST(CurrentUserSid, OfTheProcess_NamesTheTokensUser) {
    const std::wstring text = UserSid();
    kx::LocalBlock<void> sid;
    ASSERT_TRUE(ConvertStringSidToSidW(text.c_str(), sid.Receive()));
    std::array<wchar_t, 256> name{};
    std::array<wchar_t, 256> domain{};
    DWORD nameSize = static_cast<DWORD>(name.size());
    DWORD domainSize = static_cast<DWORD>(domain.size());
    SID_NAME_USE use{};
    ASSERT_TRUE(LookupAccountSidW(nullptr, sid.Get(), name.data(), &nameSize, domain.data(), &domainSize, &use));
    std::array<wchar_t, 256> user{};
    DWORD userSize = static_cast<DWORD>(user.size());
    ASSERT_TRUE(GetUserNameW(user.data(), &userSize));
    EXPECT_STREQ(name.data(), user.data());
}

TEST(CurrentUserSid, TokenThatDoesNotOpen_IsEmptyWithTheReason) {
    using TokenHook = kxtest::ImportHook<"ADVAPI32.dll", "OpenProcessToken", decltype(OpenProcessToken)>;
    const TokenHook hook(
        [](HANDLE, DWORD, HANDLE*) {
            SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        },
        OwnModule());
    EXPECT_EQ(UserSid(), L"");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

TEST(CurrentUserSid, TokenThatDoesNotTell_IsEmptyWithTheReason) {
    using FactsHook = kxtest::ImportHook<"ADVAPI32.dll", "GetTokenInformation", decltype(GetTokenInformation)>;
    const FactsHook hook(
        [](HANDLE, TOKEN_INFORMATION_CLASS, void*, DWORD, DWORD*) {
            SetLastError(ERROR_NO_SYSTEM_RESOURCES);
            return FALSE;
        },
        OwnModule());
    EXPECT_EQ(UserSid(), L"");
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NO_SYSTEM_RESOURCES});
}

} // namespace
