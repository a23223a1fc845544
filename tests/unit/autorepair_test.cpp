// The automatic-repair switch: the clause, then one setting.
#include "systemenvironment.h"

#include "queryfixture.h"

namespace querytest {

namespace {

const std::wstring kSid = fakeutil::kDefaultSid;
const std::wstring kSetting = kSid + L"\\SOFTWARE\\Calvora\\setting";
const std::wstring kGuide = kSid + L"\\SOFTWARE\\Calvora\\KXLoginGuide";
const std::wstring kExpiry = L"\\SOFTWARE\\Calvora\\setting\\expireLogin";

class AutoRepairTest : public QueryTest {
protected:
    static void Agree(const std::wstring& protocol) {
        fakeutil::SetRegistryValue(HKEY_USERS, kGuide, L"Protocol", protocol);
        fakeutil::SetRegistryValue(HKEY_USERS, kGuide, L"ProtocolVer", std::wstring(L"9"));
    }
    static void SetRepair(fakeutil::RegistryData data) {
        fakeutil::SetRegistryValue(HKEY_USERS, kSetting, L"AutoRepair", std::move(data));
    }
    static Call ReadRepair() { return call::ReadUnsigned(HKEY_USERS, kSetting, L"AutoRepair", kFullAccess); }
    static Call ReadMark() { return call::ReadText(HKEY_LOCAL_MACHINE, kExpiry, kSid, kFullAccess); }
    static Call ReadProtocol() { return call::ReadText(HKEY_USERS, kGuide, L"Protocol", kFullAccess); }
    static Call ReadVersion() { return call::ReadText(HKEY_USERS, kGuide, L"ProtocolVer", kReadAccess); }
};

TEST_F(AutoRepairTest, ClauseNotAccepted_OffWithoutReadingTheSetting) {
    SetRepair(1ul);
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
    EXPECT_THAT(fakeutil::RegistryCalls(), ElementsAre(ReadMark(), ReadProtocol()));
}

TEST_F(AutoRepairTest, ClauseAcceptedAndSettingOne_On) {
    Agree(L"1");
    SetRepair(1ul);
    EXPECT_TRUE(SystemEnvironment::IsAutoRepairEnabled());
    EXPECT_THAT(fakeutil::RegistryCalls(),
                ElementsAre(ReadMark(), ReadProtocol(), ReadVersion(), call::IsSupportTms(), ReadRepair()));
    EXPECT_THAT(TakeLines(), IsEmpty());
}

TEST_F(AutoRepairTest, AnyTextButZero_CountsAsAccepted) {
    SetRepair(1ul);
    for (const wchar_t* protocol : {L"2", L"00", L" 0", L"no"}) {
        Agree(protocol);
        EXPECT_TRUE(SystemEnvironment::IsAutoRepairEnabled());
    }
    Agree(L"0");
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
}

TEST_F(AutoRepairTest, SettingMissing_Off) {
    Agree(L"1");
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
    EXPECT_EQ(fakeutil::RegistryCalls().back(), ReadRepair());
}

TEST_F(AutoRepairTest, SettingOtherThanOne_Off) {
    Agree(L"1");
    for (const unsigned long value : {0ul, 2ul, 11ul, 0xFFFFFFFFul, 0x80000001ul}) {
        SetRepair(value);
        EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
    }
}

TEST_F(AutoRepairTest, SettingIsAText_Off) {
    Agree(L"1");
    SetRepair(std::wstring(L"1"));
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
}

TEST_F(AutoRepairTest, SettingRefusesFullAccess_OffAlthoughItIsOne) {
    Agree(L"1");
    SetRepair(1ul);
    fakeutil::RefuseRegistryAccess(KEY_SET_VALUE);
    EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled());
}

TEST_F(AutoRepairTest, SettingThrows_OffAndWorksAgain) {
    Agree(L"1");
    SetRepair(1ul);
    fakeutil::ThrowFrom("DE::Registry::GetValue", 4);
    EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::IsAutoRepairEnabled()));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_TRUE(SystemEnvironment::IsAutoRepairEnabled());
}

TEST_F(AutoRepairTest, AnySettingRead_WritesNothing) {
    Agree(L"1");
    SetRepair(2ul);
    SystemEnvironment::IsAutoRepairEnabled();
    for (const Call& made : fakeutil::RegistryCalls()) {
        EXPECT_NE(made.function, "DE::Registry::SetValue");
    }
}

} // namespace

} // namespace querytest
