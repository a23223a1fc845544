/**
 * @file
 * SystemEnvironment: questions about the machine and the installed suite.
 *
 * Every function reads its sources afresh (GetDeviceId alone remembers its answer), may be called from any thread and
 * throws nothing: a failure is the documented value, and where a function is said to report it, one line on the
 * debugger output (OutputDebugStringW). A line is the quoted text and its values, the function's qualified name in
 * parentheses and a line feed. When memory runs out the result is the failure value, a line may be missing but is never
 * cut, and nothing is written on the strength of a value that could not be read.
 *
 * "Narrow" is the process's ANSI code page unless UTF-8 is said. Registry keys are opened with KEY_ALL_ACCESS, also
 * to read, unless another mask is named; a user who is not granted that gets the failure value. Settings of the
 * current user are read under HKEY_USERS, below the SID of the user who owns the process; "SID" in a key stands for it.
 */
#pragma once

#include "kxexport.h"

#include <cstdint>
#include <string>

class KxXmlElement;

/** System queries that the suite's modules share. The class has only static members. */
class KXSCREENRECORD_API SystemEnvironment {
public:
    /**
     * Verifies a file in or below the host executable's folder against the suite's SHA-256 manifest,
     * "config\CheckFileIntergrity.xml" in the same folder. Both are read afresh on each call.
     * @param fileName path relative to the host executable's folder, in the ANSI code page, written exactly as
     *        in the manifest, e.g. "KXVCR.exe"
     * @return true only when the file and the manifest exist and an entry for the file carries its digest.
     *         Every other outcome is false; most leave a line on the debugger output that says why.
     */
    static bool CompareFileIntergrity(const std::string& fileName) noexcept;

    /**
     * @name Consent, settings and switches
     * @{
     */

    /**
     * Whether a function of the suite is switched on for this device model. The switches are read afresh from
     * "config\DeviceFuncSwitchConf.xml" in the host executable's folder: below the root element of any name, the
     * first element named @p groupName; below that, the first element named @p funcName. Its text is the switch
     * (as atoi reads it, 1 means on) and its attribute "support" limits it to products.
     * @param groupName name of the group element
     * @param funcName name of the function element
     * @return true when the switch is on and the product is supported (IsProductInSupportList). False otherwise,
     *         also when the file or an element is missing; a file that cannot be parsed or has no root element is
     *         reported on the debugger output.
     */
    static bool IsSupportDeviceFunc(const std::string& groupName, const std::string& funcName) noexcept;

    /**
     * Whether the automatic repair is on for the current user: the agreement clause is accepted (IsAgreeClause) and
     * the DWORD "AutoRepair" of HKEY_USERS, "SID\SOFTWARE\Calvora\setting" is 1.
     * @return false also when the value is missing or the user may not open the key for full access
     */
    static bool IsAutoRepairEnabled() noexcept;

    /**
     * The agreement clause as the current user accepted it in the login guide, if that still holds: the text
     * "Protocol" of HKEY_USERS, "SID\SOFTWARE\Calvora\KXLoginGuide". It holds when
     * - the user's expiry mark, the text named by the SID in HKEY_LOCAL_MACHINE,
     *   "SOFTWARE\Calvora\setting\expireLogin", is not "1",
     * - the text "ProtocolVer" beside "Protocol", opened with KEY_READ, is a number of at least 9, read as std::stoul
     *   does (a negative number wraps to a large one, what follows the digits is ignored), and
     * - AgreementSign::JudgeAgreementSign() answers neither kNoRecord nor kMustSignAgain.
     *
     * A clause that has expired is reset: "0" is written to "Protocol", and a line on the debugger output names the
     * user, on every call until the mark is removed. What the user may not open counts as missing.
     * @return the stored text as it is, in the ANSI code page, or "0" when the clause is not or no longer accepted
     *         or on any failure
     */
    static std::string IsAgreeClause() noexcept;

