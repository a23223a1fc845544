// The SID of the user whose token the process runs under.
#include "sdk/util/process.h"

#include "common/win/usersid.h"

#include <exception>

std::wstring KXPROCESS::GetCurrentUserSidstr() try { return kx::CurrentUserSid(); } catch (const std::exception&) {
    return {};
}
