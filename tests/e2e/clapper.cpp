// clapper.exe: claps once a second, as a film's clapper does: the screen flashes white, and a click is heard with it.
// In between the screen is black and nothing is heard.
//
//   click   5 ms of 3 kHz near full scale, at each whole second of the sound
//   flash   100 ms
//
// It plays on the system's default device. The first line on standard output says that it plays, each further one, of
// seconds on the performance counter, when a flash was painted. Runs until the pipe on its standard input is closed.
#include "common/win/com.h"
#include "common/win/handle.h"
#include "tests/e2e/topwindow.h"

#include <audioclient.h>
#include <mmdeviceapi.h>
#include <windows.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <thread>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr std::uint32_t kRate = 48'000;
constexpr std::uint32_t kClickFrames = kRate / 200;
constexpr REFERENCE_TIME kBuffer = 400'000; // 40 ms in 100 ns
constexpr std::int64_t kFlashMs = 100;

std::atomic<bool> g_ends = false;
std::atomic<std::int64_t> g_flashAt = 0; // ticks of the performance counter

std::int64_t Now() {
    LARGE_INTEGER now = {};
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

std::int64_t PerSecond() {
    LARGE_INTEGER frequency = {};
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

float SampleAt(std::uint64_t frame) {
    constexpr double kTurn = 2 * std::numbers::pi / kRate;
    const std::uint64_t since = frame % kRate;
    return since < kClickFrames ? static_cast<float>(0.8 * std::sin(kTurn * 3000 * static_cast<double>(since))) : 0.0F;
}

struct Output {
    kx::ComPtr<IAudioClient> client;
    kx::ComPtr<IAudioRenderClient> writer;
    UINT32 size = 0; // frames
};

bool Open(Output& output) {
    kx::ComPtr<IMMDeviceEnumerator> devices;
    kx::ComPtr<IMMDevice> device;
    WAVEFORMATEX format = {WAVE_FORMAT_IEEE_FLOAT, 2, kRate, kRate * 8, 8, 32, 0};
    return SUCCEEDED(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_INPROC_SERVER,
                                      IID_PPV_ARGS(devices.Receive()))) &&
           SUCCEEDED(devices->GetDefaultAudioEndpoint(eRender, eConsole, device.Receive())) &&
           SUCCEEDED(device->Activate(__uuidof(IAudioClient), CLSCTX_INPROC_SERVER, nullptr,
                                      reinterpret_cast<void**>(output.client.Receive()))) &&
           SUCCEEDED(output.client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, kBuffer, 0, &format, nullptr)) &&
           SUCCEEDED(output.client->GetBufferSize(&output.size)) &&
           SUCCEEDED(output.client->GetService(IID_PPV_ARGS(output.writer.Receive())));
}

// Fills the buffer, and tells when the click that was written will be heard.
bool Fill(const Output& output, std::uint64_t& written) {
    UINT32 waiting = 0;
    if (FAILED(output.client->GetCurrentPadding(&waiting))) {
        return false;
    }
    const UINT32 frames = output.size - waiting;
    BYTE* bytes = nullptr;
    if (frames == 0 || FAILED(output.writer->GetBuffer(frames, &bytes))) {
        return frames == 0;
    }
    auto* const samples = reinterpret_cast<float*>(bytes);
    for (UINT32 i = 0; i < frames; ++i, ++written) {
        samples[2 * i] = samples[2 * i + 1] = SampleAt(written);
        if (written % kRate == 0) {
            g_flashAt = Now() + std::int64_t{waiting + i} * PerSecond() / kRate;
        }
    }
    return SUCCEEDED(output.writer->ReleaseBuffer(frames, 0));
}

void Play() {
    const kx::ComApartment apartment;
    Output output;
    std::uint64_t written = 1;
    if (!Open(output) || !Fill(output, written) || FAILED(output.client->Start())) {
        std::puts("no sound");
        std::fflush(stdout);
        return;
    }
    std::puts("ready");
    std::fflush(stdout);
    while (!g_ends && Fill(output, written)) {
        Sleep(2);
    }
    output.client->Stop();
}

void Paint(HWND window, COLORREF colour) {
    const HDC target = GetDC(window);
    const kx::Owner<kx::FreedBy<HBRUSH, &DeleteObject>> brush(CreateSolidBrush(colour));
    const RECT whole = {0, 0, kWidth, kHeight};
    FillRect(target, &whole, brush.Get());
    ReleaseDC(window, target);
    GdiFlush();
    // What is drawn reaches the screen when the window's messages are asked for.
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
    }
}

void Flash(HWND window) {
    std::int64_t done = 0;
    while (!g_ends) {
        const std::int64_t due = g_flashAt;
        if (due != done && Now() >= due) {
            done = due;
            Paint(window, RGB(255, 255, 255));
            std::printf("%.4f\n", static_cast<double>(Now()) / static_cast<double>(PerSecond()));
            std::fflush(stdout);
            Sleep(kFlashMs);
            Paint(window, RGB(0, 0, 0));
        }
        Sleep(1);
    }
}

} // namespace

int main() {
    const HWND window = kxtest::ShowTopWindow(L"KxClapper", DefWindowProcW, L"clapper", {0, 0, kWidth, kHeight});
    if (window == nullptr) {
        return 1;
    }
    Paint(window, RGB(0, 0, 0));
    std::thread sound(Play);
    std::thread input([] {
        char letter = 0;
        DWORD count = 0;
        while (ReadFile(GetStdHandle(STD_INPUT_HANDLE), &letter, 1, &count, nullptr) && count > 0) {
            continue;
        }
        g_ends = true;
    });
    Flash(window);
    sound.join();
    input.join();
    return 0;
}