    /**
     * The text "Protocol" of HKEY_USERS, "SID\SOFTWARE\Calvora\KXLoginGuide", without regard to the expiry mark and to
     * the agreement judgement of IsAgreeClause.
     * @return the stored text in UTF-8; "0" when it is missing or empty or may not be opened for full access, when
     *         "ProtocolVer" is not at least 9, or on any failure
     */
    static std::string GetLoginGuideProtocol() noexcept;

    /**
     * The power manager's intelligent mode: the text "PowerManagerIntellMode" of
     * HKEY_LOCAL_MACHINE, "Software\Calvora\ZLKPowerManager".
     * @return the value in UTF-8; "1" when it is missing or empty
     */
    static std::string GetPowerManagerIntellMode() noexcept;

    /**
     * The current user's capture switch: the text "Capture" of HKEY_USERS, "SID\SOFTWARE\Calvora\KXLoginGuide".
     * @return the value; "0" when it is missing or empty
     */
    static std::wstring GetCaptureSwitch() noexcept;

    /**
     * Whether Windows writes a kernel memory dump when it crashes: the DWORD "CrashDumpEnabled" of
     * HKEY_LOCAL_MACHINE, "SYSTEM\CurrentControlSet\Control\CrashControl" is 2.
     * @return false for every other value and when it is missing
     */
    static bool IsKernelCrashDumpEnabled() noexcept;

    /**
     * A DWORD of HKEY_LOCAL_MACHINE, "SYSTEM\CurrentControlSet\Control\Session Manager\Power".
     * @param name the value's name
     * @return the value, its 32 bits taken as signed; -1 when it cannot be read, which a stored 0xFFFFFFFF is as well
     */
    static int GetSessionPowerValue(std::wstring name) noexcept;

    /**
     * Raises a small memory dump to a kernel memory dump: changes the DWORD "CrashDumpEnabled" of
     * HKEY_LOCAL_MACHINE, "SYSTEM\CurrentControlSet\Control\CrashControl" from 3 to 2. Every other value is left
     * alone. A failed write is ignored.
     */
    static void FixSmallCrashDump() noexcept;

    /**
     * The log switch: the text "LogSwitch" of HKEY_LOCAL_MACHINE, "SOFTWARE\Calvora\KXLoginGuide".
     * @return the value in UTF-8; "0" when it is missing or empty
     */
    static std::string GetLogSwitch() noexcept;

    /**
     * Writes the log switch that GetLogSwitch reads, "1" for on and "0" for off.
     * @return whether it was written, which takes administrative rights
     */
    static bool SetLogSwitch(bool on) noexcept;

    /**
     * The firmware setting: the text "Fireware" (spelled so) of HKEY_LOCAL_MACHINE, "SOFTWARE\Calvora\KXLoginGuide".
     * @return the value in UTF-8; "0" when it is missing or empty
     */
    static std::string GetFirewareValue() noexcept;

    /**
     * The secondary SKU of the machine, from its SMBIOS table.
     * @return the SKU in lower case, in the ANSI code page. An empty string when there is none, when it is the system
     *         SKU (byte for byte, case included), or when either cannot be converted.
     */
    static std::string GetSecondarySku() noexcept;

    /** @} */

