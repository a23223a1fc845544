/**
 * @file
 * Who the user is that owns the process.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>
// sddl.h needs the types of windows.h.
#include <sddl.h>

#include <array>
#include <cstddef>
#include <string>

namespace kx {

/**
 * The SID of the user whose token the process runs under, such as "S-1-5-18".
 * @return empty when the system does not tell; GetLastError has the reason
 * @throws std::bad_alloc
 */
inline std::wstring CurrentUserSid() {
    KernelHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive())) {
        return {};
    }
    alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> block{};
    DWORD size = 0;
    if (!GetTokenInformation(token.Get(), TokenUser, block.data(), static_cast<DWORD>(block.size()), &size)) {
        return {};
    }
    LocalBlock<wchar_t> text;
    if (!ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(block.data())->User.Sid, text.Receive())) {
        return {};
    }
    return text.Get();
}

} // namespace kx
