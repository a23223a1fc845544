/** @file The machine that the functions ask whose memory fails. */
#pragma once

#include "firmwaretable.h"
#include "onedisplay.h"
#include "support/scratchregistry.h"

#include <windows.h>

#include <string>

namespace integrationtest {

inline constexpr char kSerialNumber[] = "SN-0123456789-ABCDEF";
inline constexpr char kDefaultDeviceId[] = "21111111111111111111"; ///< what a machine without a number has
inline constexpr char kOemFile[] = "c:\\recovery\\OEM\\version.txt";
inline constexpr char kVictim[] = "a file of the suite that is long.bin";

/**
 * The machine that all functions ask: each arrangement makes it what it was, whatever a call has changed.
 * Every text is longer than what a string holds without asking for memory, where its source allows that.
 */
class Machine {
public:
    Machine();
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    std::wstring OfUser(const std::wstring& path) const { return m_sid + L"\\" + path; }
    void StoreUserText(const std::wstring& path, const std::wstring& name, const std::wstring& text) const;

    /** The whole registry; what calls have written is gone. */
    void Arrange();

    /** Of the registry only what the display's scaling depends on: a small one is made again in little time. */
    void ArrangeScaling();

    /** The expiry mark of the user's clause. */
    void ExpireClause() const;

    /** The display scaling that was recorded under @p release. */
    void RecordScaling(const std::wstring& release, DWORD dpi, DWORD step) const;

    OneDisplay display;

private:
    void StoreVersions(const std::wstring& below) const;

    std::wstring m_sid;
    kxtest::MappedRoot m_machine{HKEY_LOCAL_MACHINE, L"machine"};
    kxtest::MappedRoot m_users{HKEY_USERS, L"users"};
    firmwaretest::MachineTable m_table;
};

} // namespace integrationtest