    /**
     * @name Product features
     * Whether the product has a feature, as the utility library's feature service says. Each is false when the service
     * does not know. A code other than 0 from the service is reported as "result=", the code, a label, and the flag as
     * 0 or 1; it does not change the answer, which is the flag as the service left it.
     * @{
     */
    /** Fingerprint reader. */
    static bool IsSupportFingerPrint() noexcept;
    /** Three-finger screenshot gesture. */
    static bool IsSupportTrifingerSnipper() noexcept;
    /** Wi-Fi switched over a GPIO line. */
    static bool IsSupportWifiGpio() noexcept;
    /** Wi-Fi repair by the firmware. */
    static bool IsSupportWifiBiosRepair() noexcept;
    /** Bluetooth switched over a GPIO line. */
    static bool IsSupportBtGpio() noexcept;
    /** Processor power setting. */
    static bool IsSupportCPUPower() noexcept;
    /** Keyboard backlight. */
    static bool IsSupportKeyboardLight() noexcept;
    /** Energy Star. */
    static bool IsSupportEnergyStar() noexcept;
    /** Local manual data. The line reads "result = ", the code, "; IsSupportLocalManual =", the flag. */
    static bool IsSupportSQGData() noexcept;
    /**
     * Time-back: the feature, and the plug-in "SynergyPYP" on the software shelf.
     * A missing plug-in is not reported.
     */
    static bool IsSupportTimeBack() noexcept;
    /** VR assistant. */
    static bool IsSupportVrAssisant() noexcept;
    /** Live broadcast. */
    static bool IsSupportLiveBroadcast() noexcept;
    /** Office check. */
    static bool IsSupportOfficeCheck() noexcept;
    /** Integrated graphics. */
    static bool IsSupportIntegratedGraphics() noexcept;
    /** Survey pop-up. */
    static bool IsSupportNpsPop() noexcept;
    /** @} */

    /**
     * @name Product identity
     * @{
     */

    /**
     * The product's name, from the machine-type service, in UTF-8.
     * @return the name as the service left it, normally empty on failure; a failing service or an empty name is
     *         reported as "fail to get product name. result:" and the service's code
     */
    static std::string GetDeviceTypeEx() noexcept;

    /**
     * The product's name in the sharing service, from the promotion parameters "default".
     * @return an empty string on failure, reported as "fail to get product promote param info. result:" and the code
     */
    static std::wstring GetProductNameForKxshare() noexcept;

    /**
     * The product series: GetOEMVersion up to its first "-", looked up with case in the product's series table.
     * @return "other" when the version has no "-" or the table does not list the prefix; not reported
     */
    static std::string GetProductSeries() noexcept;

    /**
     * The SKU code.
     * @return the SMBIOS system SKU as it is, when it holds a "C"; else up to four characters of GetOEMVersion from its
     *         first "C"; else an empty string. Not reported.
     */
    static std::string GetSystemSkuCode() noexcept;

    /**
     * The product code: the UTF-16 units at positions 7 and 8 (from 0) of SMBIOS OEM string 1.
     * @param[out] code the two units, the first in the low half; untouched when there is no code. Not null.
     * @return 1, or 0 when the string does not begin with "$ORV" or has fewer than nine characters; not reported
     */
    static int GetOemProductCode(std::uint32_t* code) noexcept;

    /** The product code of GetOemProductCode as its two characters; an empty string when there is none. */
    static std::wstring GetOemProductCodeString() noexcept;

    /**
     * A name for a diagnostic log package: "PC", @p leadingText, GetOEMVersion, GetBIOSVersion, GetDeviceId, the local
     * time as YYYYMMDDhhmmss, @p trailingText, GetStringNameById(@p logTypeId) and five random characters, joined by
     * "_" but for a "-" before the log type's name. Empty parts keep their separators.
     * @return an empty string only when memory runs out. What the queries inside report is reported under their names.
     */
    static std::string GetLogPackageName(const std::string& trailingText, int logTypeId,
                                         const std::string& leadingText) noexcept;

    /** The name of GetLogPackageName with ".zip" after it. */
    static std::string GetLogPackageZipName(const std::string& trailingText, int logTypeId,
                                            const std::string& leadingText) noexcept;

    /** Whether the machine runs on mains power; false when that is unknown. Not reported. */
    static bool IsOnAcPower() noexcept;

    /** Whether the native processor architecture is another than Itanium. */
    static bool IsNotIa64System() noexcept;

    /** @} */

    /**
     * @name Windows and product version
     * @{
     */

