// The recorder. One thread captures from prepare on when a replay is kept, else from the start of the file or of the
// live server on. Ways a recording ends: Finish() (stop, lost host, end of the session), or a write that fails; both
// leave a finished, closed file. The live server ends with Finish() alone.
#include "worker/recorder.h"

#include "worker/capture/capture.h"
#include "worker/capture/pacing.h"
#include "worker/capture/stopwatch.h"
#include "worker/file/matroskawriter.h"
#include "worker/file/outputfile.h"
#include "worker/live/liveserver.h"
#include "worker/video/jpegencoder.h"

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <system_error>
#include <vector>

namespace kxvcr {

namespace {

// What may wait for the disk beside a full replay buffer: some seconds of full screens.
constexpr std::size_t kQueueMemory = std::size_t{64} << 20;

void LogSummary(const RecordStatistics& statistics) {
    const std::uint64_t slots = statistics.captured + statistics.repeated + statistics.skipped;
    LOG4CPLUS_INFO(
        GetLogger(), L"Capture finished: "
                         << slots << L" frames due, " << statistics.captured << L" captured (" << statistics.unchanged
                         << L" unchanged), " << statistics.repeated << L" repeated, " << statistics.skipped
                         << L" skipped; grab " << MillisecondsEach(statistics.grabTicks, statistics.captured)
                         << L" ms, encode "
                         << MillisecondsEach(statistics.encodeTicks, statistics.captured - statistics.unchanged)
                         << L" ms each");
}

// The screen as encoded pictures. A screen that cannot be read (locked, another desktop) shows its last picture.
class ScreenPictures final : public PictureSource {
public:
    ScreenPictures(std::unique_ptr<ScreenCapture> capture, const RecordSettings& settings)
        : m_capture(std::move(capture)),
          m_encoder(settings.area.rect.width, settings.area.rect.height, settings.quality) {}

    std::span<const std::byte> Take(RecordStatistics& statistics) override {
        ++statistics.captured;
        Grab grab = Grab::Failed;
        {
            const Stopwatch watch(statistics.grabTicks);
            grab = m_capture->Take();
        }
        NoteReadable(grab != Grab::Failed);
        if (grab == Grab::Changed || m_stale) {
            Encode(statistics);
        } else {
            ++statistics.unchanged;
        }
        return m_picture;
    }

private:
    void Encode(RecordStatistics& statistics) {
        const Stopwatch watch(statistics.encodeTicks);
        const std::span<const std::byte> jpeg = m_encoder.Encode(m_capture->Pixels());
        m_stale = jpeg.empty();
        if (m_stale) {
            LOG4CPLUS_ERROR(GetLogger(), L"Cannot encode a picture: " << m_encoder.LastError());
            return;
        }
        m_picture.assign(jpeg.begin(), jpeg.end());
    }

    // One line for each change, not for each picture.
    void NoteReadable(bool readable) {
        if (readable == m_readable) {
            return;
        }
        m_readable = readable;
        if (readable) {
            LOG4CPLUS_INFO(GetLogger(), L"The screen can be read again");
        } else {
            LOG4CPLUS_WARN(GetLogger(), L"The screen cannot be read; the last picture is repeated until it can");
        }
    }

    std::unique_ptr<ScreenCapture> m_capture;
    JpegEncoder m_encoder;
    std::vector<std::byte> m_picture;
    bool m_readable = true;
    bool m_stale = true; // the captured pixels are newer than m_picture
};

} // namespace

bool FrameLoop::Give(std::uint64_t slot) {
    if (!m_sink.AddFrame(slot, m_picture)) {
        return false;
    }
    ++m_statistics.written;
    return true;
}

bool FrameLoop::Repeat(std::uint64_t from, std::uint64_t end) {
    for (std::uint64_t slot = from; slot < end; ++slot) {
        if (!Give(slot)) {
            return false;
        }
        ++m_statistics.repeated;
    }
    return true;
}

bool FrameLoop::GiveUntilStopped(HANDLE stop) {
    const FineTimerResolution fine;
    const FrameTimer timer;
    const FrameClock clock(NowTicks(), TicksPerSecond(), m_framesPerSecond);
    m_picture = m_pictures.Take(m_statistics);
    if (!Give(m_nextSlot++)) {
        return false;
    }
    while (timer.WaitUntil(clock.DueTicks(m_nextSlot), stop)) {
        const SlotPlan plan = clock.Plan(m_nextSlot, NowTicks());
        m_statistics.skipped += plan.repeatFrom - m_nextSlot;
        m_nextSlot = plan.capture;
        if (!Repeat(plan.repeatFrom, plan.repeatEnd)) {
            return false;
        }
        m_picture = m_pictures.Take(m_statistics);
        if (!Give(m_nextSlot++)) {
            return false;
        }
    }
    const SlotPlan rest = clock.Plan(m_nextSlot, NowTicks());
    m_nextSlot = rest.repeatEnd;
    return Repeat(rest.repeatFrom, rest.repeatEnd);
}

bool FrameLoop::Run(HANDLE stop) {
    const bool kept = GiveUntilStopped(stop);
    m_sink.Finish(m_nextSlot);
    return kept;
}

ScreenRecorder::ScreenRecorder() : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (!m_stop) {
        throw std::bad_alloc();
    }
}

