// Notices the end of the Windows session. The window is an ordinary hidden one: a message-only window would not
// get the broadcast.
#include "worker/sessionend.h"

#include <utility>

namespace kxvcr {

namespace {

constexpr wchar_t kWindowClass[] = L"KXVCR.SessionEnd";

} // namespace

SessionEndWindow::SessionEndWindow(std::function<void()> onSessionEnd) : m_onSessionEnd(std::move(onSessionEnd)) {
    WNDCLASSEXW windowClass = {};
    windowClass.cbSize = sizeof(windowClass);
    windowClass.lpfnWndProc = WindowProcedure;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = kWindowClass;
    RegisterClassExW(&windowClass);
    m_window.Reset(
        CreateWindowExW(0, kWindowClass, L"KXVCR", 0, 0, 0, 0, 0, nullptr, nullptr, windowClass.hInstance, nullptr));
    if (m_window) {
        SetWindowLongPtrW(m_window.Get(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    }
}

LRESULT CALLBACK SessionEndWindow::WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<SessionEndWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message != WM_ENDSESSION || wParam == FALSE || self == nullptr) {
        return DefWindowProcW(window, message, wParam, lParam);
    }
    self->m_onSessionEnd();
    self->m_sessionEnded = true;
    return 0;
}

void SessionEndWindow::WaitFor(HANDLE event) {
    while (!m_sessionEnded && MsgWaitForMultipleObjects(1, &event, FALSE, INFINITE, QS_ALLINPUT) == WAIT_OBJECT_0 + 1) {
        MSG message;
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            DispatchMessageW(&message);
        }
    }
}

} // namespace kxvcr
