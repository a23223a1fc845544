// Captures by duplication. Frames are added up in a picture of the area; what the encoder gets is a copy of it, with
// the pointer on top, in which only what is out of date is copied.
//
// Ways out of the duplication: Lose() when a call fails, after which it is made anew a few times a second; and
// NoteRefusal() when making it anew is refused for reasons that do not pass by themselves.
#include "worker/capture/duplicationcapture.h"

#include "worker/capture/pixels.h"
#include "worker/capture/placement.h"
#include "worker/log.h"
#include "worker/ticks.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <span>
#include <utility>

namespace kxvcr {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kFirstImageTimeout = 1s;
constexpr UINT kFirstImageWaitMs = 50;
constexpr std::chrono::milliseconds kBetweenAttempts = 250ms;

// A change of the display's mode takes so long, during which the system refuses much.
constexpr std::chrono::milliseconds kRefusalLimit = 5s;

// So long nobody is told that the screen cannot be read: most losses are over sooner.
constexpr std::chrono::milliseconds kQuietLoss = 1s;

constexpr DuplicationFailure kNoFirstImage = {L"AcquireNextFrame", DXGI_ERROR_WAIT_TIMEOUT};
constexpr DuplicationFailure kNoMemory = {L"memory", E_OUTOFMEMORY};

std::int64_t Ticks(std::chrono::milliseconds time) noexcept {
    return time.count() * TicksPerSecond() / 1000;
}

// Another desktop or session has the screen, or the device was reset: it comes back, however late.
bool ComesBack(HRESULT result) noexcept {
    switch (result) {
    case E_ACCESSDENIED:
    case DXGI_ERROR_ACCESS_LOST:
    case DXGI_ERROR_SESSION_DISCONNECTED:
    case DXGI_ERROR_DEVICE_REMOVED:
    case DXGI_ERROR_DEVICE_RESET:
    case DXGI_ERROR_DEVICE_HUNG:
        return true;
    default:
        return false;
    }
}

PictureRect Clip(const PicturePoint& place, std::uint32_t width, std::uint32_t height, const PixelSize& size) noexcept {
    const ScreenRect clipped = Intersection({place.x, place.y, width, height}, {0, 0, size.width, size.height});
    return {static_cast<std::uint32_t>(clipped.left), static_cast<std::uint32_t>(clipped.top), clipped.width,
            clipped.height};
}

} // namespace

DuplicationFailure DuplicationCapture::Begin() noexcept {
    try {
        DuplicationFailure failure = Open();
        while (SUCCEEDED(failure.result) && !IsComplete()) {
            if (NowTicks() > m_firstImageLimit) {
                return kNoFirstImage;
            }
            for (Output& output : m_outputs) {
                if (SUCCEEDED(failure.result) && !output.hasImage) {
                    failure = Poll(output, kFirstImageWaitMs);
                }
            }
        }
        return failure;
    } catch (const std::bad_alloc&) {
        return kNoMemory;
    }
}

DuplicationFailure DuplicationCapture::Open() {
    m_outputs.clear(); // an output is duplicated once at a time
    m_pointer.isVisible = false;
    m_pointer.shownBy = nullptr;
    m_source = SourceNow(m_area);
    std::vector<std::unique_ptr<OutputDuplication>> duplications;
    const DuplicationFailure failure = DuplicateOutputs(m_system, m_source, duplications);
    if (FAILED(failure.result)) {
        return failure;
    }
    // Also a picture of the same size may show less of the screen than before, and what it lacks is black.
    m_image = PictureBuffer::Create(m_source.width, m_source.height);
    if (!m_image) {
        return kNoMemory;
    }
    m_firstImageLimit = NowTicks() + Ticks(kFirstImageTimeout);
    m_history.Forget();
    m_change.Clear();
    NoteChange({0, 0, m_area.rect.width, m_area.rect.height}, 0);
    m_outputs.reserve(duplications.size()); // its elements are pointed at
    for (std::unique_ptr<OutputDuplication>& duplication : duplications) {
        const ScreenRect& place = duplication->Place();
        const OutputPlace inPicture = {
            {place.left - m_source.left, place.top - m_source.top, place.width, place.height},
            duplication->TurnToStand()};
        m_outputs.push_back({std::move(duplication), inPicture, false});
    }
    return {};
}

bool DuplicationCapture::IsComplete() const noexcept {
    return !m_outputs.empty() && std::ranges::all_of(m_outputs, &Output::hasImage);
}

bool DuplicationCapture::EnsureOpen() {
    const ScreenRect source = SourceNow(m_area);
    if (source.width == 0 || source.height == 0) {
        return false;
    }
    if (!m_outputs.empty() && source == m_source) {
        return true;
    }
    if (m_refusal || NowTicks() < m_tryAgainTicks) {
        return false;
    }
    m_tryAgainTicks = NowTicks() + Ticks(kBetweenAttempts);
    const DuplicationFailure failure = Open();
    if (FAILED(failure.result)) {
        Lose(failure);
        return false;
    }
    return true;
}

