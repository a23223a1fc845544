/**
 * @file
 * The windows that the end-to-end tests put on the screen: without a frame, above all others.
 */
#pragma once

#include <windows.h>

namespace kxtest {

/**
 * Shows a window of a class of its own.
 * @param style besides WS_POPUP and WS_VISIBLE
 * @return null when it cannot be shown
 */
inline HWND ShowTopWindow(const wchar_t* className, WNDPROC onMessage, const wchar_t* title, const RECT& place,
                          DWORD style = 0) {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = onMessage;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = className;
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    if (RegisterClassW(&windowClass) == 0) {
        return nullptr;
    }
    const HWND window = CreateWindowExW(WS_EX_TOPMOST, className, title, WS_POPUP | WS_VISIBLE | style, place.left,
                                        place.top, place.right - place.left, place.bottom - place.top, nullptr, nullptr,
                                        windowClass.hInstance, nullptr);
    return window != nullptr && UpdateWindow(window) ? window : nullptr;
}

/** Hands out this thread's messages until its window is gone. */
inline void AnswerMessages() {
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        DispatchMessageW(&message);
    }
}

} // namespace kxtest
