// Product queries of the real Util.dll. Its profile lies beside the library, so each case runs in a child process
// with a copy of the library in a folder of its own.
#include "sdk/util/account.h"
#include "sdk/util/productadapt.h"
#include "sdk/util/softshelf.h"
#include "support/childprocess.h"
#include "support/hostfolder.h"
#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>

namespace ProductAdapt {

namespace {

using Getter = int (ProductFeature::*)(bool&) const;
constexpr Getter kGetters[] = {
    &ProductFeature::GetFingerprintStatus,
    &ProductFeature::GetTriFingerSnipperStatus,
    &ProductFeature::GetWifiGpioStatus,
    &ProductFeature::GetWifiBiosRepairStatus,
    &ProductFeature::GetBtGpioStatus,
    &ProductFeature::GetCpuPowerStatus,
    &ProductFeature::GetKeyboardLightStatus,
    &ProductFeature::GetEnergyStarStatus,
    &ProductFeature::GetSQGDataStatus,
    &ProductFeature::GetSupportTimeBackStatus,
    &ProductFeature::GetSupportVrAssisantStatus,
    &ProductFeature::GetSupportLiveBroadcast,
    &ProductFeature::GetSupportOfficeCheck,
    &ProductFeature::GetSupportIntegratedGraphics,
    &ProductFeature::GetSupportNpsPopStatus,
};

// Every answer on one line; a question mark stands for a feature whose flag the getter left alone.
void PrintAnswers() {
    const MachineType& machine = MachineType::GetInstance();
    std::string name = "?";
    const int nameResult = machine.GetProductName(name);
    std::printf("name %d %s, index %d, features ", nameResult, name.c_str(), machine.GetProductIndex());
    for (const Getter getter : kGetters) {
        bool whenSet = true;
        bool whenClear = false;
        (ProductFeature::GetInstance().*getter)(whenSet);
        const int result = (ProductFeature::GetInstance().*getter)(whenClear);
        std::printf("%d%c", result, whenSet != whenClear ? '?' : whenSet ? '+' : '-');
    }
    PromoteParamInfo info{7, "?", "?", 7};
    const int infoResult = machine.GetPromoteParamInfo("default", info);
    std::printf(", promote %d %d %s %s %d, plug-in %d, agreement %d", infoResult, info.id, info.productName.c_str(),
                info.channel.c_str(), info.flags, ZLKSoftShelf::GetInstance()->IsSupportPlugin("SynergyPYP"),
                AccountUtil::IsSupportTms());
}
const kxtest::ChildScenario kPrintAnswers("product", PrintAnswers);

const kxtest::ChildScenario kWithoutModule("productnomodule", [] {
    const kxtest::ImportHook<"KERNEL32.dll", "GetModuleHandleExW", decltype(GetModuleHandleExW)> hook(
        [](auto&&...) { return FALSE; }, GetModuleHandleW(L"Util.dll"));
    PrintAnswers();
});
const kxtest::ChildScenario kWithoutPath("productnopath", [] {
    const kxtest::ImportHook<"KERNEL32.dll", "GetModuleFileNameW", decltype(GetModuleFileNameW)> hook(
        [](auto&&...) { return DWORD{0}; }, GetModuleHandleW(L"Util.dll"));
    PrintAnswers();
});

constexpr char kUnknownProfile[] = "name 1 ?, index -1, features 1?1?1?1?1?1?1?1?1?1?1?1?1?1?1?, "
                                   "promote 1 7 ? ? 7, plug-in 0, agreement 0";
constexpr char kNothingListed[] = "name 2 ?, index -1, features 2?2?2?2?2?2?2?2?2?2?2?2?2?2?2?, "
                                  "promote 2 7 ? ? 7, plug-in 0, agreement 0";

/** A folder with a copy of the library. */
class UtilProduct : public testing::Test {
protected:
    UtilProduct() {
        std::filesystem::copy_file(kxtest::OwnFolder() / "Util.dll", m_folder.Path() / "Util.dll");
        std::filesystem::create_directory(m_folder.Path() / "config");
    }

    void SaveProfile(std::string_view text) { kxtest::WriteFileBytes(Profile(), text); }
    std::filesystem::path Profile() const { return m_folder.Path() / "config" / "ProductProfile.xml"; }
    std::string Answers(const char* scenario = "product") const {
        return kxtest::RunChildIn(m_folder.Path(), scenario).output;
    }

    kxtest::TempFolder m_folder;
};

TEST_F(UtilProduct, SampleProfile_AnswersEveryQuery) {
    std::filesystem::copy_file(kxtest::OwnFolder() / "ProductProfile.sample.xml", Profile());
    EXPECT_EQ(Answers(), "name 0 SampleBook 14, index 4, features 0+0+0-0-0-0+0+0+0-0+0-0+0-0+0-, "
                         "promote 0 1 SampleBook retail 0, plug-in 1, agreement 1");
}

TEST_F(UtilProduct, MissingProfile_IsUnknown) {
    EXPECT_EQ(Answers(), kUnknownProfile);
}

TEST_F(UtilProduct, LibraryThatDoesNotKnowWhereItLies_IsUnknown) {
    std::filesystem::copy_file(kxtest::OwnFolder() / "ProductProfile.sample.xml", Profile());
    EXPECT_EQ(Answers("productnomodule"), kUnknownProfile);
    EXPECT_EQ(Answers("productnopath"), kUnknownProfile);
}

TEST_F(UtilProduct, DamagedProfile_IsUnknown) {
    SaveProfile("<ProductProfile><Product name='x' index='1'/>");
    EXPECT_EQ(Answers(), kUnknownProfile);
}

TEST_F(UtilProduct, ProfileThatSaysNothing_HasNothingListed) {
    SaveProfile("<ProductProfile/>");
    EXPECT_EQ(Answers(), kNothingListed);
}

TEST_F(UtilProduct, EntriesInAnotherForm_CountAsNotListed) {
    SaveProfile("<ProductProfile><Product name='' index='4x'/><Features><Feature name='Fingerprint' present='1'/>"
                "<Feature name='fingerprint' present='true'/></Features><PromoteParams><PromoteParam key='default'/>"
                "<PromoteParam key='other' productName='x'/></PromoteParams><Plugins><Plugin name='synergypyp'/>"
                "</Plugins><AgreementService inUse='yes'/></ProductProfile>");
    EXPECT_EQ(Answers(), kNothingListed);
}

TEST_F(UtilProduct, PromoteParametersThatAreLeftOut_AreZeroAndEmpty) {
    SaveProfile("<p><PromoteParams><PromoteParam key='x' productName='no'/>"
                "<PromoteParam key='default' productName='yes' flags='-3'/></PromoteParams></p>");
    EXPECT_EQ(Answers(), "name 2 ?, index -1, features 2?2?2?2?2?2?2?2?2?2?2?2?2?2?2?, "
                         "promote 0 0 yes  -3, plug-in 0, agreement 0");
}

} // namespace

} // namespace ProductAdapt
