// DE::Registry and AccountUtil of the real Util.dll on a throw-away registry.
#include "sdk/util/account.h"
#include "sdk/util/process.h"
#include "sdk/util/registry.h"

#include <gtest/gtest.h>

#include <windows.h>
// sddl.h needs the types of windows.h.
#include <sddl.h>

#include <array>
#include <atomic>
#include <initializer_list>
#include <thread>
#include <vector>

namespace {

constexpr wchar_t kMissing[] = L"untouched";
constexpr DWORD kAll = KEY_ALL_ACCESS;

/** An empty key of the current user for each test. */
class UtilRegistry : public testing::Test {
protected:
    UtilRegistry() : m_path(KXPROCESS::GetCurrentUserSidstr() + L"\\Software\\KxUtilTest") {
        RegDeleteTreeW(HKEY_USERS, m_path.c_str());
        RegCreateKeyExW(HKEY_USERS, m_path.c_str(), 0, nullptr, 0, kAll, nullptr, &m_key, nullptr);
    }
    ~UtilRegistry() override {
        RegCloseKey(m_key);
        RegDeleteTreeW(HKEY_USERS, m_path.c_str());
    }

    void Store(const wchar_t* name, DWORD type, const void* bytes, size_t size) {
        ASSERT_EQ(RegSetValueExW(m_key, name, 0, type, static_cast<const BYTE*>(bytes), static_cast<DWORD>(size)),
                  ERROR_SUCCESS);
    }

    /** The text read from a value, or kMissing when it cannot be read. */
    std::wstring TextOf(const wchar_t* name) {
        std::wstring text = kMissing;
        const bool isRead = DE::Registry::GetValue(HKEY_USERS, m_path, name, text, KEY_READ);
        EXPECT_EQ(isRead, text != kMissing);
        return text;
    }

    std::wstring m_path;
    HKEY m_key = nullptr;
};

TEST_F(UtilRegistry, WrittenText_IsReadBackAndStoredAsRegSzWithItsTerminator) {
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path, L"text", std::wstring(L"caf\xE9 \x4E2D"), kAll));
    EXPECT_EQ(TextOf(L"text"), L"caf\xE9 \x4E2D");
    DWORD type = 0;
    DWORD size = 0;
    RegQueryValueExW(m_key, L"text", nullptr, &type, nullptr, &size);
    EXPECT_EQ(type, DWORD{REG_SZ});
    EXPECT_EQ(size, 14u);
}

TEST_F(UtilRegistry, WrittenEmptyText_IsReadBackAsEmpty) {
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path, L"text", std::wstring(), kAll));
    EXPECT_EQ(TextOf(L"text"), L"");
}

TEST_F(UtilRegistry, WrittenNumber_IsReadBackInBothForms) {
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path, L"number", -1, kAll));
    int number = 0;
    EXPECT_TRUE(DE::Registry::GetValue(HKEY_USERS, m_path, L"number", number, kAll));
    EXPECT_EQ(number, -1);
    unsigned long bits = 0;
    EXPECT_TRUE(DE::Registry::GetValue(HKEY_USERS, m_path, L"number", bits, kAll));
    EXPECT_EQ(bits, 0xFFFFFFFFul);
}

TEST_F(UtilRegistry, SetValue_MakesTheKeyAndThoseAboveIt) {
    const std::wstring deep = m_path + L"\\one\\two";
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, deep, L"number", 7, kAll));
    int number = 0;
    EXPECT_TRUE(DE::Registry::GetValue(HKEY_USERS, deep, L"number", number, kAll));
    EXPECT_EQ(number, 7);
}

TEST_F(UtilRegistry, PathWithOneLeadingBackslash_NamesTheSameKey) {
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, L"\\" + m_path, L"text", std::wstring(L"1"), kAll));
    EXPECT_EQ(TextOf(L"text"), L"1");
    std::wstring text;
    EXPECT_TRUE(DE::Registry::GetValue(HKEY_USERS, L"\\" + m_path, L"text", text, kAll));
    EXPECT_EQ(text, L"1");
    EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, L"\\\\" + m_path, L"text", text, kAll));
}

TEST_F(UtilRegistry, TextWithoutTerminatingZero_IsReadWhole) {
    Store(L"text", REG_SZ, L"abc", 6);
    EXPECT_EQ(TextOf(L"text"), L"abc");
}

TEST_F(UtilRegistry, TextOfOddSize_LosesTheHalfCharacter) {
    Store(L"text", REG_SZ, L"abc", 5);
    EXPECT_EQ(TextOf(L"text"), L"ab");
    Store(L"text", REG_SZ, "a", 1);
    EXPECT_EQ(TextOf(L"text"), L"");
}

