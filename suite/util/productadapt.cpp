// Product identity and features, answered from the product profile.
#include "sdk/util/productadapt.h"

#include "productprofile.h"

#include <optional>
#include <utility>

namespace ProductAdapt {

namespace {

using kxutil::ProductProfile;

// Loads the profile, asks it and writes the answer: the one way in which every query here ends.
template <typename Answer, typename Question>
int Ask(Answer& answer, const Question& question) {
    const ProductProfile profile = ProductProfile::Load();
    if (!profile.IsLoaded()) {
        return kNoProfile;
    }
    auto found = question(profile);
    if (!found) {
        return kNotListed;
    }
    answer = std::move(*found);
    return kOk;
}

int AskFeature(bool& present, const char* name) {
    return Ask(present, [name](const ProductProfile& profile) { return profile.Feature(name); });
}

} // namespace

const MachineType& MachineType::GetInstance() {
    static const MachineType instance;
    return instance;
}

int MachineType::GetProductName(std::string& name) const {
    return Ask(name, [](const ProductProfile& profile) { return profile.ProductName(); });
}

int MachineType::GetPromoteParamInfo(const std::string& key, PromoteParamInfo& info) const {
    return Ask(info, [&key](const ProductProfile& profile) { return profile.PromoteParams(key); });
}

int MachineType::GetProductIndex() const {
    int index = -1;
    Ask(index, [](const ProductProfile& profile) { return profile.ProductIndex(); });
    return index;
}

const ProductFeature& ProductFeature::GetInstance() {
    static const ProductFeature instance;
    return instance;
}

int ProductFeature::GetFingerprintStatus(bool& present) const {
    return AskFeature(present, "Fingerprint");
}
int ProductFeature::GetTriFingerSnipperStatus(bool& present) const {
    return AskFeature(present, "TriFingerSnipper");
}
int ProductFeature::GetWifiGpioStatus(bool& present) const {
    return AskFeature(present, "WifiGpio");
}
int ProductFeature::GetWifiBiosRepairStatus(bool& present) const {
    return AskFeature(present, "WifiBiosRepair");
}
int ProductFeature::GetBtGpioStatus(bool& present) const {
    return AskFeature(present, "BtGpio");
}
int ProductFeature::GetCpuPowerStatus(bool& present) const {
    return AskFeature(present, "CpuPower");
}
int ProductFeature::GetKeyboardLightStatus(bool& present) const {
    return AskFeature(present, "KeyboardLight");
}
int ProductFeature::GetEnergyStarStatus(bool& present) const {
    return AskFeature(present, "EnergyStar");
}
int ProductFeature::GetSQGDataStatus(bool& present) const {
    return AskFeature(present, "SQGData");
}
int ProductFeature::GetSupportTimeBackStatus(bool& present) const {
    return AskFeature(present, "TimeBack");
}
int ProductFeature::GetSupportVrAssisantStatus(bool& present) const {
    return AskFeature(present, "VrAssisant");
}
int ProductFeature::GetSupportLiveBroadcast(bool& present) const {
    return AskFeature(present, "LiveBroadcast");
}
int ProductFeature::GetSupportOfficeCheck(bool& present) const {
    return AskFeature(present, "OfficeCheck");
}
int ProductFeature::GetSupportIntegratedGraphics(bool& present) const {
    return AskFeature(present, "IntegratedGraphics");
}
int ProductFeature::GetSupportNpsPopStatus(bool& present) const {
    return AskFeature(present, "NpsPop");
}

} // namespace ProductAdapt