    /**
     * The name of the Windows product, narrow, such as "Windows 10 Pro".
     *
     * This and the next three come from HKEY_LOCAL_MACHINE, "Software\Microsoft\Windows NT\CurrentVersion"; here
     * from the text "ProductName". A text may have 127 characters; a longer one counts as empty, reported as
     * "strcpy_s fail".
     * @return an empty string on failure. A failed read is reported as "Get registry value fail", a failed conversion
     *         is not reported.
     */
    static std::string GetOSVersion() noexcept;

    /**
     * The release of Windows, narrow, from the text "ReleaseId". Limit and key as in GetOSVersion.
     * @return an empty string on failure; only a text that is too long is reported
     */
    static std::string GetOSReleaseId() noexcept;

    /**
     * The build branch of Windows, narrow, from the text "BuildBranch". Limit and key as in GetOSVersion.
     * @return an empty string on failure; only a text that is too long is reported
     */
    static std::string GetOSBuildBranch() noexcept;

    /**
     * The build and its update revision, such as "19041.1237": the text "BuildLabEx" up to its first ".", a "." and
     * the number "UBR". Limit and key as in GetOSVersion. A "BuildLabEx" without "." or of more than 127 characters
     * leaves the build empty and yields "." and the revision.
     * @return an empty string when either value cannot be read; only a text that is too long is reported
     */
    static std::string GetOSBuildVersion() noexcept;

    /**
     * The version of the product, from HKEY_LOCAL_MACHINE, "HARDWARE\DESCRIPTION\System\Product", the text "Version",
     * narrow and cleaned by TrimOemVersion. It may have 62 characters before cleaning; a longer one counts as empty,
     * which is not reported.
     * @return an empty string on failure. A failed read is reported as "Registry GetValue fail", a failed conversion
     *         as "WcharToChar fail".
     */
    static std::string GetVersionFromRegistry() noexcept;

    /**
     * The running Windows on one line, narrow: platform, version and service pack, such as "Microsoft Windows
     * NT 6.2.9200.0" or "Microsoft Windows NT 6.1.7601 Service Pack 1". It is the version that Windows shows to this
     * process, which on newer systems depends on the process's manifest. The line ends after 256 bytes.
     * @return an empty string on failure, reported as "GetVersionEx failed error code " and the system's error
     */
    static std::string OSVersion() noexcept;

    /** @} */

    /**
     * @name Firmware and device identity
     * @{
     */

    /**
     * The firmware's version up to its second ".", narrow: "1.23.45" gives "1.23". It comes from HKEY_LOCAL_MACHINE,
     * "HARDWARE\DESCRIPTION\System\BIOS", the text "BIOSVersion", and may have 127 characters before it is cut; a
     * longer one counts as empty, reported as "strcpy_s byteArray fail".
     * @return an empty string on failure; no other failure is reported
     */
    static std::string GetBIOSVersion() noexcept;

    /**
     * The device's identifier, which is the firmware's serial number, narrow. Sources in this order:
     * - the answer of an earlier call in this process, which is kept until the process ends;
     * - HKEY_LOCAL_MACHINE, "HARDWARE\DESCRIPTION\System\BIOS", the text "BIOSSerialNumber", of at most 63 characters;
     *   a longer one is reported as "strcpy_s fail" and yields the default;
     * - WMI, "ROOT\CIMV2", Win32_BIOS, SerialNumber, of any length, when the registry has none. The answer is written
     *   to that registry value.
     * @return "21111111111111111111" when the source yields nothing or memory runs out, which is not kept: the next
     *         call asks again. An empty string only when memory has run out for a second call as well.
     */
    static std::string GetDeviceId() noexcept;

    /**
     * The version text of the SMBIOS system record, narrow.
     * @param[out] version the text; empty on failure
     * @return whether there is such a text; a failure is not reported
     */
    static bool GetBIOSSysVersion(std::string& version) noexcept;

