// One picture on its way through the worker: looked for on the screen, and made a packet of when it changed. Beside the
// calls that nobody can do without: copy the screen, convert the colours, encode, or compare with the picture before.
// The display must be as large as the largest picture that is measured.
#include "benchmarks/pairs.h"
#include "worker/capture/difference.h"
#include "worker/capture/gdi.h"
#include "worker/capture/gdicapture.h"
#include "worker/video/colorconversion.h"
#include "worker/video/h264library.h"
#include "worker/video/makeencoder.h"
#include "worker/video/ratecontrol.h"

#include <wels/codec_api.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <string>

namespace kxvcr {

namespace {

using bench::Goal;
using bench::Require;
using bench::Timed;

constexpr std::uint32_t kFramesPerSecond = 30;
constexpr std::uint32_t kKeyInterval = 2 * kFramesPerSecond;
constexpr std::uint32_t kBitsPerSecond = 1'000'000'000; // so many that the quantiser stays what the quality says

struct Size {
    std::uint32_t width;
    std::uint32_t height;
};

CaptureArea AreaOf(const Size& size) {
    CaptureArea area;
    area.rect = {0, 0, size.width, size.height};
    return area;
}

constexpr wchar_t kWindowClass[] = L"KxPictureBenchmark";

/** Shows one of two pages of text, which differ in every line. */
class Screen {
public:
    explicit Screen(const Size& size)
        : m_pages{Page(size, 0), Page(size, 7)},
          m_seen(PicturePool::Create(2, size.width, size.height)),
          m_capture(AreaOf(size), false) {
        WNDCLASSW description = {};
        description.lpfnWndProc = Answer;
        description.hInstance = GetModuleHandleW(nullptr);
        description.lpszClassName = kWindowClass;
        RegisterClassW(&description); // fails for every window but the first
        m_window =
            CreateWindowExW(WS_EX_TOPMOST, kWindowClass, L"", WS_POPUP | WS_VISIBLE, 0, 0, static_cast<int>(size.width),
                            static_cast<int>(size.height), nullptr, nullptr, description.hInstance, nullptr);
        Require(m_window != nullptr && m_pages[0] && m_pages[1] && m_seen != nullptr, "no window");
        Show(0);
    }
    ~Screen() { DestroyWindow(m_window); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /** Returns when the screen shows the page. */
    void Show(std::uint32_t number) {
        const PictureBuffer& page = m_pages[number % m_pages.size()];
        SetWindowLongPtrW(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&page));
        InvalidateRect(m_window, nullptr, FALSE);
        const SharedPicture shown = m_seen->TakeFree();
        const auto start = std::chrono::steady_clock::now();
        do {
            MSG message;
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
                DispatchMessageW(&message);
            }
            GdiFlush();
            Require(m_capture.Take(*shown, nullptr) != Grab::Failed, "the screen cannot be read");
            Require(std::chrono::steady_clock::now() - start < std::chrono::seconds(10), "the screen shows no page");
        } while (!ShowsSame(page, shown->buffer));
    }

private:
    static PictureBuffer Page(const Size& size, int shift) {
        PictureBuffer page = PictureBuffer::Create(size.width, size.height);
        const RECT all = {0, 0, static_cast<LONG>(size.width), static_cast<LONG>(size.height)};
        FillRect(page.Dc(), &all, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH)));
        const std::wstring line =
            L"The quick brown fox jumps over the lazy dog; 0123456789 lines of text fill a screen. ";
        std::wstring text;
        while (text.size() < size.width / 8) {
            text += line;
        }
        for (int y = shift; y < all.bottom; y += 20) {
            TextOutW(page.Dc(), -(y * 13 + shift) % 400, y, text.c_str(), static_cast<int>(text.size()));
        }
        GdiFlush();
        return page;
    }

    static LRESULT CALLBACK Answer(HWND window, UINT message, WPARAM first, LPARAM second) {
        const auto* const page = reinterpret_cast<const PictureBuffer*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        if (message != WM_PAINT || page == nullptr) {
            return DefWindowProcW(window, message, first, second);
        }
        PAINTSTRUCT paint;
        BitBlt(BeginPaint(window, &paint), 0, 0, static_cast<int>(page->Width()), static_cast<int>(page->Height()),
               page->Dc(), 0, 0, SRCCOPY);
        EndPaint(window, &paint);
        return 0;
    }

    // The fourth byte of a pixel is nobody's. Every tenth line tells the pages apart.
    static bool ShowsSame(const PictureBuffer& page, const PictureBuffer& screen) {
        constexpr std::size_t kStep = 10;
        const auto same = [&](std::size_t byte) {
            return byte % kBytesPerPixel == 3 || page.Pixels()[byte] == screen.Pixels()[byte];
        };
        for (std::size_t row = 0; row < page.Height(); row += kStep) {
            for (std::size_t byte = row * page.Stride(); byte < (row + 1) * page.Stride(); ++byte) {
                if (!same(byte)) {
                    return false;
                }
            }
        }
        return true;
    }

    HWND m_window = nullptr;
    std::array<PictureBuffer, 2> m_pages;
    std::unique_ptr<PicturePool> m_seen;
    GdiCapture m_capture;
};

