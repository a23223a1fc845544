// Waits for a line of standard input in a thread that nothing can end but the input itself.
#include "host/linesignal.h"

#include <stdexcept>
#include <thread>

namespace kxrecord {

struct LineSignal::State {
    kx::KernelHandle line{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    kx::KernelHandle closed{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

namespace {

void ReadUntilLine(HANDLE line, HANDLE closed) {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    for (;;) {
        char character = 0;
        DWORD size = 0;
        const BOOL isRead = ReadFile(input, &character, 1, &size, nullptr);
        if (isRead && size == 1 && character != '\n' && character != '\r') {
            continue;
        }
        if (!isRead && GetLastError() == ERROR_OPERATION_ABORTED) { // by Ctrl-C, which has a signal of its own
            return;
        }
        SetEvent(isRead && size == 1 ? line : closed);
        return;
    }
}

} // namespace

LineSignal::LineSignal() {
    auto state = std::make_shared<const State>();
    if (!state->line || !state->closed) {
        throw std::runtime_error("the system refuses events for the keyboard");
    }
    m_state = state;
    // Single keys instead of lines: Enter is a carriage return on some terminals and a line feed on others.
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(input, &mode) && SetConsoleMode(input, mode & ~DWORD{ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT})) {
        m_terminalMode = mode;
    }
    std::thread([state] { ReadUntilLine(state->line.Get(), state->closed.Get()); }).detach();
}

LineSignal::~LineSignal() {
    if (m_terminalMode) {
        SetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), *m_terminalMode);
    }
}

HANDLE LineSignal::Line() const {
    return m_state->line.Get();
}

bool LineSignal::IsClosed() const {
    return WaitForSingleObject(m_state->closed.Get(), 0) == WAIT_OBJECT_0;
}

} // namespace kxrecord
