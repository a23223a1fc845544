// The recorder. It captures from prepare on when a replay is kept, else from the start of the file or of the live
// server on. Ways a recording ends: Finish() (stop, lost host, end of the session), a write that fails, or
// the recorded window's closing, which end in Finish() as well; each leaves a finished, closed file.
#include "worker/recorder.h"

#include "worker/capture/gdicapture.h"
#include "worker/capture/screencapture.h"
#include "worker/capture/systemwindow.h"
#include "worker/capture/windowcapture.h"
#include "worker/file/outputfile.h"
#include "worker/hostprocess.h"
#include "worker/log.h"
#include "worker/sound/makesoundencoder.h"
#include "worker/sound/wasapisource.h"
#include "worker/ticks.h"
#include "worker/video/makeencoder.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <exception>
#include <new>
#include <optional>

namespace kxvcr {

namespace {

// What may wait for the disk beside a full replay: some seconds of full screens.
constexpr std::size_t kQueueMemory = std::size_t{64} << 20;

constexpr std::uint32_t kBitsPerKilobit = 1000;

// A viewer gets a key picture whenever it needs one. Those of text are most of what is sent, but a player that jumps
// has to decode everything from the one before on.
constexpr MediaTime kLiveKeyInterval = std::chrono::seconds(4);

// The first picture is encoded when nothing is recorded yet, at a moment before everything else.
constexpr MediaTime kWarmUpTime = -std::chrono::seconds(1);

void LogSummary(const FileSink& file) {
    const FileStatistics& statistics = file.Statistics();
    KXVCR_LOG_INFO(L"File finished: " << file.Progress().pictures << L" pictures, " << file.Progress().bytes
                                      << L" bytes; write "
                                      << MillisecondsEach(statistics.writeTicks, statistics.packets)
                                      << L" ms each, flush to the disk "
                                      << MillisecondsEach(statistics.diskFlushTicks, statistics.diskFlushes)
                                      << L" ms each; at most " << statistics.mostBytesWaiting << L" bytes waited");
}

EncoderSettings EncoderSettingsOf(const RecordSettings& settings) noexcept {
    return {settings.area.rect.width, settings.area.rect.height, settings.framesPerSecond, settings.quality,
            settings.bitRate * kBitsPerKilobit};
}

const wchar_t* ReasonOf(kx::WindowState state) noexcept {
    switch (state) {
    case kx::WindowState::Gone:
        return L"there is no such window";
    case kx::WindowState::NotTopLevel:
        return L"it is no top-level window";
    case kx::WindowState::Hidden:
        return L"it is not visible";
    case kx::WindowState::Minimized:
        return L"it is minimised";
    case kx::WindowState::Empty:
        return L"it has no pixels";
    case kx::WindowState::Shown:
        break;
    }
    return L"it is shown";
}

// Makes the encoder and warms it up with a picture of the screen.
MadeEncoder MakeReadyEncoder(Codec codec, const RecordSettings& settings, const PipelineParts& parts) {
    const SharedPicture first = parts.pictures->TakeFree();
    if (parts.source->Take(*first, nullptr) == Grab::Failed) {
        return {nullptr, Result::CaptureFailed};
    }
    MadeEncoder made = MakeEncoder(codec, EncoderSettingsOf(settings));
    if (made.encoder == nullptr) {
        return made;
    }
    const PictureBuffer& buffer = first->buffer;
    const PictureView view{buffer.Pixels(), buffer.Width(), buffer.Height(), buffer.Stride(), kWarmUpTime, {}};
    if (made.encoder->Encode(view, kWarmUpTime, true) == nullptr) {
        return {nullptr, Result::EncoderFailed};
    }
    return made;
}

// Removes the file of a start that fails, however it fails.
template <class File>
class RemovedUnlessKept {
public:
    explicit RemovedUnlessKept(File& file) noexcept : m_file(&file) {}
    ~RemovedUnlessKept() {
        if (m_file != nullptr) {
            m_file->Discard();
        }
    }
    RemovedUnlessKept(const RemovedUnlessKept&) = delete;
    RemovedUnlessKept& operator=(const RemovedUnlessKept&) = delete;

