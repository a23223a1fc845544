// The end of the Windows session: told once, in the thread that waits, and the wait ends. The system tells it to the
// window, so the tests send the window what the system sends.
#include "worker/sessionend.h"

#include "common/win/handle.h"

#include <gtest/gtest.h>

#include <array>
#include <string_view>
#include <thread>

namespace {

constexpr UINT kMessageLimitMs = 10000;

struct SessionEnd : testing::Test {
    void SetUp() override { ASSERT_NE(WindowOfThisThread(), nullptr); }

    // The hidden window of this thread, as a session's end finds it.
    static HWND WindowOfThisThread() {
        HWND found = nullptr;
        EnumThreadWindows(GetCurrentThreadId(), &IsOwn, reinterpret_cast<LPARAM>(&found));
        return found;
    }

    // The system gives a thread with a window others of its own, such as the one of the input methods.
    static BOOL CALLBACK IsOwn(HWND window, LPARAM result) {
        std::array<wchar_t, 16> title{};
        GetWindowTextW(window, title.data(), static_cast<int>(title.size()));
        if (title.data() != std::wstring_view(L"KXVCR")) {
            return TRUE;
        }
        *reinterpret_cast<HWND*>(result) = window;
        return FALSE;
    }

    kx::KernelHandle event{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    int calls = 0;
    kxvcr::SessionEndWindow window{[this] { ++calls; }};
};

TEST_F(SessionEnd, EventSignalled_EndsTheWaitWithoutACall) {
    SetEvent(event.Get());
    window.WaitFor(event.Get());
    EXPECT_EQ(calls, 0);
}

TEST_F(SessionEnd, SessionThatEnds_IsToldAndEndsTheWait) {
    std::thread system([target = WindowOfThisThread()] {
        DWORD_PTR answer = 0;
        SendMessageTimeoutW(target, WM_ENDSESSION, TRUE, 0, SMTO_NORMAL, kMessageLimitMs, &answer);
    });
    window.WaitFor(event.Get());
    system.join();
    EXPECT_EQ(calls, 1);
}

// Another program may refuse the session's end; then the system takes it back.
TEST_F(SessionEnd, SessionThatGoesOn_IsNotTold) {
    SendMessageW(WindowOfThisThread(), WM_ENDSESSION, FALSE, 0);
    EXPECT_EQ(calls, 0);
}

TEST_F(SessionEnd, QuestionWhetherTheSessionMayEnd_IsAnsweredWithYes) {
    EXPECT_NE(SendMessageW(WindowOfThisThread(), WM_QUERYENDSESSION, 0, 0), 0);
    EXPECT_EQ(calls, 0);
}

TEST_F(SessionEnd, OtherMessages_DoNotEndTheWait) {
    PostMessageW(WindowOfThisThread(), WM_APP, 0, 0);
    std::thread later([this] { SetEvent(event.Get()); });
    window.WaitFor(event.Get());
    later.join();
    EXPECT_EQ(calls, 0);
}

} // namespace
