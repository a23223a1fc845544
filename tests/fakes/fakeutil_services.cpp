// Scripted facts about the user, the firmware, WMI, the display and the product.
#include "fakes/fakeutil_services.h"

#include "fakes/fakeutil_fault_internal.h"

#include "sdk/util/process.h"
#include "sdk/util/smbios.h"
#include "sdk/util/softshelf.h"
#include "sdk/util/systeminfo.h"
#include "sdk/util/wmi.h"

#include <atomic>
#include <map>
#include <utility>

namespace fakeutil {

namespace {

constexpr int kDefaultDpi = 96;
constexpr int kUnknownIndex = -1;

struct Facts {
    std::wstring sid = kDefaultSid;
    bool supportsTms = false;
    SmBiosTexts smBios;
    int dpi = kDefaultDpi;
    std::set<std::string> plugins;
    ProductAnswer<std::string> productName;
    ProductAnswer<ProductAdapt::PromoteParamInfo> promoteParamInfo;
    int productIndex = kUnknownIndex;
    std::map<std::string, ProductAnswer<bool>> features;
};

std::mutex g_mutex;

Facts& TheFacts() {
    static Facts s_facts;
    return s_facts;
}

const OnReset kForgetFacts([] {
    const std::lock_guard guard(g_mutex);
    TheFacts() = Facts();
});

template <class T>
void Set(T Facts::*fact, T value) {
    const std::lock_guard guard(g_mutex);
    TheFacts().*fact = std::move(value);
}

template <class T>
T Get(T Facts::*fact) {
    const std::lock_guard guard(g_mutex);
    return TheFacts().*fact;
}

template <class T>
int Give(const ProductAnswer<T>& answer, T& output) {
    if (answer.value) {
        output = *answer.value;
    }
    return answer.code;
}

int GiveFeature(const std::string& getter, bool& present) {
    Enter("ProductAdapt::ProductFeature::" + getter, "");
    return Give(Get(&Facts::features)[getter], present);
}

std::wstring FirmwareText(const std::string& getter, std::wstring SmBiosTexts::*text) {
    Enter("SmBiosHelper::" + getter, "");
    return Get(&Facts::smBios).*text;
}

Scripted<std::wstring, const std::wstring&, const std::wstring&, const std::wstring&> g_wmi;
std::atomic<int> g_liveWmiObjects{0};

} // namespace

void SetUserSid(std::wstring sid) {
    Set(&Facts::sid, std::move(sid));
}
std::wstring UserSid() {
    return Get(&Facts::sid);
}
void SetSupportTms(bool supported) {
    Set(&Facts::supportsTms, supported);
}
bool SupportsTms() {
    return Get(&Facts::supportsTms);
}
void SetSmBios(SmBiosTexts texts) {
    Set(&Facts::smBios, std::move(texts));
}
void ScriptWmi(Script<std::wstring, const std::wstring&, const std::wstring&, const std::wstring&> script) {
    g_wmi.Set(std::move(script));
}
std::string WmiQuery(const std::wstring& nameSpace, const std::wstring& query, const std::wstring& property) {
    return Utf8(nameSpace + L", " + query + L", " + property);
}
int LiveWmiObjects() {
    return g_liveWmiObjects.load();
}
void SetSystemDpi(int dpi) {
    Set(&Facts::dpi, dpi);
}
void SetSupportedPlugins(std::set<std::string> names) {
    Set(&Facts::plugins, std::move(names));
}
void SetProductName(ProductAnswer<std::string> answer) {
    Set(&Facts::productName, std::move(answer));
}
void SetPromoteParamInfo(ProductAnswer<ProductAdapt::PromoteParamInfo> answer) {
    Set(&Facts::promoteParamInfo, std::move(answer));
}
void SetProductIndex(int index) {
    Set(&Facts::productIndex, index);
}
void SetProductFeature(const std::string& getter, ProductAnswer<bool> answer) {
    const std::lock_guard guard(g_mutex);
    TheFacts().features[getter] = answer;
}

} // namespace fakeutil

using fakeutil::Enter;
using fakeutil::Facts;
using fakeutil::Get;
using fakeutil::GiveFeature;

std::wstring KXPROCESS::GetCurrentUserSidstr() {
    Enter("KXPROCESS::GetCurrentUserSidstr", "");
    return fakeutil::UserSid();
}

SmBiosHelper* SmBiosHelper::GetInstance() {
    static SmBiosHelper s_instance;
    return &s_instance;
}
std::wstring SmBiosHelper::GetSysSKU() const {
    return fakeutil::FirmwareText("GetSysSKU", &fakeutil::SmBiosTexts::sysSku);
}
std::wstring SmBiosHelper::GetSecSKU() const {
    return fakeutil::FirmwareText("GetSecSKU", &fakeutil::SmBiosTexts::secSku);
}
std::wstring SmBiosHelper::GetOemString1() const {
    return fakeutil::FirmwareText("GetOemString1", &fakeutil::SmBiosTexts::oemString1);
}
std::wstring SmBiosHelper::GetBIOSSysVersion() const {
    return fakeutil::FirmwareText("GetBIOSSysVersion", &fakeutil::SmBiosTexts::sysVersion);
}

