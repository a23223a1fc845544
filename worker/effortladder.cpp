// How much the encoder is asked to do. Down goes it as soon as a second of work has cost pictures; up after a calm
// time, which doubles when the try fails, so that a machine that is just too slow is not tried again and again.
#include "worker/effortladder.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace kxvcr {

namespace {

constexpr EffortRung kRungs[] = {
    {Effort::Screen, 1, 1.0, L""},
    {Effort::Camera, 1, 3.0,
     L"The encoder cannot keep up with the screen: it no longer looks for screen content, files become larger"},
    {Effort::Camera, 2, 2.0, L"The encoder cannot keep up with the screen: every second picture is left out"},
};

} // namespace

const EffortRung& EffortLadder::Rung() const noexcept {
    return kRungs[m_rung];
}

bool EffortLadder::Note(MediaTime now, MediaTime took, std::uint64_t dropped) noexcept {
    m_busy += took;
    if (now - m_spanStart < kSpan) {
        return false;
    }
    const double share = static_cast<double>(m_busy.count()) / static_cast<double>((now - m_spanStart).count());
    const bool lost = dropped != m_droppedAtStart;
    const std::size_t before = m_rung;
    if (lost && share > kBusyShare) {
        GoDown(now);
    } else if (lost || share * Rung().dearerBy > kCalmShare) {
        m_calmSince = now;
    } else if (now - m_calmSince >= m_patience) {
        GoUp(now);
    }
    BeginSpan(now, dropped);
    return m_rung != before;
}

void EffortLadder::GoDown(MediaTime now) noexcept {
    m_calmSince = now;
    if (m_rung + 1 == std::size(kRungs)) {
        return;
    }
    const bool tryFailed = m_wentUpAt != MediaTime::min() && now - m_wentUpAt < 2 * kPatience;
    m_patience = tryFailed ? std::min(2 * m_patience, kMostPatience) : kPatience;
    ++m_rung;
    m_wentDown = true;
}

void EffortLadder::GoUp(MediaTime now) noexcept {
    m_calmSince = now;
    if (m_rung == 0) {
        return;
    }
    --m_rung;
    m_wentDown = false;
    m_wentUpAt = now;
}

void EffortLadder::BeginSpan(MediaTime now, std::uint64_t dropped) noexcept {
    m_spanStart = now;
    m_busy = MediaTime(0);
    m_droppedAtStart = dropped;
}

} // namespace kxvcr
