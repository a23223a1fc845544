// The samples of configuration files, each put where the page about configuration says, answer as they describe.
#include "systemenvironment.h"

#include "support/debuglines.h"
#include "support/hostfolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using kxtest::OwnFolder;
using testing::IsEmpty;

/** A sample in the folder "config", under its name without ".sample", until the object goes. */
class Configured {
public:
    explicit Configured(std::string sample) {
        const std::string bytes = kxtest::ReadFileBytes(OwnFolder() / "samples" / sample);
        m_path = OwnFolder() / "config" / sample.replace(sample.find(".sample"), 7, "");
        kxtest::WriteFileBytes(m_path, bytes);
    }
    ~Configured() {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }
    Configured(const Configured&) = delete;
    Configured& operator=(const Configured&) = delete;

private:
    std::filesystem::path m_path;
};

TEST(Samples, FunctionSwitches_DependOnTheProductOfTheProfile) {
    const kxtest::DebugLines lines;
    const Configured switches("DeviceFuncSwitchConf.sample.xml");
    EXPECT_TRUE(SystemEnvironment::IsSupportDeviceFunc("Power", "Boost"));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", "Silence"));
    EXPECT_FALSE(SystemEnvironment::IsSupportDeviceFunc("Power", "Other"));
    const Configured profile("ProductProfile.sample.xml");
    EXPECT_TRUE(SystemEnvironment::IsSupportDeviceFunc("Power", "Silence"));
    EXPECT_THAT(lines.Lines(), IsEmpty());
}

TEST(Samples, ProductProfile_AnswersTheQueriesOfFeatures) {
    EXPECT_FALSE(SystemEnvironment::IsSupportFingerPrint());
    const Configured profile("ProductProfile.sample.xml");
    EXPECT_TRUE(SystemEnvironment::IsSupportFingerPrint());
    EXPECT_FALSE(SystemEnvironment::IsSupportWifiGpio());
    EXPECT_TRUE(SystemEnvironment::IsSupportTimeBack());
}

TEST(Samples, LogTypes_HaveTheirNames) {
    const kxtest::DebugLines lines;
    const Configured table("LogType.sample.xml");
    EXPECT_EQ(SystemEnvironment::GetStringNameById(1), "System events");
    EXPECT_EQ(SystemEnvironment::GetStringNameById(2), "Crash dumps");
    EXPECT_EQ(SystemEnvironment::GetStringNameById(3), "null");
    EXPECT_THAT(lines.Lines(), IsEmpty());
}

TEST(Samples, Manifest_TrustsTheListedFileWithItsDigestOnly) {
    const Configured manifest("CheckFileIntergrity.sample.xml");
    const std::filesystem::path file = OwnFolder() / "plugins" / "example.dll";
    kxtest::WriteFileBytes(file, "abc");
    EXPECT_TRUE(SystemEnvironment::CompareFileIntergrity("plugins\\example.dll"));
    EXPECT_FALSE(SystemEnvironment::CompareFileIntergrity("plugins/example.dll"));
    kxtest::WriteFileBytes(file, "abd");
    EXPECT_FALSE(SystemEnvironment::CompareFileIntergrity("plugins\\example.dll"));
    std::filesystem::remove_all(file.parent_path());
}

} // namespace
