// Real windows: what the system says of them in each state.
#include "worker/capture/systemwindow.h"

#include "common/win/owner.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using kx::WindowState;
using kxvcr::SystemWindow;
using Window = kx::Owner<kx::FreedBy<HWND, &DestroyWindow>>;

constexpr wchar_t kClass[] = L"Static";
constexpr RECT kFrame = {100, 80, 420, 320};

Window MakeWindow(DWORD style, HWND parent = nullptr, const RECT& frame = kFrame) {
    return Window(CreateWindowExW(0, kClass, L"a window", style, frame.left, frame.top, frame.right - frame.left,
                                  frame.bottom - frame.top, parent, nullptr, nullptr, nullptr));
}

WindowState StateOf(HWND window) {
    return SystemWindow(window).Look().state;
}

TEST(SystemWindow, ShownWindow_HasItsFrameWhereverItMoves) {
    const Window window = MakeWindow(WS_POPUP | WS_VISIBLE);
    SystemWindow watched(window.Get());
    const kx::WindowView first = watched.Look();
    EXPECT_EQ(first.state, WindowState::Shown);
    EXPECT_TRUE(EqualRect(&first.frame, &kFrame));

    constexpr RECT kMoved = {-30, 200, 610, 300};
    MoveWindow(window.Get(), kMoved.left, kMoved.top, kMoved.right - kMoved.left, kMoved.bottom - kMoved.top, FALSE);
    const kx::WindowView second = watched.Look();
    EXPECT_EQ(second.state, WindowState::Shown);
    EXPECT_TRUE(EqualRect(&second.frame, &kMoved));
}

TEST(SystemWindow, WindowThatIsMinimizedAndRestored_IsTheSameAgain) {
    const Window window = MakeWindow(WS_POPUP | WS_VISIBLE | WS_MINIMIZEBOX);
    SystemWindow watched(window.Get());
    ShowWindow(window.Get(), SW_MINIMIZE);
    EXPECT_EQ(watched.Look().state, WindowState::Minimized);
    ShowWindow(window.Get(), SW_RESTORE);
    const kx::WindowView view = watched.Look();
    EXPECT_EQ(view.state, WindowState::Shown);
    EXPECT_TRUE(EqualRect(&view.frame, &kFrame));
}

TEST(SystemWindow, WindowThatIsNotShown_IsHidden) {
    const Window window = MakeWindow(WS_POPUP);
    EXPECT_EQ(StateOf(window.Get()), WindowState::Hidden);
}

TEST(SystemWindow, WindowWithoutPixels_IsEmpty) {
    const Window window = MakeWindow(WS_POPUP | WS_VISIBLE, nullptr, {100, 80, 100, 320});
    EXPECT_EQ(StateOf(window.Get()), WindowState::Empty);
}

TEST(SystemWindow, WindowsOfAnotherKind_AreNotTopLevel) {
    const Window parent = MakeWindow(WS_POPUP | WS_VISIBLE);
    const Window child = MakeWindow(WS_CHILD | WS_VISIBLE, parent.Get());
    const Window messageOnly = MakeWindow(0, HWND_MESSAGE);
    EXPECT_EQ(StateOf(child.Get()), WindowState::NotTopLevel);
    EXPECT_EQ(StateOf(messageOnly.Get()), WindowState::NotTopLevel);
    EXPECT_EQ(StateOf(GetDesktopWindow()), WindowState::NotTopLevel);
}

TEST(SystemWindow, OwnedWindow_IsTopLevel) {
    const Window owner = MakeWindow(WS_POPUP | WS_VISIBLE);
    const Window dialog = MakeWindow(WS_POPUP | WS_VISIBLE, owner.Get());
    EXPECT_EQ(StateOf(dialog.Get()), WindowState::Shown);
}

TEST(SystemWindow, NumberThatIsNoWindow_IsGone) {
    EXPECT_EQ(StateOf(nullptr), WindowState::Gone);
    EXPECT_EQ(StateOf(kx::WindowOfNumber(0x00FFFFFE)), WindowState::Gone);
}

TEST(SystemWindow, ClosedWindow_IsGone) {
    Window window = MakeWindow(WS_POPUP | WS_VISIBLE);
    SystemWindow watched(window.Get());
    EXPECT_EQ(watched.Look().state, WindowState::Shown);
    window.Reset();
    EXPECT_EQ(watched.Look().state, WindowState::Gone);
    EXPECT_EQ(watched.Look().state, WindowState::Gone);
}

TEST(SystemWindow, WindowOfAnotherThread_IsSeenAsItIs) {
    WindowState seen = WindowState::Gone;
    const Window window = MakeWindow(WS_POPUP | WS_VISIBLE);
    std::thread other([&seen, handle = window.Get()] { seen = StateOf(handle); });
    other.join();
    EXPECT_EQ(seen, WindowState::Shown);
}

} // namespace
