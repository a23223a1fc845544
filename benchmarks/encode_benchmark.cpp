// What a recorded picture costs: grabbing the screen, comparing it with the one before, encoding it, beside the
// system's own JPEG encoder in the same run, and handing it to the file's thread while that writes a large replay. The
// picture is screen-like: flat areas, edges and lines of text.
#include "worker/capture/capture.h"
#include "worker/capture/stopwatch.h"
#include "worker/file/filesink.h"
#include "worker/replay/replaybuffer.h"
#include "worker/video/jpegencoder.h"

#include <benchmark/benchmark.h>
#include <objbase.h>
#include <wincodec.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>

namespace {

using namespace kxvcr;

constexpr std::uint32_t kWidth = 1280;
constexpr std::uint32_t kHeight = 720;
constexpr std::uint32_t kQuality = 80;
constexpr std::size_t kBytesPerPixel = 4;

double g_systemSeconds = 0; // of one picture, for the ratio

template <class Interface>
class ComPointer {
public:
    ComPointer() = default;
    ~ComPointer() {
        if (m_object != nullptr) {
            m_object->Release();
        }
    }
    ComPointer(const ComPointer&) = delete;
    ComPointer& operator=(const ComPointer&) = delete;

    Interface** Receive() noexcept { return &m_object; }
    Interface* Get() const noexcept { return m_object; }
    Interface* operator->() const noexcept { return m_object; }

private:
    Interface* m_object = nullptr;
};

std::vector<std::byte> ScreenLikePicture() {
    const PictureBuffer buffer = PictureBuffer::Create(kWidth, kHeight);
    RECT all = {0, 0, static_cast<LONG>(kWidth), static_cast<LONG>(kHeight)};
    FillRect(buffer.Dc(), &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    RECT bar = {0, 0, all.right, 60};
    FillRect(buffer.Dc(), &bar, static_cast<HBRUSH>(GetStockObject(DKGRAY_BRUSH)));
    constexpr wchar_t kLine[] = L"The quick brown fox jumps over the lazy dog; 0123456789 lines of text fill a screen.";
    for (int y = 80; y < all.bottom; y += 20) {
        TextOutW(buffer.Dc(), y % 60, y, kLine, static_cast<int>(std::size(kLine)) - 1);
    }
    GdiFlush();
    return {buffer.Pixels().begin(), buffer.Pixels().end()};
}

// Runs the loop and returns the seconds that one round took.
template <class Step>
double Measure(benchmark::State& state, Step step) {
    LARGE_INTEGER before = {};
    LARGE_INTEGER after = {};
    LARGE_INTEGER frequency = {};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&before);
    for ([[maybe_unused]] const auto _ : state) {
        step();
    }
    QueryPerformanceCounter(&after);
    return static_cast<double>(after.QuadPart - before.QuadPart) / static_cast<double>(frequency.QuadPart) /
           static_cast<double>(state.iterations());
}

bool EncodeWithSystem(IWICImagingFactory& factory, std::span<std::byte> pixels, std::span<std::byte> output) {
    ComPointer<IWICStream> stream;
    ComPointer<IWICBitmapEncoder> encoder;
    ComPointer<IWICBitmapFrameEncode> frame;
    ComPointer<IPropertyBag2> options;
    ComPointer<IWICBitmap> bitmap;
    wchar_t qualityName[] = L"ImageQuality";
    PROPBAG2 option = {};
    option.pstrName = qualityName;
    VARIANT quality = {};
    quality.vt = VT_R4;
    quality.fltVal = kQuality / 100.0F;
    constexpr UINT kStride = kWidth * kBytesPerPixel;
    return SUCCEEDED(factory.CreateStream(stream.Receive())) &&
           SUCCEEDED(stream->InitializeFromMemory(reinterpret_cast<BYTE*>(output.data()),
                                                  static_cast<DWORD>(output.size()))) &&
           SUCCEEDED(factory.CreateEncoder(GUID_ContainerFormatJpeg, nullptr, encoder.Receive())) &&
           SUCCEEDED(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache)) &&
           SUCCEEDED(encoder->CreateNewFrame(frame.Receive(), options.Receive())) &&
           SUCCEEDED(options->Write(1, &option, &quality)) && SUCCEEDED(frame->Initialize(options.Get())) &&
           SUCCEEDED(frame->SetSize(kWidth, kHeight)) &&
           SUCCEEDED(factory.CreateBitmapFromMemory(kWidth, kHeight, GUID_WICPixelFormat32bppBGR, kStride,
                                                    static_cast<UINT>(pixels.size()),
                                                    reinterpret_cast<BYTE*>(pixels.data()), bitmap.Receive())) &&
           SUCCEEDED(frame->WriteSource(bitmap.Get(), nullptr)) && SUCCEEDED(frame->Commit()) &&
           SUCCEEDED(encoder->Commit());
}

