/** @file What the tests of the device function switches share: the file in the host folder, and one switch in it. */
#pragma once

#include "systemenvironment.h"

#include "fakes/fakeutil_fault.h"
#include "fakes/fakeutil_services.h"
#include "support/debuglines.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace switchtest {

inline constexpr char kAskForName[] = "ProductAdapt::MachineType::GetProductName";

inline std::filesystem::path SwitchFile() {
    return kxtest::OwnFolder() / "config" / "DeviceFuncSwitchConf.xml";
}
inline void WriteSwitches(std::string_view bytes) {
    kxtest::WriteFileBytes(SwitchFile(), bytes);
}
inline std::string OneSwitch(const std::string& text, const std::string& attribute = "") {
    return "<Switches><Power><Boost" + attribute + ">" + text + "</Boost></Power></Switches>";
}
inline void SetProduct(const std::string& name) {
    fakeutil::SetProductName({ProductAdapt::kOk, name});
}

class DeviceFuncSwitchTest : public testing::Test {
protected:
    DeviceFuncSwitchTest() {
        fakeutil::Reset();
        std::filesystem::remove_all(SwitchFile());
    }
    ~DeviceFuncSwitchTest() override {
        std::filesystem::remove_all(SwitchFile());
        fakeutil::Reset();
    }

    static bool IsBoostOn() { return SystemEnvironment::IsSupportDeviceFunc("Power", "Boost"); }
    std::vector<std::wstring> Lines() const { return m_lines.Lines(); }

private:
    kxtest::DebugLines m_lines;
};

} // namespace switchtest
