// The SID of the user whose token the process runs under.
#include "sdk/util/process.h"

#include "common/win/usersid.h"
#include "outofmemory.h"

#include <windows.h>

std::wstring KXPROCESS::GetCurrentUserSidstr() {
    std::wstring sid = kx::CurrentUserSid();
    if (sid.empty()) {
        kxutil::ThrowIfOutOfMemory(GetLastError());
    }
    return sid;
}
