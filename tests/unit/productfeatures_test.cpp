// The fifteen product feature queries: one behaviour, told by a table.
#include "systemenvironment.h"

#include "queryfixture.h"

#include <optional>
#include <ostream>

namespace querytest {

namespace {

struct Query {
    const char* name;
    bool (*ask)();
    const char* getter;
    const wchar_t* beforeCode;
    const wchar_t* beforeFlag;
};
std::ostream& operator<<(std::ostream& out, const Query& query) {
    return out << query.name;
}

const Query kQueries[] = {
    {"IsSupportFingerPrint", &SystemEnvironment::IsSupportFingerPrint, "GetFingerprintStatus", L"result=",
     L"IsSupportFingerPrint="},
    {"IsSupportTrifingerSnipper", &SystemEnvironment::IsSupportTrifingerSnipper, "GetTriFingerSnipperStatus",
     L"result=", L"IsSupportTrifingerSnipper="},
    {"IsSupportWifiGpio", &SystemEnvironment::IsSupportWifiGpio, "GetWifiGpioStatus", L"result=",
     L"IsSupportWifiGpio="},
    {"IsSupportWifiBiosRepair", &SystemEnvironment::IsSupportWifiBiosRepair, "GetWifiBiosRepairStatus", L"result=",
     L"IsSupportWifiBiosRepair="},
    {"IsSupportBtGpio", &SystemEnvironment::IsSupportBtGpio, "GetBtGpioStatus", L"result=", L"IsSupportBtGpio="},
    {"IsSupportCPUPower", &SystemEnvironment::IsSupportCPUPower, "GetCpuPowerStatus", L"result=",
     L"IsSupportCPUPower="},
    {"IsSupportKeyboardLight", &SystemEnvironment::IsSupportKeyboardLight, "GetKeyboardLightStatus", L"result=",
     L"IsSupportKeyboardLight="},
    {"IsSupportEnergyStar", &SystemEnvironment::IsSupportEnergyStar, "GetEnergyStarStatus", L"result=",
     L"IsSupportEnergyStar="},
    {"IsSupportSQGData", &SystemEnvironment::IsSupportSQGData, "GetSQGDataStatus", L"result = ",
     L"; IsSupportLocalManual ="},
    {"IsSupportTimeBack", &SystemEnvironment::IsSupportTimeBack, "GetSupportTimeBackStatus", L"result=",
     L",GetSupportTimeBackStatus="},
    {"IsSupportVrAssisant", &SystemEnvironment::IsSupportVrAssisant, "GetSupportVrAssisantStatus", L"result=",
     L",GetSupportVrAssisantStatus="},
    {"IsSupportLiveBroadcast", &SystemEnvironment::IsSupportLiveBroadcast, "GetSupportLiveBroadcast", L"result=",
     L",GetSupportLiveBroadcast="},
    {"IsSupportOfficeCheck", &SystemEnvironment::IsSupportOfficeCheck, "GetSupportOfficeCheck", L"result=",
     L",GetSupportOfficeCheck="},
    {"IsSupportIntegratedGraphics", &SystemEnvironment::IsSupportIntegratedGraphics, "GetSupportIntegratedGraphics",
     L"result=", L",GetSupportIntegratedGraphics="},
    {"IsSupportNpsPop", &SystemEnvironment::IsSupportNpsPop, "GetSupportNpsPopStatus", L"result=",
     L",GetSupportNpsPopStatus="},
};

const std::string kTimeBackPlugin = "SynergyPYP";

class FeatureTest : public QueryTest, public testing::WithParamInterface<Query> {
protected:
    FeatureTest() { fakeutil::SetSupportedPlugins({kTimeBackPlugin}); }

