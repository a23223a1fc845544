/**
 * @file
 * The choice between the two ways to capture the screen.
 */
#pragma once

#include "worker/capture/capturearea.h"
#include "worker/capture/duplicationcapture.h"
#include "worker/capture/gdicapture.h"
#include "worker/capture/picturesource.h"

#include <cstdint>
#include <memory>

namespace kxvcr {

/** Captures by duplication as long as the system allows it, else with GDI. Each change to GDI is said in the log. */
class ScreenCapture final : public PictureSource {
public:
    /**
     * @param system null: GDI is wanted
     * @throws std::bad_alloc
     */
    ScreenCapture(const CaptureArea& area, bool drawCursor, std::unique_ptr<GraphicsSystem> system);

    Change AwaitChange(std::uint32_t milliseconds) noexcept override;
    bool TellsPresentation() const noexcept override { return m_duplication != nullptr; }
    Grab Take(Picture& target, const Picture* before) noexcept override;

private:
    void GiveUpDuplication(DuplicationFailure failure) noexcept;

    std::unique_ptr<GraphicsSystem> m_system;
    std::unique_ptr<DuplicationCapture> m_duplication; // null: GDI
    GdiCapture m_gdi;
};

} // namespace kxvcr