/** The worker's way. */
class WorkersWay {
public:
    WorkersWay(Screen& screen, const Size& size)
        : m_screen(screen),
          m_pool(PicturePool::Create(4, size.width, size.height)),
          m_capture(AreaOf(size), false),
          m_encoder(
              MakeEncoder(Codec::H264, {size.width, size.height, kFramesPerSecond, kDefaultQuality, kBitsPerSecond})
                  .encoder) {
        Require(m_pool != nullptr && m_encoder != nullptr, "no encoder");
        TakeChanged();
    }

    /** The seconds of one changed picture, from the look at the screen to its packet. */
    double TakeChanged() {
        m_screen.Show(m_number);
        return Timed(1, [&] {
            SharedPicture target = m_pool->TakeFree();
            Require(m_capture.Take(*target, m_newest.Get()) == Grab::Changed, "nothing has changed");
            const PictureBuffer& buffer = target->buffer;
            const MediaTime time = SlotTime(++m_number, kFramesPerSecond);
            Require(m_encoder->Encode(
                        {buffer.Pixels(), buffer.Width(), buffer.Height(), buffer.Stride(), time, target->changed},
                        time, false) != nullptr,
                    "no packet");
            m_newest = target;
        });
    }

    double LookAtUnchanged(std::size_t times) {
        return Timed(times, [&] {
            const SharedPicture target = m_pool->TakeFree();
            Require(m_capture.Take(*target, m_newest.Get()) == Grab::Unchanged, "something has changed");
        });
    }

private:
    Screen& m_screen;
    std::unique_ptr<PicturePool> m_pool;
    GdiCapture m_capture;
    std::unique_ptr<VideoEncoder> m_encoder;
    SharedPicture m_newest;
    std::uint32_t m_number = 0;
};

/** The bare calls, with the encoder set as the worker sets it. */
class BareCalls {
public:
    BareCalls(Screen& screen, const Size& size)
        : m_screen(screen),
          m_size(size),
          m_before(PictureBuffer::Create(size.width, size.height)),
          m_now(PictureBuffer::Create(size.width, size.height)),
          m_yuv(size.width, size.height),
          m_encoder(H264Library::CreateEncoder(H264Library::Load(H264Library::DefaultPath()))) {
        Require(m_encoder != nullptr, "no encoder");
        constexpr std::uint64_t kPixelsForTwoThreads = 2560ULL * 1440;
        const bool hasTwoThreads = std::uint64_t{size.width} * size.height >= kPixelsForTwoThreads;
        int level = WELS_LOG_ERROR;
        m_encoder->SetOption(ENCODER_OPTION_TRACE_LEVEL, &level);
        SEncParamExt parameters = {};
        m_encoder->GetDefaultParams(&parameters);
        parameters.iUsageType = SCREEN_CONTENT_REAL_TIME;
        parameters.iPicWidth = static_cast<int>(size.width);
        parameters.iPicHeight = static_cast<int>(size.height);
        parameters.fMaxFrameRate = kFramesPerSecond;
        parameters.iRCMode = RC_OFF_MODE;
        parameters.bEnableFrameSkip = false;
        parameters.iComplexityMode = LOW_COMPLEXITY;
        parameters.iEntropyCodingModeFlag = 1;
        parameters.eSpsPpsIdStrategy = CONSTANT_ID;
        parameters.uiIntraPeriod = 0;
        parameters.iNumRefFrame = 1;
        parameters.bEnableSceneChangeDetect = true;
        parameters.bEnableDenoise = false;
        parameters.bEnableBackgroundDetection = false;
        parameters.bEnableAdaptiveQuant = false;
        parameters.bEnableLongTermReference = false;
        parameters.iMultipleThreadIdc = hasTwoThreads ? 2 : 1;
        SSpatialLayerConfig& layer = parameters.sSpatialLayers[0];
        layer.iVideoWidth = parameters.iPicWidth;
        layer.iVideoHeight = parameters.iPicHeight;
        layer.fFrameRate = parameters.fMaxFrameRate;
        layer.iDLayerQp = QuantiserOf(kDefaultQuality);
        layer.uiProfileIdc = PRO_HIGH;
        layer.sSliceArgument.uiSliceMode = hasTwoThreads ? SM_FIXEDSLCNUM_SLICE : SM_SINGLE_SLICE;
        layer.sSliceArgument.uiSliceNum = hasTwoThreads ? 2 : 1;
        Require(m_encoder->InitializeExt(&parameters) == cmResultSuccess, "the encoder refuses the size");
        TakeChanged();
    }

