// From what a frame says about its surface to what has to be done to the picture.
#include "worker/capture/composition.h"

#include <cstdint>
#include <optional>

namespace kxvcr {

namespace {

ScreenRect Moved(const ScreenRect& rect, std::int32_t right, std::int32_t down) noexcept {
    return {rect.left + right, rect.top + down, rect.width, rect.height};
}

PictureRect InPicture(const ScreenRect& rect) noexcept {
    return {static_cast<std::uint32_t>(rect.left), static_cast<std::uint32_t>(rect.top), rect.width, rect.height};
}

// From a surface to the picture and back.
class Placement {
public:
    Placement(const OutputPlace& place, const PixelSize& picture) noexcept
        : m_place(place),
          m_upright{place.area.width, place.area.height},
          m_surface(Turned(m_upright, Back(place.turn))),
          m_visible(Intersection(place.area, {0, 0, picture.width, picture.height})) {}

    // The part of a rectangle of the surface that is in the picture, upright; without pixels when there is none.
    ScreenRect Visible(const RECT& onSurface) const noexcept { return Intersection(Upright(onSurface), m_visible); }

    // A rectangle of the surface where the picture has it or would have it.
    ScreenRect Upright(const RECT& onSurface) const noexcept {
        const ScreenRect valid = Intersection({onSurface.left, onSurface.top, Length(onSurface.left, onSurface.right),
                                               Length(onSurface.top, onSurface.bottom)},
                                              {0, 0, m_surface.width, m_surface.height});
        const PictureRect turned = Turned(InPicture(valid), m_surface, m_place.turn);
        return {m_place.area.left + static_cast<std::int32_t>(turned.left),
                m_place.area.top + static_cast<std::int32_t>(turned.top), turned.width, turned.height};
    }

    bool IsVisible(const ScreenRect& rect) const noexcept { return Contains(m_visible, rect); }

    PlacedPart Part(const ScreenRect& visible) const noexcept {
        const PictureRect onOutput = InPicture(Moved(visible, -m_place.area.left, -m_place.area.top));
        return {Turned(onOutput, m_upright, Back(m_place.turn)), InPicture(visible)};
    }

    ScreenRect All() const noexcept { return m_visible; }

private:
    static std::uint32_t Length(LONG start, LONG end) noexcept {
        return end > start ? static_cast<std::uint32_t>(end - start) : 0;
    }

    OutputPlace m_place;
    PixelSize m_upright;
    PixelSize m_surface;
    ScreenRect m_visible;
};

// What moves within the picture; none when pixels would come from beyond it.
std::optional<FramePlan::Movement> MovementOf(const DXGI_OUTDUPL_MOVE_RECT& move, const Placement& placement) {
    const RECT& to = move.DestinationRect;
    const RECT from = {move.SourcePoint.x, move.SourcePoint.y, move.SourcePoint.x + to.right - to.left,
                       move.SourcePoint.y + to.bottom - to.top};
    const ScreenRect uprightTo = placement.Upright(to);
    const ScreenRect uprightFrom = placement.Upright(from);
    if (uprightFrom.width != uprightTo.width || uprightFrom.height != uprightTo.height) {
        return std::nullopt;
    }
    const ScreenRect target = placement.Visible(to);
    const ScreenRect source = Moved(target, uprightFrom.left - uprightTo.left, uprightFrom.top - uprightTo.top);
    if (!placement.IsVisible(source)) {
        return std::nullopt;
    }
    return FramePlan::Movement{InPicture(source), InPicture(target)};
}

} // namespace

void PlanFrame(const OutputFrame& frame, const OutputPlace& place, const PixelSize& picture, FramePlan& plan) {
    plan.movements.clear();
    plan.reads.clear();
    const Placement placement(place, picture);
    const auto read = [&](const ScreenRect& visible) {
        if (visible.width != 0) {
            plan.reads.push_back(placement.Part(visible));
        }
    };
    if (frame.isWhole) {
        read(placement.All());
        return;
    }
    bool canMove = true;
    for (const DXGI_OUTDUPL_MOVE_RECT& move : frame.moves) {
        const ScreenRect target = placement.Visible(move.DestinationRect);
        if (target.width == 0) {
            continue;
        }
        const std::optional<FramePlan::Movement> movement = canMove ? MovementOf(move, placement) : std::nullopt;
        if (movement) {
            plan.movements.push_back(*movement);
        } else {
            canMove = false; // what moves on from there is not in the picture before it was read
            read(target);
        }
    }
    for (const RECT& dirty : frame.dirty) {
        read(placement.Visible(dirty));
    }
}

} // namespace kxvcr