    void Keep() noexcept { m_file = nullptr; }

private:
    File* m_file;
};

// Begins to listen, so that the devices are awake when the recording starts.
std::unique_ptr<SoundCapture> OpenSound(const SoundSettings& settings) {
    if (!settings) {
        return nullptr;
    }
    return std::make_unique<SoundCapture>(MakeSoundSources(settings, ReadSoundChoice()));
}

} // namespace

ScreenRecorder::~ScreenRecorder() {
    Finish();
}

ScreenLayout ScreenRecorder::Layout() const {
    return CurrentScreenLayout();
}

// Settles how large the pictures of a window are: as it is at the moment.
Result ScreenRecorder::MakeSource(RecordSettings& settings, PipelineParts& parts) {
    CaptureArea& area = settings.area;
    if (area.window == 0) {
        parts.source = std::make_unique<ScreenCapture>(area, settings.drawCursor, std::make_unique<WindowsGraphics>());
        return Result::Accepted;
    }
    auto window = std::make_unique<SystemWindow>(kx::WindowOfNumber(area.window));
    const kx::WindowView view = window->Look();
    if (view.state != kx::WindowState::Shown) {
        KXVCR_LOG_ERROR(L"The field window, " << area.window << L", names nothing to record: " << ReasonOf(view.state));
        return Result::BadWindow;
    }
    area.rect = AreaOfWindow(view);
    parts.source = std::make_unique<WindowCapture>(
        std::move(window),
        [screen = GdiCapture(area, settings.drawCursor)](const ScreenRect& source, Picture& target,
                                                         const Picture* before) mutable {
            return screen.TakeFrom(source, target, before);
        },
        kBytesPerPixel * area.rect.width * area.rect.height, [this] { OnWindowClosed(); });
    return Result::Accepted;
}

// In the capture's thread, which Finish() waits for: without a lock, and without a line in the log, which may throw. It
// and NoteStarted() each say first what they know and then ask what the other knows, so that one of them sees both.
void ScreenRecorder::OnWindowClosed() noexcept {
    m_windowClosed = true;
    if (m_started && m_endCallback) {
        m_endCallback();
    }
}

void ScreenRecorder::NoteStarted() {
    m_started = true;
    if (m_windowClosed && m_endCallback) {
        m_endCallback();
    }
}

Result ScreenRecorder::Prepare(const RecordSettings& asked) {
    const std::lock_guard lock(m_mutex);
    if (m_ended) {
        return Result::WrongOrder;
    }
    m_windowClosed = false; // of a prepare before, which was refused
    RecordSettings settings = asked;
    PipelineParts parts;
    parts.sound = OpenSound(settings.sound); // which goes on while the picture is prepared
    parts.framesPerSecond = settings.framesPerSecond;
    if (const Result result = MakeSource(settings, parts); result != Result::Accepted) {
        return result;
    }
    parts.pictures = PicturePool::Create(kPicturesOfPipeline, settings.area.rect.width, settings.area.rect.height);
    if (parts.pictures == nullptr) {
        return Result::OutOfResources;
    }
    MadeEncoder made = MakeReadyEncoder(settings.vp9Replay ? Codec::Vp9 : Codec::H264, settings, parts);
    // Without a replay the file's name may ask for another encoder yet.
    if (made.encoder == nullptr && (settings.replaySeconds != 0 || made.result != Result::EncoderMissing)) {
        return made.result;
    }
    parts.encoder = std::move(made.encoder);
    if (parts.sound != nullptr && !parts.sound->IsOpen()) {
        return Result::NoSound;
    }
    m_parts = std::move(parts);
    m_settings = settings;
    if (settings.replaySeconds == 0) {
        return Result::Accepted;
    }
    const Result result = StartReplay();
    if (result == Result::Accepted) {
        KXVCR_LOG_INFO(L"Keeping the last " << settings.replaySeconds << L" seconds of the screen");
    }
    return result;
}

Result ScreenRecorder::StartReplay() {
    Result result = Result::OutOfResources;
    if (m_hub.KeepReplay(std::chrono::seconds(m_settings.replaySeconds), kReplayMemoryLimit)) {
        result = EnsureSoundEncoder(m_parts.encoder->Format().codec);
    }
    if (result == Result::Accepted) {
        result = StartCapturing();
    }
    if (result != Result::Accepted) {
        m_hub.DropReplay();
        m_parts = {};
    }
    return result;
}

Result ScreenRecorder::EnsureSoundEncoder(Codec picture) {
    if (m_parts.sound == nullptr || m_pipeline != nullptr) {
        return Result::Accepted;
    }
    m_parts.soundEncoder = MakeSoundEncoder(picture);
    return m_parts.soundEncoder != nullptr ? Result::Accepted : Result::NoSound;
}

StreamFormat ScreenRecorder::Format() const {
    StreamFormat format{m_parts.encoder->Format(), {}};
    if (m_parts.soundEncoder != nullptr) {
        format.sound = m_parts.soundEncoder->Format();
    }
    return format;
}

// A replay has its encoder; otherwise the one that was made in advance is kept when it is the right one.
Result ScreenRecorder::EnsureEncoder(Codec codec) {
    if (m_pipeline != nullptr && m_pipeline->Format().codec != codec) {
        KXVCR_LOG_ERROR(L"The replay was kept for another format than the file's name asks for: "
                        L"for a .webm file it must be kept as VP9, and for no other");
        return Result::UnknownFormat;
    }
    if (m_parts.encoder != nullptr && m_parts.encoder->Format().codec == codec) {
        return Result::Accepted;
    }
    MadeEncoder made = MakeEncoder(codec, EncoderSettingsOf(m_settings));
    if (made.encoder != nullptr) {
        m_parts.encoder = std::move(made.encoder);
    }
    return made.result;
}

Result ScreenRecorder::StartCapturing() {
    if (m_pipeline != nullptr) {
        return Result::Accepted;
    }
    try {
        m_pipeline = std::make_unique<Pipeline>(m_parts, m_hub);
    } catch (const std::exception&) { // no thread, or no memory
        return Result::OutOfResources;
    }
    m_running = m_pipeline.get();
    return Result::Accepted;
}

Result ScreenRecorder::StartFile(const std::wstring& path) {
    const std::lock_guard lock(m_mutex);
    if (!CanStart()) {
        return Result::WrongOrder;
    }
    const std::optional<FileFormat> format = FormatOfPath(path);
    if (!format) {
        KXVCR_LOG_ERROR(L"The file's name must end in .mp4, .webm or .mkv: " << path);
        return Result::UnknownFormat;
    }
    const Codec codec = RowOf(*format).picture;
    Result result = EnsureEncoder(codec);
    if (result == Result::Accepted) {
        result = EnsureSoundEncoder(codec);
    }
    if (result != Result::Accepted) {
        return result;
    }
    try {
        result = StartFile(path, *format);
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"Cannot start the recording: no memory");
        result = Result::OutOfResources;
    }
    if (result != Result::Accepted) {
        m_hub.ReleaseReplay();
        return result;
    }
    NoteStarted();
    KXVCR_LOG_INFO(L"Recording to " << path << L", which begins with "
                                    << std::chrono::duration<double>(m_liveStart).count() << L" seconds of replay");
    return Result::Accepted;
}