ScreenRecorder::~ScreenRecorder() {
    Finish();
}

ScreenLayout ScreenRecorder::Layout() const {
    return CurrentScreenLayout();
}

Result ScreenRecorder::Prepare(const RecordSettings& settings) {
    const std::lock_guard lock(m_mutex);
    if (m_ended) {
        return Result::WrongOrder;
    }
    std::unique_ptr<ScreenCapture> capture = ScreenCapture::Create(settings.area, settings.drawCursor);
    if (capture == nullptr) {
        return Result::OutOfResources;
    }
    if (capture->Take() == Grab::Failed) {
        return Result::CaptureFailed;
    }
    auto pictures = std::make_unique<ScreenPictures>(std::move(capture), settings);
    RecordStatistics warmUp;
    if (pictures->Take(warmUp).empty()) {
        return Result::EncoderFailed;
    }
    m_pictures = std::move(pictures);
    m_settings = settings;
    if (settings.replaySeconds == 0) {
        return Result::Accepted;
    }
    m_sink.KeepReplay(std::uint64_t{settings.replaySeconds} * settings.framesPerSecond);
    if (!StartCapturing()) {
        m_pictures.reset();
        return Result::OutOfResources;
    }
    LOG4CPLUS_INFO(GetLogger(), L"Keeping the last " << settings.replaySeconds << L" seconds of the screen");
    return Result::Accepted;
}

std::unique_ptr<FileSink> ScreenRecorder::OpenFile(const std::wstring& path) const {
    std::unique_ptr<DiskFile> file = DiskFile::Create(path);
    if (file == nullptr) {
        const DWORD error = GetLastError(); // before the log changes it
        LOG4CPLUS_ERROR(GetLogger(), L"Cannot create the file " << path << L": error " << error);
        return nullptr;
    }
    const ScreenRect& area = m_settings.area.rect;
    std::unique_ptr<MatroskaWriter> writer =
        MatroskaWriter::Create(*file, {area.width, area.height, m_settings.framesPerSecond});
    if (writer == nullptr) {
        const DWORD error = GetLastError();
        LOG4CPLUS_ERROR(GetLogger(), L"Cannot write to the file " << path << L": error " << error);
        file->Discard();
        return nullptr;
    }
    return std::make_unique<FileSink>(std::move(file), std::move(writer), kReplayMemoryLimit + kQueueMemory);
}

Result ScreenRecorder::StartFile(const std::wstring& path) {
    const std::lock_guard lock(m_mutex);
    if (m_ended || m_pictures == nullptr || m_started) {
        return Result::WrongOrder;
    }
    std::unique_ptr<FileSink> file = OpenFile(path);
    if (file == nullptr) {
        return Result::CannotCreateFile;
    }
    if (!file->Start() || !m_sink.SwitchTo(file)) {
        file->Discard();
        return Result::OutOfResources;
    }
    if (!StartCapturing()) {
        m_sink.Detach()->Discard();
        return Result::OutOfResources;
    }
    m_started = true;
    LOG4CPLUS_INFO(GetLogger(), L"Recording to " << path);
    return Result::Accepted;
}

std::int32_t ScreenRecorder::StartLive(const LiveSettings& settings) {
    const std::lock_guard lock(m_mutex);
    if (m_ended || m_pictures == nullptr || m_started) {
        return static_cast<std::int32_t>(Result::WrongOrder);
    }
    const ScreenRect& area = m_settings.area.rect;
    auto live = std::make_unique<LiveServer>(area.width, area.height);
    const std::int32_t port = live->Start(settings);
    if (port < 0) {
        return port;
    }
    if (!m_sink.SwitchTo(*live)) {
        return static_cast<std::int32_t>(Result::OutOfResources);
    }
    if (!StartCapturing()) {
        m_sink.Detach();
        return static_cast<std::int32_t>(Result::OutOfResources);
    }
    m_live = std::move(live);
    m_started = true;
    return port;
}

bool ScreenRecorder::StartCapturing() noexcept {
    if (m_thread.joinable()) {
        return true;
    }
    try {
        m_thread = std::thread(&ScreenRecorder::Capture, this);
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void ScreenRecorder::Capture() noexcept {
    FrameLoop loop(*m_pictures, m_sink, m_settings.framesPerSecond);
    try {
        loop.Run(m_stop.Get());
        LogSummary(loop.Statistics());
    } catch (const std::exception& failure) {
        LOG4CPLUS_ERROR(GetLogger(), L"Capturing ended early: " << failure.what());
    }
    m_sink.End();
    if (m_sink.CutShort() && m_cutShortCallback) {
        m_cutShortCallback();
    }
}

void ScreenRecorder::LimitFinish(std::uint32_t milliseconds) noexcept {
    m_sink.LimitFinish(NowTicks() + milliseconds * TicksPerSecond() / 1000);
}

void ScreenRecorder::Finish() noexcept {
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    SetEvent(m_stop.Get());
    if (m_live != nullptr) {
        m_live->Stop();
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

} // namespace kxvcr
