/**
 * @file
 * Captures a part of the screen by duplicating the outputs that show it.
 */
#pragma once

#include "worker/capture/capturearea.h"
#include "worker/capture/changedarea.h"
#include "worker/capture/composition.h"
#include "worker/capture/duplicatedoutputs.h"
#include "worker/capture/outputduplication.h"
#include "worker/capture/picturebuffer.h"
#include "worker/capture/picturesource.h"
#include "worker/capture/pointershape.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kxvcr {

/**
 * Captures one area as GdiCapture does, but is told what changed instead of looking for it. A duplication that is lost
 * (another mode, another desktop, another session) is made anew; until then the last picture lasts.
 *
 * With one output it waits for changes; with several only a look can tell, because the system waits for one at a time.
 */
class DuplicationCapture final : public PictureSource {
public:
    /** @param system borrowed */
    DuplicationCapture(const CaptureArea& area, bool drawCursor, GraphicsSystem& system) noexcept
        : m_area(area),
          m_drawCursor(drawCursor),
          m_system(system) {}

    /**
     * Duplicates the outputs and waits for their first pictures.
     * @return what failed, if anything did; the object is of no use then
     */
    DuplicationFailure Begin() noexcept;

    /** Once the system refuses for good what it allowed before: what failed. No picture comes any more then. */
    const std::optional<DuplicationFailure>& Refusal() const noexcept { return m_refusal; }

    Change AwaitChange(std::uint32_t milliseconds) noexcept override;
    bool TellsPresentation() const noexcept override { return true; }
    Grab Take(Picture& target, const Picture* before) noexcept override;

private:
    struct Output {
        std::unique_ptr<OutputDuplication> duplication;
        OutputPlace place;
        bool hasImage = false;
    };
    struct Pointer {
        PointerShape shape;
        POINT place = {}; // on the screen
        bool isVisible = false;
        const Output* shownBy = nullptr;
        std::int64_t ticks = 0;
    };

    DuplicationFailure Open();
    bool EnsureOpen();
    void Lose(const DuplicationFailure& failure) noexcept;
    void NoteRefusal(const DuplicationFailure& failure) noexcept;
    bool IsComplete() const noexcept;
    DuplicationFailure Poll(Output& output, UINT timeoutMs);
    HRESULT Compose(Output& output);
    HRESULT MovePointer(Output& output);
    ScreenRect PlaceInTarget() const noexcept;
    PicturePoint PointerInTarget() const noexcept;
    PictureRect PointerArea() const noexcept;
    void NoteChange(const PictureRect& rect, std::int64_t ticks) noexcept;
    bool PollAll();
    Grab LastOne(const Picture* before) const noexcept;
    void Deliver(Picture& target, const Picture* before);
    void Draw(Picture& target);
    bool IsScaled() const noexcept;

    CaptureArea m_area;
    bool m_drawCursor;
    GraphicsSystem& m_system;

    ScreenRect m_source; // where the area is on the screen, as the outputs were duplicated
    std::vector<Output> m_outputs;
    PictureBuffer m_image; // of the source's size, without the pointer
    Pointer m_pointer;
    OutputFrame m_frame;
    FramePlan m_plan;

    ChangedArea m_change; // since the picture that was delivered last
    std::int64_t m_presentedTicks = 0;
    ChangeHistory m_history;

    std::int64_t m_firstImageLimit = 0; // until when every output must have shown a picture
    std::int64_t m_lostTicks = 0;       // of the first failure since the last picture
    std::int64_t m_tryAgainTicks = 0;
    std::optional<std::int64_t> m_refusedSince;
    std::optional<DuplicationFailure> m_refusal;
};

} // namespace kxvcr