Result ScreenRecorder::StartFile(const std::wstring& path, FileFormat format) {
    MediaTime start{};
    if (m_pipeline != nullptr) {
        const MediaTime now = m_pipeline->NextSlotTime();
        start = m_hub.HoldReplay(now);
        m_liveStart = now - start;
        m_droppedBefore = m_pipeline->Dropped();
    }
    const std::shared_ptr<FileSink> file = OpenFile(path, format, start);
    if (file == nullptr) {
        return Result::CannotCreateFile;
    }
    RemovedUnlessKept started(*file);
    if (!m_board.Open(HostProcessId())) {
        const DWORD error = GetLastError();
        KXVCR_LOG_WARN(L"The host cannot be told how the recording goes: error " << error);
    }
    // The host may read where the live part begins as soon as its command is answered, before the file's thread
    // reports.
    ReportProgress({});
    const Result result = Record(file, start);
    if (result == Result::Accepted) {
        started.Keep();
    } else {
        m_hub.Detach();
    }
    return result;
}

Result ScreenRecorder::Record(const std::shared_ptr<FileSink>& file, MediaTime start) {
    if (!file->Start() || !m_hub.SwitchTo(file, start)) {
        return Result::OutOfResources;
    }
    if (const Result result = StartCapturing(); result != Result::Accepted) {
        return result;
    }
    const std::lock_guard lock(m_limitMutex);
    m_file = file;
    m_file->LimitFinish(m_finishLimit);
    return Result::Accepted;
}

