// actor.exe TITLE: a window of four colours that does what it is told, one step for each line on its standard input,
// each answered with "ok":
//
//   place LEFT TOP WIDTH HEIGHT   moves and resizes
//   minimise, restore, close
//
// The colours are those of its quarters, whatever its size: red and green above, blue and white below. The first line
// on standard output is the number of the window's handle. The end of the input closes the window.
#include "common/win/handle.h"
#include "common/win/toplevelwindow.h"
#include "common/win/utf8.h"
#include "tests/e2e/fill.h"
#include "tests/e2e/topwindow.h"

#include <windows.h>

#include <iostream>
#include <sstream>
#include <string>

namespace {

constexpr RECT kPlace = {40, 40, 680, 400};

using kxtest::Fill;

void Paint(HWND window) {
    PAINTSTRUCT paint;
    const HDC target = BeginPaint(window, &paint);
    RECT client = {};
    GetClientRect(window, &client);
    const LONG x = client.right / 2;
    const LONG y = client.bottom / 2;
    Fill(target, {0, 0, x, y}, RGB(255, 0, 0));
    Fill(target, {x, 0, client.right, y}, RGB(0, 255, 0));
    Fill(target, {0, y, x, client.bottom}, RGB(0, 0, 255));
    Fill(target, {x, y, client.right, client.bottom}, RGB(255, 255, 255));
    EndPaint(window, &paint);
}

LRESULT CALLBACK OnMessage(HWND window, UINT message, WPARAM first, LPARAM second) {
    switch (message) {
    case WM_PAINT:
        Paint(window);
        return 0;
    case WM_SIZE:
        InvalidateRect(window, nullptr, FALSE);
        return 0;
    case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    default:
        return DefWindowProcW(window, message, first, second);
    }
}

void Place(HWND window, std::istream& arguments) {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    arguments >> left >> top >> width >> height;
    SetWindowPos(window, HWND_TOPMOST, left, top, width, height, SWP_NOACTIVATE);
}

// In a thread of its own: the window's own thread has its messages to wait for.
DWORD WINAPI TakeSteps(void* parameter) {
    const auto window = static_cast<HWND>(parameter);
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream arguments(line);
        std::string step;
        arguments >> step;
        if (step == "place") {
            Place(window, arguments);
        } else if (step == "minimise") {
            ShowWindow(window, SW_MINIMIZE);
        } else if (step == "restore") {
            ShowWindow(window, SW_RESTORE);
        } else if (step == "close") {
            break;
        }
        UpdateWindow(window);
        std::cout << "ok" << std::endl;
    }
    SendMessageW(window, WM_CLOSE, 0, 0);
    std::cout << "ok" << std::endl;
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        return 2;
    }
    const std::wstring title = kx::WideFromUtf8(arguments[1]);
    const HWND window = kxtest::ShowTopWindow(L"KxActor", OnMessage, title.c_str(), kPlace, WS_MINIMIZEBOX);
    if (window == nullptr) {
        return 1;
    }
    std::cout << kx::NumberOfWindow(window) << std::endl;
    const kx::KernelHandle steps(CreateThread(nullptr, 0, TakeSteps, window, 0, nullptr));
    if (!steps) {
        return 1;
    }
    kxtest::AnswerMessages();
    WaitForSingleObject(steps.Get(), INFINITE);
    return 0;
}