TEST_F(UtilRegistry, TextWithZerosInside_EndsAtTheFirst) {
    Store(L"text", REG_SZ, L"ab\0cd\0", 14);
    EXPECT_EQ(TextOf(L"text"), L"ab");
    Store(L"text", REG_SZ, nullptr, 0);
    EXPECT_EQ(TextOf(L"text"), L"");
}

TEST_F(UtilRegistry, ExpandableText_IsReadAsItStands) {
    Store(L"text", REG_EXPAND_SZ, L"%PATH%", 14);
    EXPECT_EQ(TextOf(L"text"), L"%PATH%");
}

TEST_F(UtilRegistry, LongText_IsReadWhole) {
    for (const size_t length : {127u, 128u, 129u, 100'000u}) {
        const std::wstring text(length, L'x');
        ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path, L"text", text, kAll));
        EXPECT_EQ(TextOf(L"text"), text);
    }
}

TEST_F(UtilRegistry, TextOfAnotherType_IsNotRead) {
    for (const int type : {REG_DWORD, REG_BINARY, REG_MULTI_SZ, REG_NONE, REG_QWORD}) {
        Store(L"text", static_cast<DWORD>(type), L"a", 4);
        EXPECT_EQ(TextOf(L"text"), kMissing) << type;
    }
}

TEST_F(UtilRegistry, MissingKeyOrValue_LeavesTheOutputs) {
    EXPECT_EQ(TextOf(L"missing"), kMissing);
    std::wstring text = kMissing;
    EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path + L"\\missing", L"text", text, kAll));
    EXPECT_FALSE(DE::Registry::GetValue(nullptr, m_path, L"text", text, kAll));
    EXPECT_EQ(text, kMissing);
}

TEST_F(UtilRegistry, NumberOfAnotherTypeOrSize_IsNotRead) {
    struct Case {
        DWORD type;
        size_t size;
    };
    for (const Case stored : {Case{REG_DWORD, 3}, Case{REG_DWORD, 5}, Case{REG_DWORD, 0}, Case{REG_SZ, 4},
                              Case{REG_BINARY, 4}, Case{REG_QWORD, 8}, Case{REG_DWORD_BIG_ENDIAN, 4}}) {
        Store(L"number", stored.type, L"12345678", stored.size);
        int number = 42;
        unsigned long bits = 42;
        EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path, L"number", number, kAll)) << stored.size;
        EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path, L"number", bits, kAll)) << stored.size;
        EXPECT_EQ(number, 42);
        EXPECT_EQ(bits, 42ul);
    }
}

TEST_F(UtilRegistry, RawValue_IsCopiedWithItsSizeWhateverItsType) {
    Store(L"raw", REG_MULTI_SZ, "12345", 5);
    std::array<char, 8> buffer{'.', '.', '.', '.', '.', '.', '.', '.'};
    int size = -1;
    EXPECT_TRUE(DE::Registry::GetValue(HKEY_USERS, m_path, L"raw", buffer.data(), 5, size, kAll));
    EXPECT_EQ(size, 5);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "12345...");
}

TEST_F(UtilRegistry, RawValueThatDoesNotFit_LeavesTheOutputs) {
    Store(L"raw", REG_BINARY, "12345", 5);
    std::array<char, 4> buffer{'.', '.', '.', '.'};
    int size = -1;
    EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path, L"raw", buffer.data(), 4, size, kAll));
    EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path, L"raw", buffer.data(), 0, size, kAll));
    EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path, L"raw", buffer.data(), -1, size, kAll));
    EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path, L"raw", nullptr, 5, size, kAll));
    EXPECT_EQ(size, -1);
    EXPECT_EQ(std::string(buffer.begin(), buffer.end()), "....");
}

TEST_F(UtilRegistry, ValueThatChangesSizeWhileItIsRead_IsAlwaysOneOfItsTexts) {
    const std::wstring shortText(10, L's');
    const std::wstring longText(5000, L'l');
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path, L"text", shortText, kAll));
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        while (!isDone) {
            DE::Registry::SetValue(HKEY_USERS, m_path, L"text", longText, kAll);
            DE::Registry::SetValue(HKEY_USERS, m_path, L"text", shortText, kAll);
        }
    });
    int torn = 0;
    for (int count = 0; count < 1000; ++count) {
        std::wstring text;
        const bool isRead = DE::Registry::GetValue(HKEY_USERS, m_path, L"text", text, KEY_READ);
        torn += isRead && (text == shortText || text == longText) ? 0 : 1;
    }
    isDone = true;
    writer.join();
    EXPECT_EQ(torn, 0);
}

