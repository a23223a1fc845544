// The queries about machine and user, each beside the reads that it cannot do without.
#include "agreementsign.h"
#include "benchmarks/pairs.h"
#include "common/win/handle.h"
#include "common/win/modulepath.h"
#include "common/win/usersid.h"
#include "systemenvironment.h"

#include <tinyxml2.h>
#include <windows.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace {

using bench::Goal;
using bench::Require;
using bench::Timed;

constexpr std::size_t kTimes = 50; // queries of a round

constexpr wchar_t kService[] = L"\\Software\\Calvora\\AgreementService";
constexpr wchar_t kLocalVersions[] = L"\\Software\\Calvora\\AgreementService\\WithoutAccountLogin\\LocalVersion";
constexpr wchar_t kLoginRecord[] = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLogin";
constexpr wchar_t kLoginCache[] = L"\\Software\\Calvora\\AgreementService\\KXRecordWithLoginCache";
constexpr wchar_t kUserAgreement[] = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin\\UserAgreement";
constexpr wchar_t kPrivacyStatement[] =
    L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin\\PrivacyStatement";
constexpr wchar_t kNoLoginRecord[] = L"\\SOFTWARE\\Calvora\\AgreementService\\KXRecordWithoutLogin";
constexpr wchar_t kBios[] = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
constexpr wchar_t kProduct[] = L"HARDWARE\\DESCRIPTION\\System\\Product";
constexpr wchar_t kVersion[] = L"Software\\Microsoft\\Windows NT\\CurrentVersion";
constexpr wchar_t kLoginGuide[] = L"SOFTWARE\\Calvora\\KXLoginGuide";
constexpr wchar_t kCrashControl[] = L"SYSTEM\\CurrentControlSet\\Control\\CrashControl";
constexpr wchar_t kPower[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
constexpr wchar_t kPowerManager[] = L"Software\\Calvora\\ZLKPowerManager";
constexpr wchar_t kSettings[] = L"\\SOFTWARE\\Orvane\\Calvora\\setting";
constexpr wchar_t kInternational[] = L"\\Control Panel\\International";

/** A value that a query reads; no name stands for the question whether the key exists. */
struct Value {
    HKEY root;
    std::wstring key; ///< of a user: without the SID, with a backslash in front
    std::wstring name;
};

Value OfUser(const wchar_t* key, const wchar_t* name) {
    static const std::wstring s_sid = kx::CurrentUserSid();
    return {HKEY_USERS, s_sid + key, name};
}

Value OfMachine(const wchar_t* key, const wchar_t* name) {
    return {HKEY_LOCAL_MACHINE, key, name};
}

/** One raw open, read and close. */
void ReadRaw(const Value& value) {
    std::array<BYTE, 256> bytes;
    auto size = static_cast<DWORD>(bytes.size());
    HKEY key = nullptr;
    Require(RegOpenKeyExW(value.root, value.key.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS, "a key is missing");
    if (!value.name.empty()) {
        Require(RegQueryValueExW(key, value.name.c_str(), nullptr, nullptr, bytes.data(), &size) == ERROR_SUCCESS,
                "a value is missing");
    }
    RegCloseKey(key);
}

void Store(const Value& value, DWORD type, const void* bytes, std::size_t size) {
    HKEY key = nullptr;
    Require(RegCreateKeyExW(value.root, value.key.c_str(), 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                            &key, nullptr) == ERROR_SUCCESS &&
                RegSetValueExW(key, value.name.c_str(), 0, type, static_cast<const BYTE*>(bytes),
                               static_cast<DWORD>(size)) == ERROR_SUCCESS,
            "a value cannot be stored");
    RegCloseKey(key);
}

void StoreText(const Value& value, const std::wstring& text) {
    Store(value, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void StoreNumber(const Value& value, DWORD number) {
    Store(value, REG_DWORD, &number, sizeof number);
}

void WriteText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << text;
    Require(file.good(), "a file cannot be written");
}

/** The folder of Util.dll's configuration; the library lies beside this program. */
std::filesystem::path ConfigFolder() {
    return std::filesystem::path(kx::ModuleFolder(nullptr).value()) / "config";
}

// ---- Single values -------------------------------------------------------------------------------------------------

struct Query {
    const char* name;
    std::function<bool()> ask; ///< whether the answer is the stored value
    std::vector<Value> values;
};

std::vector<Query> Queries() {
    using S = SystemEnvironment;
    const std::wstring text = L"stored";
    const std::string narrow = "stored";
    for (const Value& value :
         {OfMachine(kVersion, L"ProductName"), OfMachine(kVersion, L"ReleaseId"), OfMachine(kVersion, L"BuildBranch"),
          OfMachine(kBios, L"BIOSVersion"), OfMachine(kProduct, L"Version"), OfMachine(kLoginGuide, L"LogSwitch"),
          OfMachine(kLoginGuide, L"Fireware"), OfMachine(kPowerManager, L"PowerManagerIntellMode"),
          OfUser(kInternational, L"LocaleName"), OfUser(L"\\SOFTWARE\\Calvora\\KXLoginGuide", L"Capture")}) {
        StoreText(value, text);
    }
    StoreText(OfMachine(kVersion, L"BuildLabEx"), L"100.stored");
    StoreNumber(OfMachine(kVersion, L"UBR"), 7);
    StoreNumber(OfMachine(kCrashControl, L"CrashDumpEnabled"), 2);
    StoreNumber(OfMachine(kPower, L"Stored"), 7);
    StoreNumber(OfUser(kSettings, L"Stored"), 7);
    return {
        {"GetOSVersion", [=] { return S::GetOSVersion() == narrow; }, {OfMachine(kVersion, L"ProductName")}},
        {"GetOSReleaseId", [=] { return S::GetOSReleaseId() == narrow; }, {OfMachine(kVersion, L"ReleaseId")}},
        {"GetOSBuildBranch", [=] { return S::GetOSBuildBranch() == narrow; }, {OfMachine(kVersion, L"BuildBranch")}},
        {"GetOSBuildVersion",
         [] { return S::GetOSBuildVersion() == "100.7"; },
         {OfMachine(kVersion, L"BuildLabEx"), OfMachine(kVersion, L"UBR")}},
        {"GetVersionFromRegistry",
         [=] { return S::GetVersionFromRegistry() == narrow; },
         {OfMachine(kProduct, L"Version")}},
        {"GetBIOSVersion", [=] { return S::GetBIOSVersion() == narrow; }, {OfMachine(kBios, L"BIOSVersion")}},
        {"GetPowerManagerIntellMode",
         [=] { return S::GetPowerManagerIntellMode() == narrow; },
         {OfMachine(kPowerManager, L"PowerManagerIntellMode")}},
        {"GetLogSwitch", [=] { return S::GetLogSwitch() == narrow; }, {OfMachine(kLoginGuide, L"LogSwitch")}},
        {"GetFirewareValue", [=] { return S::GetFirewareValue() == narrow; }, {OfMachine(kLoginGuide, L"Fireware")}},
        {"IsKernelCrashDumpEnabled",
         [] { return S::IsKernelCrashDumpEnabled(); },
         {OfMachine(kCrashControl, L"CrashDumpEnabled")}},
        {"GetSessionPowerValue",
         [] { return S::GetSessionPowerValue(L"Stored") == 7; },
         {OfMachine(kPower, L"Stored")}},
        {"GetCaptureSwitch",
         [=] { return S::GetCaptureSwitch() == text; },
         {OfUser(L"\\SOFTWARE\\Calvora\\KXLoginGuide", L"Capture")}},
        {"ReadValue", [] { return S::ReadValue(L"Stored") == 7; }, {OfUser(kSettings, L"Stored")}},
        {"GetUserLocaleName",
         [=] { return S::GetUserLocaleName() == narrow; },
         {OfUser(kInternational, L"LocaleName")}},
    };
}

void MeasureQueries(bench::Runner& runner) {
    for (const Query& query : Queries()) {
        const bool isOne = query.values.size() == 1;
        runner.Measure({std::string("`") + query.name + "`",
                        isOne ? "one raw open, read, close" : "two raw opens, reads, closes", Goal::Times(1.15),
                        [&] { return Timed(kTimes, [&] { Require(query.ask(), query.name); }); },
                        [&] {
                            return Timed(kTimes, [&] {
                                for (const Value& value : query.values) {
                                    ReadRaw(value);
                                }
                            });
                        }});
    }
}

// ---- Consent -------------------------------------------------------------------------------------------------------

/** One way through the judgement: what is stored for it, what it answers, and what it must read. */
struct JudgementPath {
    const char* name;
    std::vector<std::pair<Value, std::wstring>> stored;
    int answer;
    std::vector<Value> reads;
};

std::vector<JudgementPath> JudgementPaths() {
    const Value cache = OfUser(kService, L"WndAgreeCache");
    const Value login = OfUser(kService, L"UserLoginFlag");
    const Value server = OfUser(kService, L"ServerUpdatedFlag");
    const Value agreement = OfUser(kLocalVersions, L"133");
    const Value privacy = OfUser(kLocalVersions, L"10021");
    const Value accepted = OfUser(kUserAgreement, L"Version");
    const Value acceptedPrivacy = OfUser(kPrivacyStatement, L"Version");
    const Value record = OfUser(kLoginRecord, L"133");
    const Value recordPrivacy = OfUser(kLoginRecord, L"10021");
    const Value cached = OfUser(kLoginCache, L"133");
    const Value cachedPrivacy = OfUser(kLoginCache, L"10021");
    return {
        {"the cache says signed", {{cache, L"1"}}, AgreementSign::kSigned, {cache}},
        {"without login",
         {{cache, L"0"},
          {login, L"0"},
          {server, L"0"},
          {agreement, L"5"},
          {privacy, L"5"},
          {accepted, L"5"},
          {acceptedPrivacy, L"5"}},
         AgreementSign::kSigned,
         {cache, login, OfUser(kNoLoginRecord, L""), accepted, acceptedPrivacy, server, agreement, privacy}},
        {"with login",
         {{cache, L"0"},
          {login, L"1"},
          {server, L"0"},
          {agreement, L"5"},
          {privacy, L"5"},
          {record, L"5"},
          {recordPrivacy, L"5"}},
         AgreementSign::kSigned,
         {cache, login, server, agreement, privacy, OfUser(kLoginRecord, L""), record, recordPrivacy}},
        {"with login and a cached record",
         {{cache, L"0"},
          {login, L"1"},
          {server, L"0"},
          {agreement, L"5"},
          {privacy, L"5"},
          {record, L"4"},
          {recordPrivacy, L"4"},
          {cached, L"5"},
          {cachedPrivacy, L"5"}},
         AgreementSign::kSigned,
         {cache, login, server, agreement, privacy, OfUser(kLoginRecord, L""), record, recordPrivacy,
          OfUser(kLoginCache, L""), cached, cachedPrivacy}},
    };
}

void ReadWhole(const std::wstring& path) {
    const kx::FileHandle file(
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    std::array<char, 4096> bytes;
    DWORD count = 0;
    Require(file && ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) && count != 0,
            "the profile cannot be read");
}

void MeasureJudgements(bench::Runner& runner) {
    const std::filesystem::path profile = ConfigFolder() / "ProductProfile.xml";
    WriteText(profile, "<ProductProfile><AgreementService inUse=\"true\"/></ProductProfile>\n");
    for (const JudgementPath& path : JudgementPaths()) {
        for (const auto& [value, text] : path.stored) {
            StoreText(value, text);
        }
        runner.Measure({std::string("`JudgeAgreementSign`, ") + path.name,
                        std::to_string(path.reads.size()) + " raw reads of values, one of the profile's file",
                        Goal::Times(1.15),
                        [&] {
                            return Timed(kTimes, [&] {
                                Require(AgreementSign::JudgeAgreementSign() == path.answer, "another judgement");
                            });
                        },
                        [&] {
                            return Timed(kTimes, [&] {
                                ReadWhole(profile.wstring());
                                for (const Value& value : path.reads) {
                                    ReadRaw(value);
                                }
                            });
                        }});
    }
    std::filesystem::remove(profile);
}

// ---- Firmware, cache and table of log types ------------------------------------------------------------------------

void MeasureDeviceId(bench::Runner& runner) {
    constexpr std::size_t kCachedTimes = 20'000;
    const std::string serial = "PF0123456789ABCDEFGH";
    StoreText(OfMachine(kBios, L"BIOSSerialNumber"), {serial.begin(), serial.end()});
    std::mutex mutex;
    const std::string known = serial;
    runner.Measure({"`GetDeviceId` from the cache", "a mutex and a string copy", Goal::Times(1.1),
                    [&] {
                        return Timed(kCachedTimes, [&] {
                            Require(SystemEnvironment::GetDeviceId().size() == serial.size(), "another identifier");
                        });
                    },
                    [&] {
                        return Timed(kCachedTimes, [&] {
                            const std::lock_guard lock(mutex);
                            const std::string copy = known;
                            Require(copy.size() == serial.size(), "another text");
                        });
                    }});
}

void MeasureFirmware(bench::Runner& runner) {
    constexpr DWORD kProvider = 0x52534D42; // 'RSMB'
    const std::size_t size = GetSystemFirmwareTable(kProvider, 0, nullptr, 0);
    std::vector<BYTE> table(size);
    const auto readTable = [&] {
        return Timed(kTimes, [&] {
            Require(GetSystemFirmwareTable(kProvider, 0, table.data(), static_cast<DWORD>(table.size())) != 0,
                    "the firmware gives no table");
        });
    };
    runner.Measure({"`GetOemProductCodeString` from SMBIOS", "one `GetSystemFirmwareTable`", Goal::Times(1.3),
                    [] { return Timed(kTimes, [] { SystemEnvironment::GetOemProductCodeString(); }); }, readTable});
    runner.Measure({"`GetBIOSSysVersion` from SMBIOS", "one `GetSystemFirmwareTable`", Goal::Times(1.3),
                    [] {
                        return Timed(kTimes, [] {
                            std::string version;
                            SystemEnvironment::GetBIOSSysVersion(version);
                        });
                    },
                    readTable});
}

std::filesystem::path LogTypes() {
    return ConfigFolder() / "LogType.xml";
}

void WriteLogTypes(std::size_t items) {
    std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<LogTypes>\n";
    for (std::size_t id = 1; id <= items; ++id) {
        text += "  <Item ID=\"" + std::to_string(id) + "\" Value=\"log type number " + std::to_string(id) + "\"/>\n";
    }
    WriteText(LogTypes(), text + "</LogTypes>\n");
}

double AskLogType(std::size_t times, std::size_t items) {
    const std::string expected = "log type number " + std::to_string(items);
    return Timed(times, [&] {
        Require(SystemEnvironment::GetStringNameById(static_cast<int>(items)) == expected, "another log type");
    });
}

void MeasureLogTypes(bench::Runner& runner) {
    constexpr std::size_t kItems = 1000;
    WriteLogTypes(kItems);
    const std::string path = LogTypes().string();
    runner.Measure({"`GetStringNameById`, the last of 1,000 items", "the parser alone on the same file",
                    Goal::Times(1.2), [] { return AskLogType(5, kItems); },
                    [&] {
                        return Timed(5, [&] {
                            tinyxml2::XMLDocument document;
                            Require(document.LoadFile(path.c_str()) == tinyxml2::XML_SUCCESS, "no table of log types");
                        });
                    }});
}

void GrowLogTypes(bench::Runner& runner) {
    runner.Grow("`GetStringNameById` by log types", "items", {10, 100, 1000, 10'000, 25'000, 50'000, 75'000, 100'000},
                [](double items) {
                    WriteLogTypes(static_cast<std::size_t>(items));
                    return AskLogType(1, static_cast<std::size_t>(items));
                });
}

} // namespace

int main(int argc, char** argv) {
    return bench::Run(argc, argv, [](bench::Runner& runner) {
        GrowLogTypes(runner);
        if (!runner.WantsGrowth()) {
            MeasureQueries(runner);
            MeasureJudgements(runner);
            MeasureDeviceId(runner);
            MeasureFirmware(runner);
            MeasureLogTypes(runner);
        }
        std::filesystem::remove(LogTypes());
    });
}