    double TakeChanged() {
        m_screen.Show(m_number);
        return Timed(1, [&] {
            Grab(m_now);
            Convert({m_now.Pixels(), m_size.width, m_size.height, m_now.Stride(), {}, {}},
                    MatrixForHeight(m_size.height), {0, 0, m_size.width, m_size.height}, m_yuv);
            Encode();
        });
    }

    double LookAtUnchanged(std::size_t times) {
        Grab(m_before);
        return Timed(times, [&] {
            Grab(m_now);
            Require(!DifferentRows(m_before, m_now), "something has changed");
        });
    }

private:
    void Grab(const PictureBuffer& target) const {
        const ScreenDc screen(GetDC(nullptr));
        Require(BitBlt(target.Dc(), 0, 0, static_cast<int>(m_size.width), static_cast<int>(m_size.height), screen.Get(),
                       0, 0, SRCCOPY) != FALSE,
                "the screen cannot be read");
        GdiFlush();
    }

    void Encode() {
        if (m_number % kKeyInterval == 0) {
            m_encoder->ForceIntraFrame(true);
        }
        ++m_number;
        SSourcePicture source = {};
        source.iColorFormat = videoFormatI420;
        source.iStride[0] = static_cast<int>(m_yuv.LumaStride());
        source.iStride[1] = source.iStride[2] = static_cast<int>(m_yuv.ChromaStride());
        source.pData[0] = m_yuv.Luma();
        source.pData[1] = m_yuv.Blue();
        source.pData[2] = m_yuv.Red();
        source.iPicWidth = static_cast<int>(m_size.width);
        source.iPicHeight = static_cast<int>(m_size.height);
        source.uiTimeStamp = m_number * 1000LL / kFramesPerSecond;
        SFrameBSInfo coded = {};
        Require(m_encoder->EncodeFrame(&source, &coded) == cmResultSuccess && coded.iFrameSizeInBytes != 0,
                "no packet");
    }

    Screen& m_screen;
    Size m_size;
    PictureBuffer m_before;
    PictureBuffer m_now;
    YuvPicture m_yuv;
    H264Library::Encoder m_encoder;
    std::uint32_t m_number = 0;
};

void MeasurePictures(bench::Runner& runner) {
    constexpr std::size_t kLooks = 5;
    for (const Size& size : {Size{1280, 720}, Size{1920, 1080}, Size{3840, 2160}}) {
        const std::string name = std::to_string(size.height) + "p";
        Screen screen(size);
        WorkersWay worker(screen, size);
        BareCalls bare(screen, size);
        runner.Measure({"one changed picture, " + name, "copy, convert and encode alone", Goal::Times(1.1),
                        [&] { return worker.TakeChanged(); }, [&] { return bare.TakeChanged(); }});
        worker.TakeChanged();
        runner.Measure({"one unchanged picture, " + name, "copy and compare alone", Goal::Times(1.05),
                        [&] { return worker.LookAtUnchanged(kLooks); }, [&] { return bare.LookAtUnchanged(kLooks); }});
    }
}

void GrowPictures(bench::Runner& runner) {
    constexpr Size kSizes[] = {{640, 360},   {1280, 720},  {1920, 1080}, {2560, 1440},
                               {3200, 1800}, {3840, 2160}, {5120, 2880}};
    std::vector<double> megapixels;
    for (const Size& size : kSizes) {
        megapixels.push_back(size.width * size.height / 1e6);
    }
    const auto sizeOf = [&](double wanted) {
        return kSizes[static_cast<std::size_t>(std::ranges::find(megapixels, wanted) - megapixels.begin())];
    };
    runner.Grow("Changed picture by size", "megapixels", megapixels, [&](double wanted) {
        Screen screen(sizeOf(wanted));
        WorkersWay worker(screen, sizeOf(wanted));
        worker.TakeChanged();
        return worker.TakeChanged();
    });
    runner.Grow("Unchanged picture by size", "megapixels", megapixels, [&](double wanted) {
        Screen screen(sizeOf(wanted));
        WorkersWay worker(screen, sizeOf(wanted));
        return worker.LookAtUnchanged(5);
    });
}

} // namespace

} // namespace kxvcr

int main(int argc, char** argv) {
    return bench::Run(argc, argv, [](bench::Runner& runner) {
        if (runner.WantsGrowth()) {
            kxvcr::GrowPictures(runner);
        } else {
            kxvcr::MeasurePictures(runner);
        }
    });
}
