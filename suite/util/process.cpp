// The SID of the user whose token the process runs under.
#include "sdk/util/process.h"

#include "common/win/usersid.h"
#include "outofmemory.h"

#include <windows.h>

#include <atomic>
#include <memory>

namespace {

/** Belongs to the process; null until the system has told it once. */
std::atomic<const std::wstring*> g_sid{nullptr};

} // namespace

// The user of a process's token is the same for as long as the process lives, and asking for it costs as much as
// reading a registry value, so that an answer is kept. A failure is not: the next call asks again.
std::wstring KXPROCESS::GetCurrentUserSidstr() {
    if (const std::wstring* const known = g_sid.load(std::memory_order_acquire)) {
        return *known;
    }
    std::wstring sid = kx::CurrentUserSid();
    if (sid.empty()) {
        kxutil::ThrowIfOutOfMemory(GetLastError());
        return sid;
    }
    auto kept = std::make_unique<const std::wstring>(sid);
    const std::wstring* none = nullptr;
    if (g_sid.compare_exchange_strong(none, kept.get())) {
        static_cast<void>(kept.release());
    }
    return sid;
}
