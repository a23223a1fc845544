// pattern.exe: fills the screen with a picture that a recording can be checked against.
//
//   rows 0 to 359     eight columns of 160 pixels, one colour each
//   rows 360 to 599   dark grey, with a white square that moves 8 pixels a step
//   rows 600 to 719   sixteen blocks of 80 pixels: the step's number in Gray code, white is 1, highest bit left
//
// One bit changes from a number to the next, so a picture caught between two steps still shows one of them.
// The first line on standard output says that the picture is there. Runs until the pipe on its standard input is
// closed; without such a pipe, until it is ended.
#include "common/win/handle.h"
#include "tests/e2e/fill.h"
#include "tests/e2e/topwindow.h"

#include <windows.h>

#include <cstdio>
#include <iterator>

namespace {

using kxtest::Fill;

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr UINT kStepMs = 20;

constexpr COLORREF kColumns[] = {
    RGB(255, 0, 0),   RGB(0, 255, 0),   RGB(0, 0, 255),     RGB(255, 255, 0),
    RGB(255, 0, 255), RGB(0, 255, 255), RGB(255, 255, 255), RGB(128, 128, 128),
};
constexpr int kColumnWidth = kWidth / static_cast<int>(std::size(kColumns));

constexpr RECT kSquareBand = {0, 360, kWidth, 600};
constexpr int kSquareTop = 440;
constexpr int kSquareSize = 80;
constexpr int kSquareStep = 8;

constexpr RECT kCounterBand = {0, 600, kWidth, kHeight};
constexpr int kCounterBits = 16;
constexpr int kBlockWidth = kWidth / kCounterBits;

unsigned int g_step = 0;

void DrawColumns(HDC target) {
    int left = 0;
    for (const COLORREF colour : kColumns) {
        Fill(target, {left, 0, left + kColumnWidth, kSquareBand.top}, colour);
        left += kColumnWidth;
    }
}

void DrawSquare(HDC target) {
    const int left = static_cast<int>(g_step) * kSquareStep % (kWidth - kSquareSize);
    Fill(target, kSquareBand, RGB(64, 64, 64));
    Fill(target, {left, kSquareTop, left + kSquareSize, kSquareTop + kSquareSize}, RGB(255, 255, 255));
}

void DrawCounter(HDC target) {
    const unsigned int gray = g_step ^ (g_step >> 1);
    for (int i = 0; i < kCounterBits; ++i) {
        const bool isSet = ((gray >> (kCounterBits - 1 - i)) & 1) != 0;
        Fill(target, {i * kBlockWidth, kCounterBand.top, (i + 1) * kBlockWidth, kCounterBand.bottom},
             isSet ? RGB(255, 255, 255) : RGB(0, 0, 0));
    }
}

void Paint(HWND window) {
    PAINTSTRUCT paint;
    const HDC target = BeginPaint(window, &paint);
    DrawColumns(target);
    DrawSquare(target);
    DrawCounter(target);
    EndPaint(window, &paint);
}

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
    switch (message) {
    case WM_PAINT:
        Paint(window);
        return 0;
    case WM_TIMER:
        g_step = (g_step + 1) % (1u << kCounterBits);
        InvalidateRect(window, &kSquareBand, FALSE);
        InvalidateRect(window, &kCounterBand, FALSE);
        return 0;
    case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    default:
        return DefWindowProcW(window, message, first, second);
    }
}

// Ends the program when whoever holds the pipe's other end is gone.
DWORD WINAPI WatchInput(void* window) {
    char byte = 0;
    DWORD count = 0;
    while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), &byte, 1, &count, nullptr) && count > 0) {
        continue;
    }
    if (GetLastError() != ERROR_INVALID_HANDLE) {
        PostMessageW(static_cast<HWND>(window), WM_CLOSE, 0, 0);
    }
    return 0;
}

} // namespace

int main() {
    const HWND window = kxtest::ShowTopWindow(L"KxPattern", OnMessage, L"pattern", {0, 0, kWidth, kHeight});
    if (window == nullptr || SetTimer(window, 1, kStepMs, nullptr) == 0) {
        return 1;
    }
    const kx::KernelHandle watcher(CreateThread(nullptr, 0, WatchInput, window, 0, nullptr));
    if (!watcher) {
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    kxtest::AnswerMessages();
    return 0;
}
