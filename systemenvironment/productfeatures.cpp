// Does the product have a feature? Each query passes on the flag that the utility library's feature service sets,
// and reports the service's code when it is not 0. The code never changes the answer.
// A query whose sources throw, for want of memory, gives its failure value.

#include "common/answeror.h"
#include "sdk/util/productadapt.h"
#include "sdk/util/softshelf.h"
#include "systemenvironment.h"
#include "systemenvironment/debugline.h"

namespace {

using ProductAdapt::ProductFeature;

struct FeatureQuery {
    int (ProductFeature::*getter)(bool& present) const;
    const char* function;
    const char* beforeCode;
    const char* beforeFlag;
};

// The labels differ in separators, blanks and names; readers of the lines rely on each as it is.
// clang-format off
const FeatureQuery kFingerPrint{&ProductFeature::GetFingerprintStatus,
    "SystemEnvironment::IsSupportFingerPrint", "result=", "IsSupportFingerPrint="};
const FeatureQuery kTrifingerSnipper{&ProductFeature::GetTriFingerSnipperStatus,
    "SystemEnvironment::IsSupportTrifingerSnipper", "result=", "IsSupportTrifingerSnipper="};
const FeatureQuery kWifiGpio{&ProductFeature::GetWifiGpioStatus,
    "SystemEnvironment::IsSupportWifiGpio", "result=", "IsSupportWifiGpio="};
const FeatureQuery kWifiBiosRepair{&ProductFeature::GetWifiBiosRepairStatus,
    "SystemEnvironment::IsSupportWifiBiosRepair", "result=", "IsSupportWifiBiosRepair="};
const FeatureQuery kBtGpio{&ProductFeature::GetBtGpioStatus,
    "SystemEnvironment::IsSupportBtGpio", "result=", "IsSupportBtGpio="};
const FeatureQuery kCPUPower{&ProductFeature::GetCpuPowerStatus,
    "SystemEnvironment::IsSupportCPUPower", "result=", "IsSupportCPUPower="};
const FeatureQuery kKeyboardLight{&ProductFeature::GetKeyboardLightStatus,
    "SystemEnvironment::IsSupportKeyboardLight", "result=", "IsSupportKeyboardLight="};
const FeatureQuery kEnergyStar{&ProductFeature::GetEnergyStarStatus,
    "SystemEnvironment::IsSupportEnergyStar", "result=", "IsSupportEnergyStar="};
const FeatureQuery kSQGData{&ProductFeature::GetSQGDataStatus,
    "SystemEnvironment::IsSupportSQGData", "result = ", "; IsSupportLocalManual ="};
const FeatureQuery kTimeBack{&ProductFeature::GetSupportTimeBackStatus,
    "SystemEnvironment::IsSupportTimeBack", "result=", ",GetSupportTimeBackStatus="};
const FeatureQuery kVrAssisant{&ProductFeature::GetSupportVrAssisantStatus,
    "SystemEnvironment::IsSupportVrAssisant", "result=", ",GetSupportVrAssisantStatus="};
const FeatureQuery kLiveBroadcast{&ProductFeature::GetSupportLiveBroadcast,
    "SystemEnvironment::IsSupportLiveBroadcast", "result=", ",GetSupportLiveBroadcast="};
const FeatureQuery kOfficeCheck{&ProductFeature::GetSupportOfficeCheck,
    "SystemEnvironment::IsSupportOfficeCheck", "result=", ",GetSupportOfficeCheck="};
const FeatureQuery kIntegratedGraphics{&ProductFeature::GetSupportIntegratedGraphics,
    "SystemEnvironment::IsSupportIntegratedGraphics", "result=", ",GetSupportIntegratedGraphics="};
const FeatureQuery kNpsPop{&ProductFeature::GetSupportNpsPopStatus,
    "SystemEnvironment::IsSupportNpsPop", "result=", ",GetSupportNpsPopStatus="};
// clang-format on

constexpr char kTimeBackPlugin[] = "SynergyPYP";

bool Ask(const FeatureQuery& query) noexcept try {
    bool present = false;
    const int code = (ProductFeature::GetInstance().*query.getter)(present);
    if (code != 0) {
        debugline::Write(query.function, query.beforeCode, code, query.beforeFlag, present);
    }
    return present;
} catch (...) {
    return false;
}

} // namespace

bool SystemEnvironment::IsSupportFingerPrint() noexcept {
    return Ask(kFingerPrint);
}

bool SystemEnvironment::IsSupportTrifingerSnipper() noexcept {
    return Ask(kTrifingerSnipper);
}

bool SystemEnvironment::IsSupportWifiGpio() noexcept {
    return Ask(kWifiGpio);
}

bool SystemEnvironment::IsSupportWifiBiosRepair() noexcept {
    return Ask(kWifiBiosRepair);
}

bool SystemEnvironment::IsSupportBtGpio() noexcept {
    return Ask(kBtGpio);
}

bool SystemEnvironment::IsSupportCPUPower() noexcept {
    return Ask(kCPUPower);
}

bool SystemEnvironment::IsSupportKeyboardLight() noexcept {
    return Ask(kKeyboardLight);
}

bool SystemEnvironment::IsSupportEnergyStar() noexcept {
    return Ask(kEnergyStar);
}

bool SystemEnvironment::IsSupportSQGData() noexcept {
    return Ask(kSQGData);
}

bool SystemEnvironment::IsSupportTimeBack() noexcept {
    return kx::AnswerOr(
        false, [&] { return Ask(kTimeBack) && ZLKSoftShelf::GetInstance()->IsSupportPlugin(kTimeBackPlugin); });
}

bool SystemEnvironment::IsSupportVrAssisant() noexcept {
    return Ask(kVrAssisant);
}

bool SystemEnvironment::IsSupportLiveBroadcast() noexcept {
    return Ask(kLiveBroadcast);
}

bool SystemEnvironment::IsSupportOfficeCheck() noexcept {
    return Ask(kOfficeCheck);
}

bool SystemEnvironment::IsSupportIntegratedGraphics() noexcept {
    return Ask(kIntegratedGraphics);
}

bool SystemEnvironment::IsSupportNpsPop() noexcept {
    return Ask(kNpsPop);
}
