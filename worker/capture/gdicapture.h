/**
 * @file
 * Captures a part of the screen with GDI, with or without the mouse pointer.
 */
#pragma once

#include "worker/capture/capturearea.h"
#include "worker/capture/picturesource.h"

namespace kxvcr {

/**
 * Captures one area; the pictures keep the area's first size. When what is followed has another size than at first, its
 * picture is scaled into the first size with its proportions kept; what lies outside the screen is black.
 */
class GdiCapture final : public PictureSource {
public:
    GdiCapture(const CaptureArea& area, bool drawCursor) noexcept : m_area(area), m_drawCursor(drawCursor) {}

    Grab Take(Picture& target, const Picture* before) noexcept override;

    /** The same for whatever part of the screen the pictures show at the moment, of any size. */
    Grab TakeFrom(const ScreenRect& source, Picture& target, const Picture* before) noexcept;

private:
    CaptureArea m_area;
    bool m_drawCursor;
};

} // namespace kxvcr