void DuplicationCapture::NoteRefusal(const DuplicationFailure& failure) noexcept {
    if (ComesBack(failure.result)) {
        m_refusedSince.reset();
        return;
    }
    const std::int64_t now = NowTicks();
    if (!m_refusedSince) {
        m_refusedSince = now;
    } else if (now - *m_refusedSince > Ticks(kRefusalLimit)) {
        m_refusal = failure;
    }
}

void DuplicationCapture::Lose(const DuplicationFailure& failure) noexcept {
    m_outputs.clear();
    m_pointer.isVisible = false;
    m_pointer.shownBy = nullptr;
    if (m_lostTicks == 0) {
        m_lostTicks = NowTicks();
        KXVCR_LOG_INFO(L"The duplication of the screen is lost: " << failure.step << L" says 0x" << std::hex
                                                                  << static_cast<DWORD>(failure.result));
    }
    NoteRefusal(failure);
}

// Takes the next frame of an output into the picture, if one comes.
DuplicationFailure DuplicationCapture::Poll(Output& output, UINT timeoutMs) {
    const HRESULT next = output.duplication->Next(timeoutMs, m_frame);
    if (next == DXGI_ERROR_WAIT_TIMEOUT) {
        return {};
    }
    if (FAILED(next)) {
        return {L"AcquireNextFrame", next};
    }
    if (m_frame.hasImage) {
        if (const HRESULT result = Compose(output); FAILED(result)) {
            return {L"Map", result};
        }
        output.hasImage = true;
    }
    if (m_frame.pointer) {
        if (const HRESULT result = MovePointer(output); FAILED(result)) {
            return {L"GetFramePointerShape", result};
        }
    }
    return {};
}

HRESULT DuplicationCapture::Compose(Output& output) {
    PlanFrame(m_frame, output.place, {m_source.width, m_source.height}, m_plan);
    for (const FramePlan::Movement& movement : m_plan.movements) {
        MovePart(m_image, movement.from, movement.to);
        NoteChange(movement.to, m_frame.presentedTicks);
    }
    std::vector<PictureRect> parts;
    parts.reserve(m_plan.reads.size());
    for (const PlacedPart& part : m_plan.reads) {
        parts.push_back(part.onSurface);
        NoteChange(part.inPicture, m_frame.presentedTicks);
    }
    return output.duplication->Read(parts, [&](const SurfaceView& surface) {
        for (const PlacedPart& part : m_plan.reads) {
            CopyTurned(surface, part.onSurface, output.place.turn,
                       PixelAt(m_image, part.inPicture.left, part.inPicture.top), m_image.Stride());
        }
    });
}

// Each output tells of the pointer while it is on it, and that it has left; the news of the two may come in any order.
HRESULT DuplicationCapture::MovePointer(Output& output) {
    const OutputFrame::Pointer& news = *m_frame.pointer;
    const PictureRect before = PointerArea();
    if (news.hasNewShape) {
        if (const HRESULT result = output.duplication->ReadShape(m_pointer.shape); FAILED(result)) {
            return result;
        }
    }
    bool isChanged = news.hasNewShape;
    const bool isOlder = m_pointer.isVisible && m_pointer.shownBy != &output && m_pointer.ticks > news.ticks;
    if (news.isVisible && !isOlder) {
        const ScreenRect& screen = output.duplication->Place();
        const POINT place = {screen.left + news.place.x, screen.top + news.place.y};
        isChanged = isChanged || !m_pointer.isVisible || place.x != m_pointer.place.x || place.y != m_pointer.place.y;
        m_pointer.place = place;
        m_pointer.isVisible = true;
        m_pointer.shownBy = &output;
        m_pointer.ticks = news.ticks;
    } else if (!news.isVisible && m_pointer.shownBy == &output) {
        isChanged = isChanged || m_pointer.isVisible;
        m_pointer.isVisible = false;
    }
    if (!isChanged) {
        return S_OK;
    }
    NoteChange(before, news.ticks);
    NoteChange(PointerArea(), news.ticks);
    return S_OK;
}

bool DuplicationCapture::IsScaled() const noexcept {
    return m_source.width != m_area.rect.width || m_source.height != m_area.rect.height;
}

ScreenRect DuplicationCapture::PlaceInTarget() const noexcept {
    return Letterbox(m_source, m_area.rect.width, m_area.rect.height);
}

// Like GDI's, the pointer keeps its size in a scaled picture, and its hot spot points where it did.
PicturePoint DuplicationCapture::PointerInTarget() const noexcept {
    const POINT hotSpot = m_pointer.shape.HotSpot();
    const PicturePoint pointsAt =
        PlaceInPicture({m_pointer.place.x + hotSpot.x, m_pointer.place.y + hotSpot.y}, m_source, PlaceInTarget());
    return {pointsAt.x - static_cast<std::int32_t>(hotSpot.x), pointsAt.y - static_cast<std::int32_t>(hotSpot.y)};
}

