// The SID of the user whose token the process runs under.
#include "sdk/util/process.h"

#include "owned.h"

#include <windows.h>
// sddl.h needs the types of windows.h.
#include <sddl.h>

#include <exception>
#include <vector>

std::wstring KXPROCESS::GetCurrentUserSidstr() try {
    kxutil::OwnedKernelHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive())) {
        return {};
    }
    DWORD size = 0;
    if (!GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &size) &&
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return {};
    }
    std::vector<unsigned char> user(size);
    if (size < sizeof(TOKEN_USER) || !GetTokenInformation(token.Get(), TokenUser, user.data(), size, &size)) {
        return {};
    }
    kxutil::OwnedLocalText text;
    if (!ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, text.Receive())) {
        return {};
    }
    return text.Get();
} catch (const std::exception&) {
    return {};
}