struct WMI::Connection {
    std::wstring nameSpace;
};

WMI::WMI(const std::wstring& nameSpace) {
    Enter("WMI::WMI", fakeutil::Utf8(nameSpace));
    m_connection = std::make_unique<Connection>(Connection{nameSpace});
    ++fakeutil::g_liveWmiObjects;
}
WMI::~WMI() {
    --fakeutil::g_liveWmiObjects;
}
std::wstring WMI::SelectStr(const std::wstring& query, const std::wstring& property) const {
    Enter("WMI::SelectStr", fakeutil::WmiQuery(m_connection->nameSpace, query, property));
    return fakeutil::g_wmi.Decide([] { return std::wstring(); }, m_connection->nameSpace, query, property);
}

SystemInfo::SystemInfo() = default;
SystemInfo::~SystemInfo() = default;
int SystemInfo::GetSystemDPI() const {
    Enter("SystemInfo::GetSystemDPI", "");
    return Get(&Facts::dpi);
}

ZLKSoftShelf* ZLKSoftShelf::GetInstance() {
    static ZLKSoftShelf s_instance;
    return &s_instance;
}
bool ZLKSoftShelf::IsSupportPlugin(const std::string& name) const {
    Enter("ZLKSoftShelf::IsSupportPlugin", name);
    return Get(&Facts::plugins).contains(name);
}

namespace ProductAdapt {

const MachineType& MachineType::GetInstance() {
    static const MachineType s_instance;
    return s_instance;
}
int MachineType::GetProductName(std::string& name) const {
    Enter("ProductAdapt::MachineType::GetProductName", name);
    return fakeutil::Give(Get(&Facts::productName), name);
}
int MachineType::GetPromoteParamInfo(const std::string& key, PromoteParamInfo& info) const {
    Enter("ProductAdapt::MachineType::GetPromoteParamInfo", key);
    return fakeutil::Give(Get(&Facts::promoteParamInfo), info);
}
int MachineType::GetProductIndex() const {
    Enter("ProductAdapt::MachineType::GetProductIndex", "");
    return Get(&Facts::productIndex);
}

const ProductFeature& ProductFeature::GetInstance() {
    static const ProductFeature s_instance;
    return s_instance;
}
int ProductFeature::GetFingerprintStatus(bool& present) const {
    return GiveFeature("GetFingerprintStatus", present);
}
int ProductFeature::GetTriFingerSnipperStatus(bool& present) const {
    return GiveFeature("GetTriFingerSnipperStatus", present);
}
int ProductFeature::GetWifiGpioStatus(bool& present) const {
    return GiveFeature("GetWifiGpioStatus", present);
}
int ProductFeature::GetWifiBiosRepairStatus(bool& present) const {
    return GiveFeature("GetWifiBiosRepairStatus", present);
}
int ProductFeature::GetBtGpioStatus(bool& present) const {
    return GiveFeature("GetBtGpioStatus", present);
}
int ProductFeature::GetCpuPowerStatus(bool& present) const {
    return GiveFeature("GetCpuPowerStatus", present);
}
int ProductFeature::GetKeyboardLightStatus(bool& present) const {
    return GiveFeature("GetKeyboardLightStatus", present);
}
int ProductFeature::GetEnergyStarStatus(bool& present) const {
    return GiveFeature("GetEnergyStarStatus", present);
}
int ProductFeature::GetSQGDataStatus(bool& present) const {
    return GiveFeature("GetSQGDataStatus", present);
}
int ProductFeature::GetSupportTimeBackStatus(bool& present) const {
    return GiveFeature("GetSupportTimeBackStatus", present);
}
int ProductFeature::GetSupportVrAssisantStatus(bool& present) const {
    return GiveFeature("GetSupportVrAssisantStatus", present);
}
int ProductFeature::GetSupportLiveBroadcast(bool& present) const {
    return GiveFeature("GetSupportLiveBroadcast", present);
}
int ProductFeature::GetSupportOfficeCheck(bool& present) const {
    return GiveFeature("GetSupportOfficeCheck", present);
}
int ProductFeature::GetSupportIntegratedGraphics(bool& present) const {
    return GiveFeature("GetSupportIntegratedGraphics", present);
}
int ProductFeature::GetSupportNpsPopStatus(bool& present) const {
    return GiveFeature("GetSupportNpsPopStatus", present);
}

} // namespace ProductAdapt
