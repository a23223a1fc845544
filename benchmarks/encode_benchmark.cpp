// What a recorded picture costs: grabbing the screen, comparing it with the one before, encoding it, beside the
// system's own JPEG encoder in the same run, and handing it to the file's thread while that writes a large replay. The
// picture is screen-like: flat areas, edges and lines of text.
#include "worker/capture/difference.h"
#include "worker/capture/gdicapture.h"
#include "worker/file/fileformat.h"
#include "worker/file/filesink.h"
#include "worker/file/outputfile.h"
#include "worker/replay/packetring.h"
#include "worker/stopwatch.h"
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

PictureBuffer ScreenLikeBuffer() {
    PictureBuffer buffer = PictureBuffer::Create(kWidth, kHeight);
    RECT all = {0, 0, static_cast<LONG>(kWidth), static_cast<LONG>(kHeight)};
    FillRect(buffer.Dc(), &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
    RECT bar = {0, 0, all.right, 60};
    FillRect(buffer.Dc(), &bar, static_cast<HBRUSH>(GetStockObject(DKGRAY_BRUSH)));
    constexpr wchar_t kLine[] = L"The quick brown fox jumps over the lazy dog; 0123456789 lines of text fill a screen.";
    for (int y = 80; y < all.bottom; y += 20) {
        TextOutW(buffer.Dc(), y % 60, y, kLine, static_cast<int>(std::size(kLine)) - 1);
    }
    GdiFlush();
    return buffer;
}

std::vector<std::byte> ScreenLikePicture() {
    const PictureBuffer buffer = ScreenLikeBuffer();
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

void Compare_InMemory(benchmark::State& state) {
    const std::vector<std::byte> pixels = ScreenLikePicture();
    const std::vector<std::byte> other = pixels;
    Measure(state, [&] {
        const int difference = std::memcmp(pixels.data(), other.data(), pixels.size());
        benchmark::DoNotOptimize(difference);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(Compare_InMemory)->UseRealTime()->Unit(benchmark::kMillisecond);

void Compare_Worker(benchmark::State& state) {
    const PictureBuffer before = ScreenLikeBuffer();
    const PictureBuffer after = ScreenLikeBuffer();
    Measure(state, [&] {
        const std::optional<PictureRect> difference = DifferentRows(before, after);
        benchmark::DoNotOptimize(difference);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(Compare_Worker)->UseRealTime()->Unit(benchmark::kMillisecond);

void Grab_Unchanged(benchmark::State& state) {
    const auto pool = PicturePool::Create(2, kWidth, kHeight);
    GdiCapture capture({{0, 0, kWidth, kHeight}, nullptr, false}, state.range(0) != 0);
    const SharedPicture before = pool->TakeFree();
    const SharedPicture next = pool->TakeFree();
    if (capture.Take(*before, nullptr) == Grab::Failed) {
        state.SkipWithError("no screen");
        return;
    }
    Measure(state, [&] { capture.Take(*next, before.Get()); });
}
BENCHMARK(Grab_Unchanged)->ArgName("cursor")->Arg(0)->Arg(1)->UseRealTime()->Unit(benchmark::kMillisecond);

SharedPacket PacketOf(std::uint64_t slot) {
    constexpr std::size_t kPacketBytes = 200'000;
    auto packet = std::make_shared<Packet>();
    packet->isKey = true;
    packet->time = SlotTime(slot, 60);
    packet->bytes.resize(kPacketBytes);
    return packet;
}

// Each round is one slot: a packet is handed over, and the rest of the slot is slept. What matters is the longest.
void HandOver_WhileAReplayIsWritten(benchmark::State& state) {
    constexpr std::uint64_t kReplaySlots = 1000;
    constexpr DWORD kSlotMs = 16;
    const std::filesystem::path path = std::filesystem::temp_directory_path() / L"kxreplaybenchmark.mkv";
    std::unique_ptr<OutputFile> file = DiskFile::Create(path);
    const PictureFormat format{Codec::H264, kWidth, kHeight, 60, ColorMatrix::Bt709, std::vector<std::byte>(40)};
    std::unique_ptr<MediaWriter> writer = CreateWriter(FileFormat::Matroska, *file, {format, {}}, MediaTime(0));
    FileSink sink(std::move(file), std::move(writer), MediaTime(0), std::size_t{1} << 30,
                  {[] { return MediaTime(0); }, [](const FileProgress&) {}, [] {}});
    PacketRing replay(std::chrono::hours(1), kReplayMemoryLimit);
    std::uint64_t slot = 0;
    for (; slot < kReplaySlots; ++slot) {
        replay.Add(PacketOf(slot));
    }
    sink.Start();
    const std::size_t replayBytes = replay.Bytes();
    for (const SharedPacket& packet : replay.Take(MediaTime(0))) {
        sink.Add(packet);
    }
    double longest = 0;
    double sum = 0;
    for ([[maybe_unused]] const auto _ : state) {
        const SharedPacket packet = PacketOf(slot);
        const auto before = std::chrono::steady_clock::now();
        sink.Add(packet);
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - before;
        longest = std::max(longest, taken.count());
        sum += taken.count();
        ++slot;
        Sleep(kSlotMs);
    }
    const auto stopped = std::chrono::steady_clock::now();
    sink.Finish(SlotTime(slot, 60));
    const std::chrono::duration<double, std::milli> finish = std::chrono::steady_clock::now() - stopped;
    const FileStatistics& statistics = sink.Statistics();
    state.counters["longest_ms"] = longest;
    state.counters["mean_ms"] = sum / static_cast<double>(state.iterations());
    state.counters["write_ms_each"] = MillisecondsEach(statistics.writeTicks, statistics.packets);
    state.counters["flush_ms_each"] = MillisecondsEach(statistics.diskFlushTicks, statistics.diskFlushes);
    state.counters["finish_ms"] = finish.count();
    state.counters["replay_bytes"] = static_cast<double>(replayBytes);
    std::filesystem::remove(path);
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
