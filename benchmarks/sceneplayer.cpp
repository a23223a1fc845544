// Shows a scene on the screen, writes its pictures as they are, or records them with the worker's encoder without a
// screen between: what the comparison with other encoders needs of each.
//
//   sceneplayer show SCENE SECONDS          in a window without a frame at the left upper corner, 30 pictures a second
//   sceneplayer write SCENE PICTURES FILE   blue, green, red, unused; no head
//   sceneplayer encode SCENE PICTURES FILE QUALITY   .mp4, .webm or .mkv; prints what it took as JSON
#include "benchmarks/scenes.h"
#include "sdk/util/logtool.h"
#include "worker/file/fileformat.h"
#include "worker/video/makeencoder.h"

#include <log4cplus/initializer.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <span>
#include <string>
#include <vector>

namespace kxvcr {

namespace {

using bench::Scene;

constexpr std::uint32_t kRate = 30;

// A bitmap that scenes are drawn into.
class Canvas {
public:
    explicit Canvas(SIZE size) : m_size(size), m_dc(CreateCompatibleDC(nullptr)) {
        BITMAPINFO info = {};
        info.bmiHeader = {sizeof(info.bmiHeader), size.cx, -size.cy, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
        void* pixels = nullptr;
        m_bitmap = CreateDIBSection(m_dc, &info, DIB_RGB_COLORS, &pixels, nullptr, 0);
        m_pixels = static_cast<std::uint32_t*>(pixels);
        m_selectedBefore = SelectObject(m_dc, m_bitmap);
    }
    ~Canvas() {
        SelectObject(m_dc, m_selectedBefore);
        DeleteObject(m_bitmap);
        DeleteDC(m_dc);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    HDC Dc() const noexcept { return m_dc; }
    void Draw(Scene& scene, std::uint32_t number) {
        const auto before = Pixels();
        m_before.assign(before.begin(), before.end());
        scene.Draw(number, m_dc, m_pixels);
        GdiFlush();
        if (number > 0 && HasChanged()) {
            ++m_changes;
        }
        Stamp();
    }
    std::span<const std::byte> Pixels() const {
        return std::as_bytes(std::span(m_pixels, static_cast<std::size_t>(m_size.cx * m_size.cy)));
    }

private:
    static constexpr LONG kStampBits = 12;
    static constexpr LONG kStampSide = 8;

    bool HasChanged() const {
        const auto now = Pixels();
        const std::size_t stride = static_cast<std::size_t>(m_size.cx) * kBytesPerPixel;
        for (LONG y = 0; y < m_size.cy; ++y) {
            const std::size_t from =
                static_cast<std::size_t>(y) * stride + (y < kStampSide ? kStampBits * kStampSide * kBytesPerPixel : 0);
            const std::size_t to = static_cast<std::size_t>(y + 1) * stride;
            if (!std::equal(now.begin() + static_cast<std::ptrdiff_t>(from),
                            now.begin() + static_cast<std::ptrdiff_t>(to),
                            m_before.begin() + static_cast<std::ptrdiff_t>(from))) {
                return true;
            }
        }
        return false;
    }

    // The number of changes so far in black and white squares, lowest bit first, by which a recorded picture is known.
    void Stamp() {
        for (LONG y = 0; y < kStampSide; ++y) {
            for (LONG x = 0; x < kStampBits * kStampSide; ++x) {
                const bool isSet = (m_changes >> (x / kStampSide) & 1) != 0;
                m_pixels[y * m_size.cx + x] = isSet ? 0xFFFFFF : 0;
            }
        }
    }

    SIZE m_size;
    HDC m_dc;
    HBITMAP m_bitmap = nullptr;
    HGDIOBJ m_selectedBefore = nullptr;
    std::uint32_t* m_pixels = nullptr;
    std::vector<std::byte> m_before;
    std::uint32_t m_changes = 0;
};

int Show(Scene& scene, std::uint32_t seconds) {
    const SIZE size = scene.Size();
    Canvas canvas(size);
    const HWND window = CreateWindowExW(WS_EX_TOPMOST, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0, size.cx, size.cy,
                                        nullptr, nullptr, nullptr, nullptr);
    LARGE_INTEGER frequency = {};
    LARGE_INTEGER start = {};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    const HDC screen = GetDC(window);
    for (std::uint32_t number = 0; number < seconds * kRate; ++number) {
        canvas.Draw(scene, number);
        BitBlt(screen, 0, 0, size.cx, size.cy, canvas.Dc(), 0, 0, SRCCOPY);
        GdiFlush();
        if (number == 0) {
            std::puts("ready");
            std::fflush(stdout);
        }
        LARGE_INTEGER now = {};
        QueryPerformanceCounter(&now);
        const auto due = static_cast<LONGLONG>(number + 1) * frequency.QuadPart / kRate;
        const auto waitMs = (due - (now.QuadPart - start.QuadPart)) * 1000 / frequency.QuadPart;
        const DWORD wakeAt = GetTickCount() + static_cast<DWORD>(std::max<LONGLONG>(waitMs, 0));
        do { // a window that answers no messages is painted over
            MSG message = {};
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
                DispatchMessageW(&message);
            }
        } while (static_cast<int>(wakeAt - GetTickCount()) > 0 &&
                 MsgWaitForMultipleObjects(0, nullptr, FALSE, wakeAt - GetTickCount(), QS_ALLINPUT) != WAIT_FAILED);
    }
    ReleaseDC(window, screen);
    DestroyWindow(window);
    return 0;
}

int Write(Scene& scene, std::uint32_t pictures, const char* path) {
    Canvas canvas(scene.Size());
    std::ofstream file(path, std::ios::binary);
    for (std::uint32_t number = 0; number < pictures; ++number) {
        canvas.Draw(scene, number);
        const auto pixels = canvas.Pixels();
        file.write(reinterpret_cast<const char*>(pixels.data()), static_cast<std::streamsize>(pixels.size()));
    }
    return file ? 0 : 1;
}

struct DrawnPicture {
    std::uint32_t number;
    std::vector<std::byte> pixels;
    std::vector<PictureRect> changed;
};

// What differs, one rectangle for each band of rows: what a capture says.
std::vector<PictureRect> Differences(std::span<const std::byte> before, std::span<const std::byte> after, SIZE size) {
    constexpr std::uint32_t kBand = 16;
    const auto width = static_cast<std::uint32_t>(size.cx);
    const auto height = static_cast<std::uint32_t>(size.cy);
    const std::size_t stride = width * kBytesPerPixel;
    std::vector<PictureRect> changed;
    for (std::uint32_t top = 0; top < height; top += kBand) {
        const std::uint32_t bottom = std::min(top + kBand, height);
        std::size_t first = stride;
        std::size_t last = 0;
        for (std::uint32_t y = top; y < bottom; ++y) {
            const auto a = before.subspan(y * stride, stride);
            const auto b = after.subspan(y * stride, stride);
            const auto from = std::mismatch(a.begin(), a.end(), b.begin()).first;
            if (from == a.end()) {
                continue;
            }
            const auto to = std::mismatch(a.rbegin(), a.rend(), b.rbegin()).first.base();
            first = std::min(first, static_cast<std::size_t>(from - a.begin()));
            last = std::max(last, static_cast<std::size_t>(to - a.begin()));
        }
        if (first < last) {
            const auto left = static_cast<std::uint32_t>(first / kBytesPerPixel);
            const auto right = static_cast<std::uint32_t>((last + kBytesPerPixel - 1) / kBytesPerPixel);
            changed.push_back({left, top, right - left, bottom - top});
        }
    }
    return changed;
}

// All pictures but those that are like the one before.
std::vector<DrawnPicture> DrawAll(Scene& scene, std::uint32_t pictures) {
    Canvas canvas(scene.Size());
    std::vector<DrawnPicture> drawn;
    for (std::uint32_t number = 0; number < pictures; ++number) {
        canvas.Draw(scene, number);
        const auto pixels = canvas.Pixels();
        DrawnPicture picture = {number, {pixels.begin(), pixels.end()}, {}};
        if (!drawn.empty()) {
            picture.changed = Differences(drawn.back().pixels, pixels, scene.Size());
            if (picture.changed.empty()) {
                continue;
            }
        }
        drawn.push_back(std::move(picture));
    }
    return drawn;
}

double CpuSeconds() {
    FILETIME created = {};
    FILETIME ended = {};
    FILETIME kernel = {};
    FILETIME user = {};
    GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
    const auto seconds = [](const FILETIME& time) {
        return static_cast<double>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 1e7;
    };
    return seconds(kernel) + seconds(user);
}

int Encode(Scene& scene, std::uint32_t pictures, const std::wstring& path, std::uint32_t quality) {
    const std::vector<DrawnPicture> drawn = DrawAll(scene, pictures);
    const auto width = static_cast<std::uint32_t>(scene.Size().cx);
    const auto height = static_cast<std::uint32_t>(scene.Size().cy);
    const std::optional<FileFormat> format = FormatOfPath(path);
    if (!format) {
        return 2;
    }
    const MadeEncoder made = MakeEncoder(RowOf(*format).picture, {width, height, kRate, quality, 0});
    if (made.encoder == nullptr) {
        return 1;
    }
    std::vector<SharedPacket> packets;
    const double before = CpuSeconds();
    for (const DrawnPicture& picture : drawn) {
        packets.push_back(made.encoder->Encode(
            {picture.pixels, width, height, width * kBytesPerPixel, SlotTime(picture.number, kRate), picture.changed},
            SlotTime(picture.number, kRate), false));
    }
    const double seconds = CpuSeconds() - before;
    const std::unique_ptr<OutputFile> file = DiskFile::Create(path);
    const std::unique_ptr<MediaWriter> writer =
        file != nullptr ? CreateWriter(*format, *file, {made.encoder->Format(), std::nullopt}, MediaTime(0)) : nullptr;
    if (writer == nullptr) {
        return 1;
    }
    std::size_t bytes = 0;
    int keys = 0;
    for (const SharedPacket& packet : packets) {
        if (packet == nullptr || !writer->Add(packet)) {
            return 1;
        }
        bytes += packet->bytes.size();
        keys += packet->isKey ? 1 : 0;
    }
    writer->Finish(SlotTime(pictures, kRate));
    std::printf("{\"pictures\": %u, \"changed\": %zu, \"keys\": %d, \"bytes\": %zu, \"cpu_ms\": %.3f}\n", pictures,
                drawn.size(), keys, bytes, seconds * 1000);
    return 0;
}

} // namespace

} // namespace kxvcr

int wmain(int argc, wchar_t** argv) {
    const log4cplus::Initializer logging;
    const auto narrow = [&](int index) {
        std::string text;
        for (const wchar_t* at = argv[index]; *at != 0; ++at) {
            text += static_cast<char>(*at);
        }
        return text;
    };
    const std::string command = argc > 3 ? narrow(1) : "";
    const std::unique_ptr<kxvcr::bench::Scene> scene = argc > 3 ? kxvcr::bench::MakeScene(narrow(2)) : nullptr;
    if (scene != nullptr && command == "show" && argc == 4) {
        return kxvcr::Show(*scene, static_cast<std::uint32_t>(_wtoi(argv[3])));
    }
    if (scene != nullptr && command == "write" && argc == 5) {
        return kxvcr::Write(*scene, static_cast<std::uint32_t>(_wtoi(argv[3])), narrow(4).c_str());
    }
    if (scene != nullptr && command == "encode" && argc == 6) {
        return kxvcr::Encode(*scene, static_cast<std::uint32_t>(_wtoi(argv[3])), argv[4],
                             static_cast<std::uint32_t>(_wtoi(argv[5])));
    }
    std::fputs("usage: sceneplayer show SCENE SECONDS\n"
               "       sceneplayer write SCENE PICTURES FILE\n"
               "       sceneplayer encode SCENE PICTURES FILE QUALITY\n",
               stderr);
    return 2;
}