TEST_F(UtilRegistry, AccessMask_IsTheOneThatTheKeyIsOpenedWith) {
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path, L"number", 1, KEY_SET_VALUE));
    EXPECT_FALSE(DE::Registry::SetValue(HKEY_USERS, m_path, L"number", 2, KEY_READ));
    int number = 0;
    EXPECT_FALSE(DE::Registry::GetValue(HKEY_USERS, m_path, L"number", number, KEY_SET_VALUE));
    EXPECT_TRUE(DE::Registry::GetValue(HKEY_USERS, m_path, L"number", number, KEY_QUERY_VALUE));
    EXPECT_EQ(number, 1);
}

/** Leaves the users only the right to read a key, and gives its old rights back at the end. */
class ReadOnlyKey {
public:
    explicit ReadOnlyKey(HKEY key) : m_key(key) {
        DWORD size = 0;
        RegGetKeySecurity(m_key, DACL_SECURITY_INFORMATION, nullptr, &size);
        m_before.resize(size);
        RegGetKeySecurity(m_key, DACL_SECURITY_INFORMATION, m_before.data(), &size);
        PSECURITY_DESCRIPTOR readOnly = nullptr;
        ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;KR;;;WD)", SDDL_REVISION_1, &readOnly, nullptr);
        m_isSet = RegSetKeySecurity(m_key, DACL_SECURITY_INFORMATION, readOnly) == ERROR_SUCCESS;
        LocalFree(readOnly);
    }
    ~ReadOnlyKey() { RegSetKeySecurity(m_key, DACL_SECURITY_INFORMATION, m_before.data()); }
    ReadOnlyKey(const ReadOnlyKey&) = delete;
    ReadOnlyKey& operator=(const ReadOnlyKey&) = delete;

    bool IsSet() const { return m_isSet; }

private:
    HKEY m_key;
    std::vector<unsigned char> m_before;
    bool m_isSet = false;
};

TEST_F(UtilRegistry, KeyThatTheUserMayOnlyRead_IsReadWithAReadMaskAndNeverWritten) {
    Store(L"number", REG_DWORD, "\1\0\0", 4);
    const auto read = [&](DWORD access) {
        int number = -1;
        DE::Registry::GetValue(HKEY_USERS, m_path, L"number", number, access);
        return number;
    };
    {
        const ReadOnlyKey readOnly(m_key);
        ASSERT_TRUE(readOnly.IsSet());
        EXPECT_EQ(read(KEY_ALL_ACCESS), -1);
        EXPECT_EQ(read(KEY_READ), 1);
        EXPECT_FALSE(DE::Registry::SetValue(HKEY_USERS, m_path, L"number", 2, KEY_ALL_ACCESS));
        EXPECT_FALSE(DE::Registry::SetValue(HKEY_USERS, m_path, L"number", 2, KEY_SET_VALUE));
        EXPECT_FALSE(DE::Registry().OpenKey(HKEY_USERS, m_path, false));
        EXPECT_EQ(read(KEY_READ), 1);
    }
    EXPECT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path, L"number", 2, KEY_ALL_ACCESS));
    EXPECT_EQ(read(KEY_ALL_ACCESS), 2);
}

TEST_F(UtilRegistry, NameThatGoesOnBehindAZero_IsRefused) {
    const std::wstring name(L"a\0b", 3);
    EXPECT_FALSE(DE::Registry::SetValue(HKEY_USERS, m_path, name, 1, kAll));
    EXPECT_FALSE(DE::Registry::SetValue(HKEY_USERS, m_path + name, L"a", 1, kAll));
}

TEST_F(UtilRegistry, GetKeys_ListsTheSubkeysAlone) {
    const std::wstring longName(255, L'z');
    for (const std::wstring& name : {std::wstring(L"b"), std::wstring(L"a"), longName}) {
        ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path + L"\\" + name + L"\\inner", L"number", 1, kAll));
    }
    std::vector<std::wstring> keys{L"old"};
    ASSERT_TRUE(DE::Registry::GetKeys(HKEY_USERS, m_path, keys, kAll));
    EXPECT_EQ(keys, (std::vector<std::wstring>{L"a", L"b", longName}));
}

TEST_F(UtilRegistry, GetKeysOfAKeyWithoutSubkeys_IsAnEmptyList) {
    std::vector<std::wstring> keys{L"old"};
    ASSERT_TRUE(DE::Registry::GetKeys(HKEY_USERS, m_path, keys, kAll));
    EXPECT_TRUE(keys.empty());
}

