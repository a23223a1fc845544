/**
 * @file
 * What the system says about an error code.
 */
#pragma once

#include "common/win/handle.h"

#include <windows.h>

#include <string>

namespace kx {

/**
 * The system's sentence for @p code, in the user's language, without the full stop and the line end.
 * @return empty when the system has no sentence for it
 * @throws std::bad_alloc
 */
inline std::wstring SystemErrorText(DWORD code) {
    constexpr DWORD kFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    LocalBlock<wchar_t> block;
    // With ALLOCATE_BUFFER the argument is the address of the pointer, whatever its type says.
    const DWORD length =
        FormatMessageW(kFlags, nullptr, code, 0, reinterpret_cast<wchar_t*>(block.Receive()), 0, nullptr);
    if (length == 0) {
        return {};
    }
    std::wstring text(block.Get(), length);
    text.erase(text.find_last_not_of(L".\r\n ") + 1);
    return text;
}

} // namespace kx