void Encode_System(benchmark::State& state) {
    std::vector<std::byte> pixels = ScreenLikePicture();
    std::vector<std::byte> output(pixels.size());
    ComPointer<IWICImagingFactory> factory;
    if (FAILED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                                reinterpret_cast<void**>(factory.Receive()))) ||
        !EncodeWithSystem(*factory.Get(), pixels, output)) {
        state.SkipWithError("the system's encoder does not work");
        return;
    }
    g_systemSeconds = Measure(state, [&] { EncodeWithSystem(*factory.Get(), pixels, output); });
}
BENCHMARK(Encode_System)->UseRealTime()->Unit(benchmark::kMillisecond);

void Encode_Worker(benchmark::State& state) {
    const std::vector<std::byte> pixels = ScreenLikePicture();
    JpegEncoder encoder(kWidth, kHeight, kQuality);
    std::size_t size = 0;
    const double seconds = Measure(state, [&] { size = encoder.Encode(pixels).size(); });
    state.counters["bytes"] = static_cast<double>(size);
    if (g_systemSeconds > 0) {
        state.counters["ratio_to_system"] = seconds / g_systemSeconds;
    }
}
BENCHMARK(Encode_Worker)->UseRealTime()->Unit(benchmark::kMillisecond);

// The floor of a grab: reading a picture of that size once and writing it once.
void Copy_InMemory(benchmark::State& state) {
    const std::vector<std::byte> pixels = ScreenLikePicture();
    std::vector<std::byte> copy(pixels.size());
    Measure(state, [&] {
        std::memcpy(copy.data(), pixels.data(), pixels.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    });
}
BENCHMARK(Copy_InMemory)->UseRealTime()->Unit(benchmark::kMillisecond);

void Compare_Equal(benchmark::State& state) {
    const std::vector<std::byte> pixels = ScreenLikePicture();
    const std::vector<std::byte> other = pixels;
    Measure(state, [&] {
        const int difference = std::memcmp(pixels.data(), other.data(), pixels.size());
        benchmark::DoNotOptimize(difference);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(Compare_Equal)->UseRealTime()->Unit(benchmark::kMillisecond);

void Grab_Unchanged(benchmark::State& state) {
    const auto capture = ScreenCapture::Create({{0, 0, kWidth, kHeight}, nullptr, false}, state.range(0) != 0);
    if (capture == nullptr || capture->Take() == Grab::Failed) {
        state.SkipWithError("no screen");
        return;
    }
    Measure(state, [&] { capture->Take(); });
}
BENCHMARK(Grab_Unchanged)->ArgName("cursor")->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// Each round is one slot: a picture is handed over, and the rest of the slot is slept. What matters is the longest.
void HandOver_WhileAReplayIsWritten(benchmark::State& state) {
    constexpr std::uint64_t kReplaySlots = 1000;
    constexpr std::size_t kPictureBytes = 200'000;
    constexpr DWORD kSlotMs = 16;
    const std::filesystem::path path = std::filesystem::temp_directory_path() / L"kxreplaybenchmark.mkv";
    std::unique_ptr<OutputFile> file = DiskFile::Create(path);
    std::unique_ptr<MatroskaWriter> writer = MatroskaWriter::Create(*file, {kWidth, kHeight, 60});
    FileSink sink(std::move(file), std::move(writer), std::size_t{1} << 30);
    ReplayBuffer replay(kReplaySlots, kReplayMemoryLimit);
    std::vector<std::byte> picture(kPictureBytes);
    std::uint64_t slot = 0;
    const auto next = [&] {
        std::memcpy(picture.data(), &slot, sizeof(slot));
        return std::span<const std::byte>(picture);
    };
    for (; slot < kReplaySlots; ++slot) {
        replay.Add(slot, next());
    }
    sink.Begin(replay.Take());
    sink.Start();
    double longest = 0;
    double sum = 0;
    for ([[maybe_unused]] const auto _ : state) {
        const auto before = std::chrono::steady_clock::now();
        sink.AddFrame(slot, next());
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - before;
        longest = std::max(longest, taken.count());
        sum += taken.count();
        ++slot;
        Sleep(kSlotMs);
    }
    const auto stopped = std::chrono::steady_clock::now();
    sink.Finish(slot);
    const std::chrono::duration<double, std::milli> finish = std::chrono::steady_clock::now() - stopped;
    state.counters["longest_ms"] = longest;
    state.counters["mean_ms"] = sum / static_cast<double>(state.iterations());
    state.counters["write_ms_each"] = MillisecondsEach(sink.Statistics().writeTicks, sink.Statistics().written);
    state.counters["flush_ms_each"] = MillisecondsEach(sink.Statistics().flushTicks, sink.Statistics().flushes);
    state.counters["finish_ms"] = finish.count();
    state.counters["replay_bytes"] = static_cast<double>(kReplaySlots * kPictureBytes);
    sink.Discard();
}
BENCHMARK(HandOver_WhileAReplayIsWritten)->Iterations(5)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(HandOver_WhileAReplayIsWritten)->Iterations(120)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    CoUninitialize();
    return 0;
}