    static void Answer(int code, std::optional<bool> flag) {
        fakeutil::SetProductFeature(GetParam().getter, {code, flag});
    }
    static std::wstring Line(int code, bool flag) {
        const std::string name = GetParam().name;
        return GetParam().beforeCode + std::to_wstring(code) + GetParam().beforeFlag + (flag ? L"1" : L"0") +
               L"(SystemEnvironment::" + std::wstring(name.begin(), name.end()) + L")\n";
    }
    // The getter, and for the time-back query with its feature the plug-in.
    static std::vector<Call> CallsFor(bool flag) {
        std::vector<Call> calls{{std::string("ProductAdapt::ProductFeature::") + GetParam().getter, ""}};
        if (flag && std::string(GetParam().name) == "IsSupportTimeBack") {
            calls.push_back({"ZLKSoftShelf::IsSupportPlugin", kTimeBackPlugin});
        }
        return calls;
    }
};

INSTANTIATE_TEST_SUITE_P(Queries, FeatureTest, testing::ValuesIn(kQueries),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(FeatureTest, EachCodeAndFlag_FlagIsTheAnswerAndACodeIsReported) {
    for (const int code : {0, 1, 3, -1, 2147483647, -2147483647 - 1}) {
        for (const std::optional<bool> flag : {std::optional<bool>(), std::optional(false), std::optional(true)}) {
            SCOPED_TRACE(testing::Message() << code << " and " << testing::PrintToString(flag));
            Restart();
            fakeutil::SetSupportedPlugins({kTimeBackPlugin});
            Answer(code, flag);
            const bool expected = flag.value_or(false);
            EXPECT_EQ(GetParam().ask(), expected);
            EXPECT_EQ(fakeutil::Calls(), CallsFor(expected));
            EXPECT_EQ(TakeLines(),
                      code == 0 ? std::vector<std::wstring>() : std::vector<std::wstring>{Line(code, expected)});
        }
    }
}

TEST_P(FeatureTest, OtherFeatures_DoNotDecide) {
    for (const Query& query : kQueries) {
        fakeutil::SetProductFeature(query.getter, {0, true});
    }
    Answer(0, false);
    EXPECT_FALSE(GetParam().ask());
}

TEST_P(FeatureTest, GetterThrows_FalseWithoutALineAndTheNextWorks) {
    Answer(0, true);
    fakeutil::ThrowFrom(std::string("ProductAdapt::ProductFeature::") + GetParam().getter);
    EXPECT_NO_THROW(EXPECT_FALSE(GetParam().ask()));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_TRUE(GetParam().ask());
}

TEST_F(QueryTest, TimeBackWithAFailingGetter_WholeLine) {
    fakeutil::SetProductFeature("GetSupportTimeBackStatus", {3, false});
    EXPECT_FALSE(SystemEnvironment::IsSupportTimeBack());
    EXPECT_THAT(TakeLines(),
                ElementsAre(L"result=3,GetSupportTimeBackStatus=0(SystemEnvironment::IsSupportTimeBack)\n"));
}

TEST_F(QueryTest, TimeBackWithoutItsPlugin_FalseWithoutALine) {
    fakeutil::SetProductFeature("GetSupportTimeBackStatus", {0, true});
    fakeutil::SetSupportedPlugins({"synergypyp", "SynergyPY", "SynergyPYP "});
    EXPECT_FALSE(SystemEnvironment::IsSupportTimeBack());
}

TEST_F(QueryTest, TimeBackReportedWithoutItsPlugin_OneLine) {
    fakeutil::SetProductFeature("GetSupportTimeBackStatus", {3, true});
    EXPECT_FALSE(SystemEnvironment::IsSupportTimeBack());
    EXPECT_THAT(TakeLines(),
                ElementsAre(L"result=3,GetSupportTimeBackStatus=1(SystemEnvironment::IsSupportTimeBack)\n"));
}

TEST_F(QueryTest, TimeBacksPluginWithoutTheFeature_ShelfIsNotAsked) {
    fakeutil::SetProductFeature("GetSupportTimeBackStatus", {0, false});
    fakeutil::SetSupportedPlugins({kTimeBackPlugin});
    EXPECT_FALSE(SystemEnvironment::IsSupportTimeBack());
    EXPECT_THAT(fakeutil::ArgumentsOf("ZLKSoftShelf::IsSupportPlugin"), testing::IsEmpty());
}

TEST_F(QueryTest, TimeBacksShelfThrows_False) {
    fakeutil::SetProductFeature("GetSupportTimeBackStatus", {0, true});
    fakeutil::SetSupportedPlugins({kTimeBackPlugin});
    fakeutil::ThrowFrom("ZLKSoftShelf::IsSupportPlugin");
    EXPECT_NO_THROW(EXPECT_FALSE(SystemEnvironment::IsSupportTimeBack()));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_TRUE(SystemEnvironment::IsSupportTimeBack());
}

} // namespace

} // namespace querytest
