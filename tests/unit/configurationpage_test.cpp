// The registry tables of docs/configuration.md name every value that the library's functions touch, and no other.
// Every function is called on several registries, and the calls of the utility library are held against the page.
#include "agreementsign.h"
#include "systemenvironment.h"

#include "fakes/fakeutil_registry.h"
#include "fakes/fakeutil_services.h"
#include "queryfixture.h"
#include "support/agreementprivate.h"
#include "support/importpatch.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <tuple>

namespace {

using testing::Contains;
using testing::IsEmpty;
using Environment = SystemEnvironment;

const std::wstring kSid = fakeutil::kDefaultSid;
constexpr wchar_t kCallersValue[] = L"ValueOfTheCaller";
constexpr wchar_t kMonitor[] = L"FirstMonitor";
constexpr char kServiceRecord[] = "\\Software\\Calvora\\AgreementService\\KXRecordWithLogin";

/** A registry value as the page names it. The root says how the user's part is addressed; letter case is lost. */
struct Value {
    std::string root;
    std::string key;
    std::string name;
    std::string type;

    auto operator<=>(const Value&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Value& value) {
    return out << value.root << " " << value.key << " " << value.name << " (" << value.type << ")";
}

constexpr char kMachineRoot[] = "HKEY_LOCAL_MACHINE";
constexpr char kUserRoot[] = "HKEY_USERS, below the SID of the current user";

/** Who reads a value and who writes it: names of functions. */
struct Users {
    std::set<std::string> readers;
    std::set<std::string> writers;
};
using Usage = std::map<Value, Users>;

/** The functions of the two classes that are called; those that never touch the registry are called as well. */
const std::vector<std::pair<const char*, std::function<void()>>> kFunctions = {
    {"CompareFileIntergrity", [] { Environment::CompareFileIntergrity("none"); }},
    {"IsSupportDeviceFunc", [] { Environment::IsSupportDeviceFunc("Group", "Name"); }},
    {"IsAutoRepairEnabled", [] { Environment::IsAutoRepairEnabled(); }},
    {"IsAgreeClause", [] { Environment::IsAgreeClause(); }},
    {"GetLoginGuideProtocol", [] { Environment::GetLoginGuideProtocol(); }},
    {"GetPowerManagerIntellMode", [] { Environment::GetPowerManagerIntellMode(); }},
    {"GetCaptureSwitch", [] { Environment::GetCaptureSwitch(); }},
    {"IsKernelCrashDumpEnabled", [] { Environment::IsKernelCrashDumpEnabled(); }},
    {"GetSessionPowerValue", [] { Environment::GetSessionPowerValue(kCallersValue); }},
    {"FixSmallCrashDump", [] { Environment::FixSmallCrashDump(); }},
    {"GetLogSwitch", [] { Environment::GetLogSwitch(); }},
    {"SetLogSwitch", [] { Environment::SetLogSwitch(true); }},
    {"GetFirewareValue", [] { Environment::GetFirewareValue(); }},
    {"GetSecondarySku", [] { Environment::GetSecondarySku(); }},
    {"IsSupportFingerPrint", [] { Environment::IsSupportFingerPrint(); }},
    {"IsSupportTrifingerSnipper", [] { Environment::IsSupportTrifingerSnipper(); }},
    {"IsSupportWifiGpio", [] { Environment::IsSupportWifiGpio(); }},
    {"IsSupportWifiBiosRepair", [] { Environment::IsSupportWifiBiosRepair(); }},
    {"IsSupportBtGpio", [] { Environment::IsSupportBtGpio(); }},
    {"IsSupportCPUPower", [] { Environment::IsSupportCPUPower(); }},
    {"IsSupportKeyboardLight", [] { Environment::IsSupportKeyboardLight(); }},
    {"IsSupportEnergyStar", [] { Environment::IsSupportEnergyStar(); }},
    {"IsSupportSQGData", [] { Environment::IsSupportSQGData(); }},
    {"IsSupportTimeBack", [] { Environment::IsSupportTimeBack(); }},
    {"IsSupportVrAssisant", [] { Environment::IsSupportVrAssisant(); }},
    {"IsSupportLiveBroadcast", [] { Environment::IsSupportLiveBroadcast(); }},
    {"IsSupportOfficeCheck", [] { Environment::IsSupportOfficeCheck(); }},
    {"IsSupportIntegratedGraphics", [] { Environment::IsSupportIntegratedGraphics(); }},
    {"IsSupportNpsPop", [] { Environment::IsSupportNpsPop(); }},
    {"GetDeviceTypeEx", [] { Environment::GetDeviceTypeEx(); }},
    {"GetProductNameForKxshare", [] { Environment::GetProductNameForKxshare(); }},
    {"GetProductSeries", [] { Environment::GetProductSeries(); }},
    {"GetSystemSkuCode", [] { Environment::GetSystemSkuCode(); }},
    {"GetOemProductCode",
     [] {
         std::uint32_t code = 0;
         Environment::GetOemProductCode(&code);
     }},
    {"GetOemProductCodeString", [] { Environment::GetOemProductCodeString(); }},
    {"GetLogPackageName", [] { Environment::GetLogPackageName("a", 1, "b"); }},
    {"GetLogPackageZipName", [] { Environment::GetLogPackageZipName("a", 1, "b"); }},
    {"IsOnAcPower", [] { Environment::IsOnAcPower(); }},
    {"IsNotIa64System", [] { Environment::IsNotIa64System(); }},
    {"GetOSVersion", [] { Environment::GetOSVersion(); }},
    {"GetOSReleaseId", [] { Environment::GetOSReleaseId(); }},
    {"GetOSBuildBranch", [] { Environment::GetOSBuildBranch(); }},
    {"GetOSBuildVersion", [] { Environment::GetOSBuildVersion(); }},
    {"GetVersionFromRegistry", [] { Environment::GetVersionFromRegistry(); }},
    {"OSVersion", [] { Environment::OSVersion(); }},
    {"GetBIOSVersion", [] { Environment::GetBIOSVersion(); }},
    {"GetDeviceId", [] { Environment::GetDeviceId(); }},
    {"GetBIOSSysVersion",
     [] {
         std::string version;
         Environment::GetBIOSSysVersion(version);
     }},
    {"GetOEMVersion", [] { Environment::GetOEMVersion(); }},
    {"ReadValue",
     [] {
         char buffer[8] = {};
         Environment::ReadValue(kCallersValue, buffer, sizeof buffer);
         Environment::ReadValue(kCallersValue);
     }},
    {"IsFileUnicode", [] { Environment::IsFileUnicode(); }},
    {"GetUnicodeString", [] { Environment::GetUnicodeString(); }},
    {"GetUserLocaleName", [] { Environment::GetUserLocaleName(); }},
    {"GetUserLocaleNameCN", [] { Environment::GetUserLocaleNameCN(); }},
    {"GetStringNameById", [] { Environment::GetStringNameById(1); }},
    {"ApplyDpiSetting", [] { Environment::ApplyDpiSetting(1); }},
    {"GetLastestSystemDpi",
     [] {
         int dpi = 0;
         int step = 0;
         Environment::GetLastestSystemDpi(&dpi, &step);
     }},
    {"SaveLastestSystemDpi", [] { Environment::SaveLastestSystemDpi(7, 7); }},
    {"RestoreSystemDpi4Common", [] { Environment::RestoreSystemDpi4Common(-1); }},
    {"RestoreSystemDpi", [] { Environment::RestoreSystemDpi(); }},
    {"JudgeAgreementSign", [] { AgreementSign::JudgeAgreementSign(); }},
    {"JudgeAgreementSignLogin", [] { AgreementSign::JudgeAgreementSignLogin(); }},
    {"JudgeAgreementSignWithoutLogin", [] { AgreementSign::JudgeAgreementSignWithoutLogin(); }},
    {"GetAgreeCache", [] { AgreementSign::GetAgreeCache(); }},
    {"SetAgreeCache", [] { AgreementSign::SetAgreeCache(true); }},
    {"JudgeBranchId",
     [] {
         const std::string record = kServiceRecord;
         const std::wstring wide(record.begin(), record.end());
         agreementprivate::JudgeBranchId(wide);
         agreementprivate::JudgeBranchId(wide + L"Cache");
         agreementprivate::JudgeBranchId(L"");
     }},
    {"RecordeAgreeFlag", [] { agreementprivate::RecordeAgreeFlag(); }},
    {"DeleteAgreeFlag", [] { agreementprivate::DeleteAgreeFlag(); }},
};

std::string LowerCase(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::string Narrow(const std::wstring& text) {
    return {text.begin(), text.end()};
}

std::vector<std::string> SplitAt(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = text.find(separator); end != std::string::npos; end = text.find(separator, begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + separator.size();
    }
    parts.push_back(text.substr(begin));
    return parts;
}

/** A value in the page's words, from what a call of the registry was recorded with. */
Value InThePagesWords(const std::string& root, std::string key, std::string name, const std::string& type) {
    key = key.starts_with('\\') ? key.substr(1) : key;
    const std::string sid = Narrow(kSid);
    Value value{kMachineRoot, key, name, type};
    if (root == "HKEY_USERS") {
        value.root = key.starts_with(sid + "\\") ? kUserRoot : "HKEY_USERS";
        value.key = key.starts_with(sid + "\\") ? key.substr(sid.size() + 1) : key;
    }
    value.key = Replaced(LowerCase(value.key), LowerCase(Narrow(kMonitor)), "(first monitor)");
    if (name == sid) {
        value.name = "(the SID)";
    } else if (name == Narrow(kCallersValue)) {
        value.name = "(the caller's)";
    }
    value.type = type.ends_with(" bytes") ? "any" : type == "text" ? "text" : "number";
    return value;
}

/** A place that a value was asked of, as it was passed. */
struct Place {
    std::string root;
    std::string key;
    std::string name;
    bool isNumber;

    auto operator<=>(const Place&) const = default;
};

/** What all functions were seen to do so far. */
struct Seen {
    Usage usage;
    std::set<Place> readPlaces;
};

void NoteRead(const std::string& function, const Place& place, const std::string& type, Seen& seen) {
    const Value value = InThePagesWords(place.root, place.key, place.name, type);
    seen.usage[value].readers.insert(function);
    seen.readPlaces.insert(place);
}

/** Adds what one function was seen to read and write. */
void Note(const std::string& function, const std::vector<fakeutil::Call>& calls, Seen& seen) {
    std::string openedKey;
    for (const auto& [name, argument] : calls) {
        const std::vector<std::string> parts = SplitAt(argument, ", ");
        if (name == "DE::Registry::GetValue") {
            const bool isNumber = parts.at(3) == "int" || parts.at(3) == "unsigned long";
            NoteRead(function, {parts.at(0), parts.at(1), parts.at(2), isNumber}, parts.at(3), seen);
        } else if (name == "DE::Registry::SetValue") {
            const Value value = InThePagesWords(parts.at(0), parts.at(1), parts.at(2), parts.at(3));
            seen.usage[value].writers.insert(function);
        } else if (name == "AccountUtil::GetFlag") {
            NoteRead(function, {"HKEY_USERS", Narrow(kSid) + parts.at(0), parts.at(1), false}, "text", seen);
        } else if (name == "DE::Registry::OpenKey") {
            openedKey = parts.at(1);
        } else if (name == "DE::Registry::DeleteValue") {
            seen.usage[InThePagesWords("HKEY_USERS", openedKey, argument, "text")].writers.insert(function);
        }
    }
}

std::wstring Wide(const std::string& text) {
    return {text.begin(), text.end()};
}

/** Stores a value, of the type that was asked for, at every place whose root or key has this part. */
void Fill(const std::set<Place>& places, const std::string& part, const wchar_t* text, unsigned long number) {
    for (const Place& place : places) {
        if ((place.root + place.key).find(part) != std::string::npos) {
            const auto data =
                place.isNumber ? fakeutil::RegistryData(number) : fakeutil::RegistryData(std::wstring(text));
            fakeutil::SetRegistryValue(place.root == "HKEY_USERS" ? HKEY_USERS : HKEY_LOCAL_MACHINE, Wide(place.key),
                                       Wide(place.name), data);
        }
    }
}

std::string PageText(const char* file) {
    return kxtest::ReadFileBytes(kxtest::OwnFolder() / file);
}

std::set<std::string> NamesIn(const std::string& cell) {
    static const std::regex s_name("`([A-Z]\\w+)`");
    std::set<std::string> names;
    for (std::sregex_iterator it(cell.begin(), cell.end(), s_name), end; it != end; ++it) {
        names.insert((*it)[1]);
    }
    return names;
}

std::string WithoutTicks(std::string text) {
    std::erase(text, '`');
    return text;
}

/** The rows of the page's registry section: the third-level heading is the root, an empty key the one above. */
Usage OnThePage() {
    std::istringstream page(PageText("configuration.md"));
    Usage usage;
    std::string root;
    std::string key;
    for (std::string line; std::getline(page, line);) {
        line = Replaced(line, "\r", "");
        if (line.starts_with("#")) {
            root = line.starts_with("### HKEY") ? line.substr(4) : "";
        }
        const std::vector<std::string> cells = SplitAt(line, "|");
        if (root.empty() || cells.size() != 7 || cells[1] == " key " || cells[1] == "---") {
            continue;
        }
        const auto trimmed = [&cells](std::size_t index) {
            const std::string& cell = cells[index];
            return cell.size() > 2 ? WithoutTicks(cell.substr(1, cell.size() - 2)) : std::string();
        };
        key = trimmed(1).empty() ? key : LowerCase(trimmed(1));
        usage[{root, key, trimmed(2), trimmed(3)}] = {NamesIn(cells[4]), NamesIn(cells[5])};
    }
    return usage;
}

class ConfigurationPageTest : public testing::Test {
protected:
    ConfigurationPageTest() { querytest::OemFile::Write(querytest::Utf16File(L"1")); }
    ~ConfigurationPageTest() override { fakeutil::Reset(); }

    /** What all functions do on one registry, added to what is known. */
    void Observe(const std::string& filledPart, const wchar_t* text, unsigned long number) {
        for (const auto& [name, call] : kFunctions) {
            fakeutil::Reset();
            fakeutil::SetSupportTms(true);
            fakeutil::AddRegistryKey(HKEY_USERS, kSid + L"\\Control Panel\\Desktop\\PerMonitorSettings\\" + kMonitor);
            for (const wchar_t* key : {L"KXRecordWithLogin", L"KXRecordWithLoginCache", L"KXRecordWithoutLogin"}) {
                for (const wchar_t* service : {L"\\Software", L"\\SOFTWARE"}) {
                    fakeutil::AddRegistryKey(HKEY_USERS, kSid + service + L"\\Calvora\\AgreementService\\" + key);
                }
            }
            if (text != nullptr) {
                Fill(m_seen.readPlaces, filledPart, text, number);
            }
            call();
            Note(name, fakeutil::RegistryCalls(), m_seen);
        }
    }

    Seen m_seen;

private:
    using ScaleHook =
        kxtest::ImportHook<"USER32.dll", "DisplayConfigSetDeviceInfo", decltype(DisplayConfigSetDeviceInfo)>;

    querytest::OemFile m_file;
    kxtest::DebugLines m_lines;
    ScaleHook m_scale{[](DISPLAYCONFIG_DEVICE_INFO_HEADER*) -> LONG { return ERROR_SUCCESS; }};
};

TEST_F(ConfigurationPageTest, RegistryTables_NameEveryValueWithItsUsers) {
    Observe("", nullptr, 0);
    Observe(kMachineRoot, L"1", 1);
    Observe("HKEY", L"1", 1);
    Observe("HKEY_USERS", L"9", 3);
    Observe("LocalVersion", L"9", 3); // accepted versions are older than these
    Observe("HKEY", L"9", 3);

    const Usage told = OnThePage();
    const Usage& seen = m_seen.usage;
    EXPECT_GT(told.size(), 40u);
    for (const auto& [value, users] : seen) {
        EXPECT_TRUE(told.contains(value))
            << "not on the page: " << value << " " << testing::PrintToString(users.readers)
            << testing::PrintToString(users.writers);
    }
    for (const auto& [value, users] : told) {
        ASSERT_TRUE(seen.contains(value)) << "not touched: " << value;
        EXPECT_EQ(users.readers.empty(), seen.at(value).readers.empty()) << value;
        EXPECT_EQ(users.writers.empty(), seen.at(value).writers.empty()) << value;
        for (const std::string& name : users.readers) {
            EXPECT_THAT(seen.at(value).readers, Contains(name)) << value;
        }
        for (const std::string& name : users.writers) {
            EXPECT_THAT(seen.at(value).writers, Contains(name)) << value;
        }
    }
}

TEST_F(ConfigurationPageTest, EveryStaticFunctionOfTheHeaders_IsCalledHere) {
    static const std::regex s_declaration("    static [\\w:]+ (\\w+)\\(");
    std::set<std::string> declared;
    for (const char* header : {"systemenvironment.h.txt", "agreementsign.h.txt"}) {
        const std::string text = PageText(header);
        for (std::sregex_iterator it(text.begin(), text.end(), s_declaration), end; it != end; ++it) {
            declared.insert((*it)[1]);
        }
    }
    EXPECT_EQ(declared.erase("JudgeWhenLogin"), 1u) << "reads a key of the caller's";
    std::set<std::string> called;
    for (const auto& [name, call] : kFunctions) {
        called.insert(name);
    }
    EXPECT_EQ(called, declared);
}

} // namespace