    /**
     * The version of the OEM image, narrow and cleaned by TrimOemVersion. The text of "c:\recovery\OEM\version.txt"
     * (UTF-16 with a byte-order mark, as GetUnicodeString reads it, else narrow) is first copied to the registry; a
     * file that is missing or yields no text leaves the registry alone.
     * @return what GetVersionFromRegistry then yields. Both functions report under their own names.
     */
    static std::string GetOEMVersion() noexcept;

    /** @} */

    /**
     * @name Registry, text and locale helpers
     * @{
     */

    /**
     * Reads a value of the suite's per-user settings as it is stored: HKEY_USERS, the user's SID,
     * "\SOFTWARE\Orvane\Calvora\setting".
     * @param valueName not empty
     * @param buffer receives the bytes; untouched on failure. Not null.
     * @param size bytes that fit into @p buffer; a longer value is a failure
     * @return whether the value was read. An empty name or a null buffer is reported as "key name is empty or out value
     *         ptr is null", a failed read is not.
     */
    static bool ReadValue(const std::wstring& valueName, void* buffer, int size) noexcept;

    /**
     * Reads a 32-bit number of the suite's per-user settings.
     * @return the number, or -1 when it cannot be read; not reported
     */
    static int ReadValue(const std::wstring& valueName) noexcept;

    /**
     * Whether "c:\recovery\OEM\version.txt" begins with a UTF-16 byte-order mark, of either order.
     * @return false also for a file that is shorter or cannot be opened; not reported
     */
    static bool IsFileUnicode() noexcept;

    /**
     * The text of "c:\recovery\OEM\version.txt" after its first two bytes, which are taken for the byte-order mark. The
     * units are as stored, in little-endian order, whatever the mark says.
     * @return an empty string when the file cannot be opened or has no more than two bytes, which is not reported, and
     *         when its length is odd, reported as "memcpy_s fail err:" and the error number
     */
    static std::wstring GetUnicodeString() noexcept;

    /**
     * The user's locale name in UTF-8, such as "de-DE": HKEY_USERS, "SID\Control Panel\International",
     * the text "LocaleName".
     * @return "en-US" when it cannot be read or is empty, and always for the local system account; not reported
     */
    static std::string GetUserLocaleName() noexcept;

    /**
     * The user's locale name as GetUserLocaleName reads it, also for the local system account.
     * @return "zh-CN" when it cannot be read or is empty; not reported
     */
    static std::string GetUserLocaleNameCN() noexcept;

    /**
     * The display name of a log type, in UTF-8, from "config\LogType.xml" in the folder of the loaded Util.dll:
     * the attribute "Value" (empty when missing) of the first element below the root, from the first "Item" on, whose
     * attribute "ID" is @p id. The attribute is read as atoi reads it: "07" is 7, text is 0.
     * @return "null" when no element has the id or the file has no root, and when the file cannot be loaded, which is
     *         reported as "load xml file failed"
     */
    static std::string GetStringNameById(int id) noexcept;

    /** @} */

    /**
     * @name Display scaling
     * @{
     */

    /**
     * Sets the scaling of the display on the first active path; other displays stay as they are.
     * @param scaleStep scaling step, relative to the one that Windows recommends for the display
     * @return 1 when Windows accepted the step, else 0. A failed display call is reported as its name, " fail:", the
     *         system's error, ", status= " and the call's status; no memory for the modes as
     *         "calloc  display_modes fail:". No memory for the paths, or no active path, is not reported.
     */
    static int ApplyDpiSetting(int scaleStep) noexcept;

    /**
     * The display scaling in force.
     * @param[out] systemDpi the system DPI in dots per inch; always written. Not null.
     * @param[out] dpiValue the scaling step of the first monitor that Windows keeps one for: the number "DpiValue" of
     *        HKEY_USERS, "SID\Control Panel\Desktop\PerMonitorSettings", its first subkey. Untouched on failure. Not
     *        null.
     * @return whether @p dpiValue was read. No subkey is reported as "GetLastestSystemDpi error: no-sub-keys", a subkey
     *         without the number as "GetLastestSystemDpi error: no-sub -keys".
     */
    static bool GetLastestSystemDpi(int* systemDpi, int* dpiValue) noexcept;