std::shared_ptr<FileSink> ScreenRecorder::OpenFile(const std::wstring& path, FileFormat format, MediaTime start) {
    // Of the type that the sink takes: one that is converted on the way is gone with a sink that cannot be made.
    std::unique_ptr<OutputFile> file = DiskFile::Create(path);
    if (file == nullptr) {
        const DWORD error = GetLastError(); // before the log changes it
        KXVCR_LOG_ERROR(L"Cannot create the file " << path << L": error " << error);
        return nullptr;
    }
    RemovedUnlessKept created(*file);
    std::unique_ptr<MediaWriter> writer = CreateWriter(format, *file, Format(), start);
    if (writer == nullptr) {
        const DWORD error = GetLastError();
        KXVCR_LOG_ERROR(L"Cannot write to the file " << path << L": error " << error);
        return nullptr;
    }
    auto sink = std::make_shared<FileSink>(std::move(file), std::move(writer), start, kReplayMemoryLimit + kQueueMemory,
                                           OwnerOfFile());
    created.Keep();
    return sink;
}

FileSinkOwner ScreenRecorder::OwnerOfFile() {
    FileSinkOwner owner;
    owner.settled = [this] {
        const Pipeline* const pipeline = m_running;
        return pipeline == nullptr ? MediaTime(0) : pipeline->Settled();
    };
    owner.onProgress = [this](const FileProgress& progress) { ReportProgress(progress); };
    owner.onCutShort = [this] {
        m_cutShort = true;
        if (m_endCallback) {
            m_endCallback();
        }
    };
    return owner;
}

void ScreenRecorder::ReportProgress(const FileProgress& progress) noexcept {
    const Pipeline* const pipeline = m_running;
    const std::uint64_t slots = SlotsIn(progress.length, m_settings.framesPerSecond);
    RecordingStatus status;
    status.pictures = progress.pictures;
    status.repeats = slots - std::min(slots, progress.pictures);
    status.dropped = pipeline == nullptr ? 0 : pipeline->Dropped() - m_droppedBefore;
    status.liveStart = m_liveStart.count();
    status.length = progress.length.count();
    status.bytes = progress.bytes;
    status.isFinished = progress.isFinished ? 1 : 0;
    m_board.Write(status);
}

LiveStart ScreenRecorder::StartLive(const LiveSettings& settings) {
    const std::lock_guard lock(m_mutex);
    if (!CanStart()) {
        return {Result::WrongOrder};
    }
    const Codec codec = m_parts.encoder != nullptr ? m_parts.encoder->Format().codec : Codec::H264;
    Result result = EnsureEncoder(codec);
    if (result == Result::Accepted) {
        result = EnsureSoundEncoder(codec);
    }
    if (result != Result::Accepted) {
        return {result};
    }
    auto feed = std::make_unique<LiveFeed>(Format(), m_settings.quality);
    auto live = std::make_shared<LiveServer>(*feed);
    const LiveStart start = live->Start(settings);
    if (start.result != Result::Accepted) {
        return start;
    }
    if (!m_hub.SwitchToWithoutReplay(live)) {
        return {Result::OutOfResources};
    }
    if (result = StartCapturing(); result != Result::Accepted) {
        m_hub.Detach();
        return {result};
    }
    m_parts.encoder->SetKeyInterval(kLiveKeyInterval);
    feed->Use(*m_pipeline);
    m_liveFeed = std::move(feed);
    m_live = std::move(live);
    NoteStarted();
    return start;
}

void ScreenRecorder::LimitFinish(std::uint32_t milliseconds) noexcept {
    const std::lock_guard lock(m_limitMutex);
    m_finishLimit = NowTicks() + milliseconds * TicksPerSecond() / 1000;
    if (m_file != nullptr) {
        m_file->LimitFinish(m_finishLimit);
    }
}

void ScreenRecorder::Finish() noexcept {
    const std::lock_guard lock(m_mutex);
    if (std::exchange(m_ended, true)) {
        return;
    }
    if (m_live != nullptr) {
        m_live->Stop();
    }
    bool isLimited = false;
    {
        const std::lock_guard limitLock(m_limitMutex);
        isLimited = m_finishLimit != INT64_MAX;
    }
    m_hub.Finish(m_pipeline == nullptr ? MediaTime(0) : m_pipeline->Stop(isLimited));
    if (m_file != nullptr) {
        LogSummary(*m_file);
    }
}

} // namespace kxvcr