PictureRect DuplicationCapture::PointerArea() const noexcept {
    if (!m_drawCursor || !m_pointer.isVisible) {
        return {};
    }
    return Clip(PointerInTarget(), m_pointer.shape.Width(), m_pointer.shape.Height(),
                {m_area.rect.width, m_area.rect.height});
}

// Of a scaled picture only the whole is told.
void DuplicationCapture::NoteChange(const PictureRect& rect, std::int64_t ticks) noexcept {
    if (rect.width == 0 || rect.height == 0) {
        return;
    }
    m_change.Add(IsScaled() ? PictureRect{0, 0, m_area.rect.width, m_area.rect.height} : rect);
    m_presentedTicks = std::max(m_presentedTicks, ticks);
}

Change DuplicationCapture::AwaitChange(std::uint32_t milliseconds) noexcept {
    if (!IsComplete() || m_outputs.size() != 1 || SourceNow(m_area) != m_source) {
        return Change::CannotTell;
    }
    if (!m_change.IsEmpty()) {
        return Change::Came;
    }
    DuplicationFailure failure = kNoMemory;
    try {
        failure = Poll(m_outputs.front(), milliseconds);
    } catch (const std::bad_alloc&) { // as if the duplication were lost
    }
    if (FAILED(failure.result)) {
        Lose(failure);
        return Change::CannotTell;
    }
    return m_change.IsEmpty() ? Change::NotYet : Change::Came;
}

bool DuplicationCapture::PollAll() {
    for (Output& output : m_outputs) {
        if (const DuplicationFailure failure = Poll(output, 0); FAILED(failure.result)) {
            Lose(failure);
            return false;
        }
    }
    if (!IsComplete() && NowTicks() > m_firstImageLimit) {
        Lose(kNoFirstImage);
    }
    return IsComplete();
}

Grab DuplicationCapture::Take(Picture& target, const Picture* before) noexcept {
    try {
        if (!EnsureOpen() || !PollAll()) {
            return LastOne(before);
        }
    } catch (const std::bad_alloc&) {
        Lose(kNoMemory);
        return LastOne(before);
    }
    if (std::exchange(m_lostTicks, 0) != 0) {
        KXVCR_LOG_INFO(L"The screen is duplicated again");
    }
    m_refusedSince.reset();
    if (before != nullptr && m_change.IsEmpty()) {
        return Grab::Unchanged;
    }
    Deliver(target, before);
    return Grab::Changed;
}

Grab DuplicationCapture::LastOne(const Picture* before) const noexcept {
    const bool isQuiet = m_lostTicks != 0 && NowTicks() - m_lostTicks < Ticks(kQuietLoss);
    return before != nullptr && isQuiet ? Grab::Unchanged : Grab::Failed;
}

void DuplicationCapture::Deliver(Picture& target, const Picture* before) {
    const std::uint64_t version = m_history.Add(m_change);
    Draw(target);
    target.drawn = version;
    target.changed.clear();
    if (before != nullptr) {
        const std::span<const PictureRect> rects = m_change.Rects();
        target.changed.assign(rects.begin(), rects.end());
    }
    target.presentedTicks.reset();
    if (m_presentedTicks != 0) {
        target.presentedTicks = m_presentedTicks;
    }
    m_change.Clear();
    m_presentedTicks = 0;
}

void DuplicationCapture::Draw(Picture& target) {
    const PictureBuffer& buffer = target.buffer;
    if (IsScaled()) {
        const ScreenRect place = PlaceInTarget();
        PatBlt(buffer.Dc(), 0, 0, static_cast<int>(buffer.Width()), static_cast<int>(buffer.Height()), BLACKNESS);
        SetStretchBltMode(buffer.Dc(), HALFTONE);
        SetBrushOrgEx(buffer.Dc(), 0, 0, nullptr); // as HALFTONE asks
        StretchBlt(buffer.Dc(), place.left, place.top, static_cast<int>(place.width), static_cast<int>(place.height),
                   m_image.Dc(), 0, 0, static_cast<int>(m_source.width), static_cast<int>(m_source.height), SRCCOPY);
        GdiFlush(); // the drawing may still be queued, and the pixels are read directly
    } else {
        ChangedArea outdated;
        if (!m_history.Since(target.drawn, outdated)) {
            outdated.Add(PictureRect{0, 0, buffer.Width(), buffer.Height()});
        }
        outdated.Add(PointerArea()); // what is under it must be the screen when it is drawn
        for (const PictureRect& part : outdated.Rects()) {
            CopyPart(m_image, part, buffer);
        }
    }
    if (m_drawCursor && m_pointer.isVisible) {
        m_pointer.shape.Draw(buffer, PointerInTarget());
    }
}

} // namespace kxvcr