    /**
     * Records the display scaling for the user: HKEY_USERS, the user's SID, "\Software\Calvora\LastestSetting", the
     * numbers "LastestDPIIndex" and "LastestDPIValue", written in this order.
     * @param dpiValue system DPI in dots per inch
     * @param dpiIndex scaling step of the monitor
     * @return true only when both were written now. False when the record already holds both, which is not reported,
     *         and when a write fails, reported as "SaveLastestSystemDpierror: DE::Registry::SetIndex fail.step" or
     *         "SaveLastestSystemDpi error: DE::Registry::SetValue fail.step".
     */
    static bool SaveLastestSystemDpi(int dpiValue, int dpiIndex) noexcept;

    /**
     * Brings the record of SaveLastestSystemDpi up to date, or puts the recorded scaling back: the latter when the
     * release (GetOSReleaseId) is no longer the recorded "LastestOSVersion" and the system DPI is no longer the
     * recorded one. "LastestOSVersion" is rewritten whenever it differs. For one caller at a time.
     * @param stepOffset added to the recorded step before ApplyDpiSetting
     * @return true when the recorded scaling was applied; false when that failed, reported as "RestoreSystemDpi error:
     *         ApplyDpiSetting fail:" and the system's error; in every other case what SaveLastestSystemDpi returned.
     *         Reported as well: a release that cannot be read from the record ("RestoreSystemDpi Warning: GetValue
     *         failed."), a changed release ("RestoreSystemDpi ok: sysversion changed to " and the release) and a
     *         record that is not there yet ("RestoreSystemDpi Warning: first save dpi value.").
     */
    static bool RestoreSystemDpi4Common(int stepOffset) noexcept;

    /** RestoreSystemDpi4Common with the product's offset: -2 for product index 4, -1 for every other. */
    static bool RestoreSystemDpi() noexcept;

    /** @} */
};

/**
 * Builds the paths of a file and of the integrity manifest and tests that both exist.
 * @param fileName path relative to the base folder
 * @param[in,out] filePath the base folder on entry; the file's path on return
 * @param[in,out] xmlPath the base folder on entry; the manifest's path on return, or still the base folder when
 *                the file does not exist
 * @return whether both exist; a missing one is reported on the debugger output
 */
KXSCREENRECORD_API bool CheckFileAndXmlExist(const std::string& fileName, std::string& filePath,
                                             std::string& xmlPath) noexcept;

/**
 * Whether a function switch applies to the current product, by the element's attribute "support": a list of product
 * names, each followed by ";", the last one included. The product's name with its ";" is searched for anywhere in the
 * list, case-sensitive: a listed name that ends with the product's name matches as well.
 * @param function the function's element in the switch file
 * @return true without the attribute or with an empty one, and when the product is found; false when it is not, or
 *         when the product's name is unknown or empty
 */
KXSCREENRECORD_API bool IsProductInSupportList(const KxXmlElement& function) noexcept;

/**
 * Pads a firmware version of two parts to two digits a side, as the suite compares them: "1.5" gives "01.05" and "1.25"
 * gives "01.25". The digit on the right is placed by the length of the text as given, so that "12.5" gives "12.505".
 * @param[in,out] version text that is cut at its second "."; may be null
 * @return an empty string for a null @p version; a text without "." unchanged. A text of more than 127 characters (126
 *         after the padding zero) cannot be copied, which is reported as "strcpy_s fail" and leaves only the padding.
 */
KXSCREENRECORD_API std::string ParseBIOSVersionOfPadLeft(char* version) noexcept;

/**
 * Cleans an OEM version: without control characters, without blanks around it, cut before its first "_".
 * @return an empty string for a null @p eomVersion, reported as "TrimOemVersion parameter: eomVersion is nullptr"
 */
KXSCREENRECORD_API std::string TrimOemVersion(const char* eomVersion) noexcept;
