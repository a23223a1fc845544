// stephost.exe: a host that takes one step for each line on its standard input and answers with one line.
//
//   prepare REPLAY-SECONDS FPS CURSOR STREAMS LEFT TOP WIDTH HEIGHT WINDOW
//                         runs the worker and prepares           ok MILLISECONDS
//   start PATH            starts a recording to the file         ok MILLISECONDS COUNTER
//   status                what the worker tells of the file      ok PICTURES REPEATS DROPPED LIVE-START LENGTH BYTES
//   FINISHED live                  starts the live server on any port     ok PORT stop                  ends the worker
//   ok EXIT-CODE display WIDTH HEIGHT  gives the screen another size          ok pointer X Y           moves the mouse
//   pointer                ok
//
// COUNTER is the step number that the pattern on the screen shows when the command is sent. A step that fails is
// answered with "failed", and the program goes on. The end of the input ends it at once, and leaves a running worker
// without its host.
#include "common/win/handle.h"
#include "common/win/utf8.h"
#include "screenrecordproxy.h"
#include "sdk/vcr/recordingstatus.h"

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

namespace {

using KxScreenRecord::ScreenRecordParam;
using KxScreenRecord::ScreenRecordProxy;

constexpr unsigned int kTimeoutMs = 20'000;

// The pattern's counter, as pattern.cpp draws it.
constexpr int kCounterMiddle = 660;
constexpr int kCounterBits = 16;
constexpr int kBlockWidth = 80;

struct ProxyReleaser {
    void operator()(ScreenRecordProxy* proxy) const { ScreenRecordProxy::ReleaseProxy(proxy); }
};

struct ScreenDcReleaser {
    using pointer = HDC;
    void operator()(HDC screen) const noexcept { ReleaseDC(nullptr, screen); }
};

unsigned int ReadCounter() {
    const std::unique_ptr<HDC, ScreenDcReleaser> screen(GetDC(nullptr));
    unsigned int number = 0;
    for (int i = 0; i < kCounterBits; ++i) {
        const unsigned int bit = GetPixel(screen.get(), i * kBlockWidth + kBlockWidth / 2, kCounterMiddle) != 0 ? 1 : 0;
        number = number << 1 | (bit ^ (number & 1));
    }
    return number;
}

void Answer(const std::string& text) {
    std::cout << text << std::endl;
}

void Prepare(ScreenRecordProxy& proxy, std::istream& arguments) {
    unsigned int replaySeconds = 0;
    ScreenRecordParam param;
    arguments >> replaySeconds >> param.framesPerSecond >> param.drawCursor >> param.streams >> param.left >>
        param.top >> param.width >> param.height >> param.window;
    const DWORD before = GetTickCount();
    const bool prepared =
        proxy.RunProcess(kTimeoutMs) == 0 && proxy.PrepareTimemachine(param, replaySeconds, kTimeoutMs);
    Answer(prepared ? "ok " + std::to_string(GetTickCount() - before) : "failed");
}

void Start(ScreenRecordProxy& proxy, std::istream& arguments) {
    std::string path;
    std::getline(arguments >> std::ws, path);
    const std::wstring file = kx::WideFromUtf8(path);
    const unsigned int counter = ReadCounter();
    const DWORD before = GetTickCount();
    const bool started = proxy.StartLocalRecord(file.c_str(), static_cast<unsigned int>(file.size()), kTimeoutMs);
    Answer(started ? "ok " + std::to_string(GetTickCount() - before) + " " + std::to_string(counter) : "failed");
}

// The worker's figures, kept open from the first look on, so that they outlive the worker.
class StatusView {
public:
    ~StatusView() { Close(); }

    // @return null when the worker made none
    const kxvcr::RecordingStatus* Open() {
        if (m_status == nullptr) {
            wchar_t name[80] = {};
            swprintf(name, std::size(name), kxvcr::kRecordingStatusNameFormat, GetCurrentProcessId());
            m_section = kx::KernelHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, name));
            m_status = !m_section ? nullptr
                                  : static_cast<const kxvcr::RecordingStatus*>(MapViewOfFile(
                                        m_section.Get(), FILE_MAP_READ, 0, 0, sizeof(kxvcr::RecordingStatus)));
        }
        return m_status;
    }
    void Close() {
        if (m_status != nullptr) {
            UnmapViewOfFile(m_status);
        }
        m_status = nullptr;
        m_section = {};
    }

private:
    kx::KernelHandle m_section;
    const kxvcr::RecordingStatus* m_status = nullptr;
};

void TellStatus(StatusView& view) {
    const volatile kxvcr::RecordingStatus* const status = view.Open();
    if (status == nullptr || status->version != kxvcr::kRecordingStatusVersion) {
        return Answer("failed");
    }
    std::ostringstream figures;
    std::uint32_t sequence = 0;
    do {
        sequence = status->sequence;
        figures.str({});
        figures << "ok " << status->pictures << ' ' << status->repeats << ' ' << status->dropped << ' '
                << status->liveStart << ' ' << status->length << ' ' << status->bytes << ' ' << status->isFinished;
    } while (sequence % 2 != 0 || sequence != status->sequence);
    Answer(figures.str());
}

void StartLive(ScreenRecordProxy& proxy) {
    int port = 0;
    const bool started = proxy.StartLiveServer({}, kTimeoutMs, port);
    Answer(started ? "ok " + std::to_string(port) : "failed");
}

// The worker's end is known to the library a moment after it; only then can it run the next one.
void Stop(ScreenRecordProxy& proxy) {
    proxy.Stop();
    const unsigned long code = proxy.WaitLiveProcessEnd(kTimeoutMs);
    const DWORD since = GetTickCount();
    while (proxy.GetCurRecordMode() != 0 && GetTickCount() - since < kTimeoutMs) {
        Sleep(1);
    }
    Answer("ok " + std::to_string(code));
}

void ChangeDisplay(std::istream& arguments) {
    DEVMODEW mode = {};
    mode.dmSize = sizeof(mode);
    mode.dmFields = DM_PELSWIDTH | DM_PELSHEIGHT;
    arguments >> mode.dmPelsWidth >> mode.dmPelsHeight;
    Answer(ChangeDisplaySettingsW(&mode, 0) == DISP_CHANGE_SUCCESSFUL ? "ok" : "failed");
}

void MovePointer(std::istream& arguments) {
    int x = 0;
    int y = 0;
    arguments >> x >> y;
    Answer(SetCursorPos(x, y) ? "ok" : "failed");
}

} // namespace

int main() {
    const std::unique_ptr<ScreenRecordProxy, ProxyReleaser> proxy(ScreenRecordProxy::CreateProxy());
    if (!proxy) {
        return 1;
    }
    StatusView status;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream arguments(line);
        std::string step;
        arguments >> step;
        if (step == "prepare") {
            status.Close();
            Prepare(*proxy, arguments);
        } else if (step == "start") {
            Start(*proxy, arguments);
        } else if (step == "status") {
            TellStatus(status);
        } else if (step == "live") {
            StartLive(*proxy);
        } else if (step == "stop") {
            Stop(*proxy);
        } else if (step == "display") {
            ChangeDisplay(arguments);
        } else if (step == "pointer") {
            MovePointer(arguments);
        } else {
            Answer("failed");
        }
    }
    // As a host that is killed: no member of the library runs at the end.
    TerminateProcess(GetCurrentProcess(), 0);
}