TEST_F(UtilRegistry, GetKeysOfAMissingKey_LeavesTheList) {
    std::vector<std::wstring> keys{L"old"};
    EXPECT_FALSE(DE::Registry::GetKeys(HKEY_USERS, m_path + L"\\missing", keys, kAll));
    EXPECT_EQ(keys, std::vector<std::wstring>{L"old"});
}

TEST_F(UtilRegistry, ObjectWithoutRoot_LooksUnderHkeyUsersAndDeletesAValue) {
    Store(L"AgreeFlag", REG_SZ, L"1", 4);
    DE::Registry registry;
    EXPECT_TRUE(registry.KeyExists(m_path));
    ASSERT_TRUE(registry.OpenKey(HKEY_USERS, m_path, false));
    EXPECT_TRUE(registry.DeleteValue(L"AgreeFlag"));
    EXPECT_FALSE(registry.DeleteValue(L"AgreeFlag"));
    EXPECT_EQ(TextOf(L"AgreeFlag"), kMissing);
}

TEST_F(UtilRegistry, SetRootKey_DecidesWhereKeyExistsLooks) {
    DE::Registry registry;
    registry.SetRootKey(HKEY_LOCAL_MACHINE);
    EXPECT_FALSE(registry.KeyExists(m_path));
    EXPECT_TRUE(registry.KeyExists(L"\\Software"));
    registry.SetRootKey(HKEY_USERS);
    EXPECT_TRUE(registry.KeyExists(m_path));
    EXPECT_FALSE(registry.KeyExists(m_path + L"\\missing"));
}

TEST_F(UtilRegistry, OpenKey_CreatesOnlyWhenAsked) {
    const std::wstring child = m_path + L"\\child";
    DE::Registry registry;
    EXPECT_FALSE(registry.OpenKey(HKEY_USERS, child, false));
    EXPECT_FALSE(registry.KeyExists(child));
    EXPECT_TRUE(registry.OpenKey(HKEY_USERS, child, true));
    EXPECT_TRUE(registry.KeyExists(child));
}

TEST_F(UtilRegistry, ObjectAfterAFailedOpen_HoldsNoKey) {
    Store(L"value", REG_SZ, L"1", 4);
    DE::Registry registry;
    ASSERT_TRUE(registry.OpenKey(HKEY_USERS, m_path, false));
    ASSERT_FALSE(registry.OpenKey(HKEY_USERS, m_path + L"\\missing", false));
    EXPECT_FALSE(registry.DeleteValue(L"value"));
    std::vector<std::wstring> keys{L"old"};
    EXPECT_FALSE(registry.EnumKeys(keys));
    EXPECT_EQ(keys, std::vector<std::wstring>{L"old"});
}

TEST_F(UtilRegistry, EnumKeys_ListsTheSubkeysOfTheOpenKey) {
    ASSERT_TRUE(DE::Registry::SetValue(HKEY_USERS, m_path + L"\\child", L"number", 1, kAll));
    DE::Registry registry;
    ASSERT_TRUE(registry.OpenKey(HKEY_USERS, m_path, false));
    std::vector<std::wstring> keys;
    EXPECT_TRUE(registry.EnumKeys(keys));
    EXPECT_EQ(keys, std::vector<std::wstring>{L"child"});
}

using UtilAccount = UtilRegistry;

TEST_F(UtilAccount, GetFlag_ReadsTheCurrentUsersTextWithOrWithoutLeadingBackslash) {
    Store(L"133", REG_SZ, L"1.0", 8);
    EXPECT_EQ(AccountUtil::GetFlag(L"\\Software\\KxUtilTest", "133"), "1.0");
    EXPECT_EQ(AccountUtil::GetFlag(L"Software\\KxUtilTest", "133"), "1.0");
}

TEST_F(UtilAccount, GetFlagOfWhatIsMissingOrNoText_IsEmpty) {
    Store(L"number", REG_DWORD, "1234", 4);
    EXPECT_EQ(AccountUtil::GetFlag(L"\\Software\\KxUtilTest", "number"), "");
    EXPECT_EQ(AccountUtil::GetFlag(L"\\Software\\KxUtilTest", "missing"), "");
    EXPECT_EQ(AccountUtil::GetFlag(L"\\Software\\KxUtilTest\\missing", "133"), "");
}

TEST_F(UtilAccount, CreateRegeditPath_JoinsSidAndPathWithOneBackslash) {
    EXPECT_EQ(AccountUtil::CreateRegeditPath("\\Software\\KxUtilTest"), m_path);
    EXPECT_EQ(AccountUtil::CreateRegeditPath("Software\\KxUtilTest"), m_path);
}

} // namespace
