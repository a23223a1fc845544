// Where a picture changed.
#include "worker/capture/changedarea.h"

#include <algorithm>

namespace kxvcr {

namespace {

bool Covers(const PictureRect& outer, const PictureRect& inner) noexcept {
    return outer.left <= inner.left && outer.top <= inner.top && inner.left + inner.width <= outer.left + outer.width &&
           inner.top + inner.height <= outer.top + outer.height;
}

PictureRect Enclosing(const PictureRect& a, const PictureRect& b) noexcept {
    const std::uint32_t left = std::min(a.left, b.left);
    const std::uint32_t top = std::min(a.top, b.top);
    return {left, top, std::max(a.left + a.width, b.left + b.width) - left,
            std::max(a.top + a.height, b.top + b.height) - top};
}

} // namespace

void ChangedArea::Add(const PictureRect& rect) noexcept {
    if (rect.width == 0 || rect.height == 0 ||
        std::ranges::any_of(Rects(), [&](const PictureRect& known) { return Covers(known, rect); })) {
        return;
    }
    if (m_count < kMost) {
        m_rects[m_count++] = rect;
        return;
    }
    PictureRect all = rect;
    for (const PictureRect& known : Rects()) {
        all = Enclosing(all, known);
    }
    m_rects[0] = all;
    m_count = 1;
}

void ChangedArea::Add(const ChangedArea& other) noexcept {
    for (const PictureRect& rect : other.Rects()) {
        Add(rect);
    }
}

std::uint64_t ChangeHistory::Add(const ChangedArea& change) noexcept {
    ++m_newest;
    m_changes[m_newest % kKept] = change;
    return m_newest;
}

bool ChangeHistory::Since(std::uint64_t version, ChangedArea& changed) const noexcept {
    if (version < m_first || version > m_newest || m_newest - version > kKept) {
        return false;
    }
    for (std::uint64_t newer = version + 1; newer <= m_newest; ++newer) {
        changed.Add(m_changes[newer % kKept]);
    }
    return true;
}

} // namespace kxvcr
