/**
 * @file
 * SystemEnvironment: questions about the machine and the installed suite.
 *
 * Every function is stateless, may be called from any thread and throws nothing: a failure is the documented
 * value, and where a function is said to report it, one line on the debugger output (OutputDebugStringW).
 *
 * Settings of the current user are read under HKEY_USERS, below the SID of the user who owns the process; "SID" in a
 * key stands for it.
 */
#pragma once

#include "kxexport.h"

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
    static bool CompareFileIntergrity(const std::string& fileName);

    // Consent, settings and switches

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
    static bool IsSupportDeviceFunc(const std::string& groupName, const std::string& funcName);

    /**
     * Whether the automatic repair is on for the current user: the agreement clause is accepted (IsAgreeClause) and
     * the DWORD "AutoRepair" of HKEY_USERS, "SID\SOFTWARE\Calvora\setting" is 1.
     * @return false also when the value is missing or the user may not open the key for full access
     */
    static bool IsAutoRepairEnabled();

    /**
     * The agreement clause as the current user accepted it in the login guide, if that still holds: the text
     * "Protocol" of HKEY_USERS, "SID\SOFTWARE\Calvora\KXLoginGuide". It holds when
     * - the user's expiry mark, the text named by the SID in HKEY_LOCAL_MACHINE,
     *   "SOFTWARE\Calvora\setting\expireLogin", is not "1",
     * - the text "ProtocolVer" beside "Protocol" is a number of at least 9, read as std::stoul does (a negative number
     *   wraps to a large one, what follows the digits is ignored), and
     * - AgreementSign::JudgeAgreementSign() answers neither kNoRecord nor kMustSignAgain.
     *
     * A clause that has expired is reset: "0" is written to "Protocol", and a line on the debugger output names the
     * user, on every call until the mark is removed. The mark and "Protocol" are opened for full access; what the
     * user may not open so counts as missing.
     * @return the stored text as it is, in the ANSI code page, or "0" when the clause is not or no longer accepted
     *         or on any failure
     */
    static std::string IsAgreeClause();

    /**
     * The text "Protocol" of HKEY_USERS, "SID\SOFTWARE\Calvora\KXLoginGuide", without regard to the expiry mark and to
     * the agreement judgement of IsAgreeClause.
     * @return the stored text in UTF-8; "0" when it is missing or empty or may not be opened for full access, when
     *         "ProtocolVer" is not at least 9, or on any failure
     */
    static std::string GetLoginGuideProtocol();

    /*
     * Single settings. Every key is opened for full access (KEY_ALL_ACCESS): without that right a value counts as
     * missing, and a write fails.
     */

    /**
     * The power manager's intelligent mode: the text "PowerManagerIntellMode" of
     * HKEY_LOCAL_MACHINE, "Software\Calvora\ZLKPowerManager".
     * @return the value in UTF-8; "1" when it is missing or empty
     */
    static std::string GetPowerManagerIntellMode();

    /**
     * The current user's capture switch: the text "Capture" of HKEY_USERS, "SID\SOFTWARE\Calvora\KXLoginGuide".
     * @return the value; "0" when it is missing or empty
     */
    static std::wstring GetCaptureSwitch();

    /**
     * Whether Windows writes a kernel memory dump when it crashes: the DWORD "CrashDumpEnabled" of
     * HKEY_LOCAL_MACHINE, "SYSTEM\CurrentControlSet\Control\CrashControl" is 2.
     * @return false for every other value and when it is missing
     */
    static bool IsKernelCrashDumpEnabled();

    /**
     * A DWORD of HKEY_LOCAL_MACHINE, "SYSTEM\CurrentControlSet\Control\Session Manager\Power".
     * @param name the value's name
     * @return the value, its 32 bits taken as signed; -1 when it cannot be read, which a stored 0xFFFFFFFF is as well
     */
    static int GetSessionPowerValue(std::wstring name);

    /**
     * Raises a small memory dump to a kernel memory dump: changes the DWORD "CrashDumpEnabled" of
     * HKEY_LOCAL_MACHINE, "SYSTEM\CurrentControlSet\Control\CrashControl" from 3 to 2. Every other value is left
     * alone. A failed write is ignored.
     */
    static void FixSmallCrashDump();

    /**
     * The log switch: the text "LogSwitch" of HKEY_LOCAL_MACHINE, "SOFTWARE\Calvora\KXLoginGuide".
     * @return the value in UTF-8; "0" when it is missing or empty
     */
    static std::string GetLogSwitch();

    /**
     * Writes the log switch that GetLogSwitch reads, "1" for on and "0" for off.
     * @return whether it was written, which takes administrative rights
     */
    static bool SetLogSwitch(bool on);

    /**
     * The firmware setting: the text "Fireware" (spelled so) of HKEY_LOCAL_MACHINE, "SOFTWARE\Calvora\KXLoginGuide".
     * @return the value in UTF-8; "0" when it is missing or empty
     */
    static std::string GetFirewareValue();

    /**
     * The secondary SKU of the machine, from its SMBIOS table.
     * @return the SKU in lower case, in the ANSI code page. An empty string when there is none, when it is the system
     *         SKU (byte for byte, case included), or when either cannot be converted.
     */
    static std::string GetSecondarySku();
};

/**
 * Builds the paths of a file and of the integrity manifest and tests that both exist.
 * @param fileName path relative to the base folder
 * @param[in,out] filePath the base folder on entry; the file's path on return
 * @param[in,out] xmlPath the base folder on entry; the manifest's path on return, or still the base folder when
 *                the file does not exist
 * @return whether both exist; a missing one is reported on the debugger output
 */
KXSCREENRECORD_API bool CheckFileAndXmlExist(const std::string& fileName, std::string& filePath, std::string& xmlPath);

/**
 * Whether a function switch applies to the current product, by the element's attribute "support": a list of product
 * names, each followed by ";", the last one included. The product's name with its ";" is searched for anywhere in the
 * list, case-sensitive: a listed name that ends with the product's name matches as well.
 * @param function the function's element in the switch file
 * @return true without the attribute or with an empty one, and when the product is found; false when it is not, or
 *         when the product's name is unknown or empty
 */
KXSCREENRECORD_API bool IsProductInSupportList(const KxXmlElement& function);
