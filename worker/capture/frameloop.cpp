// The capture. In each slot the source draws into a free picture and says whether something changed; only then the
// picture goes to the encoder. When the encoder still has all it can hold, the slot passes without a look: the next one
// finds everything that changed in between.
#include "worker/capture/frameloop.h"

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <utility>

namespace kxvcr {

MediaTime FrameLoop::Run(HANDLE stop) {
    const FineTimerResolution fine;
    const FrameTimer timer;
    std::uint64_t slot = 0; // a file begins with a picture, however late it comes
    std::uint64_t end = 0;
    bool goesOn = true;
    while (goesOn) {
        Look(slot);
        end = slot + 1;
        m_queue.LookedUntil(SlotTime(end, m_framesPerSecond));
        const std::uint64_t next = slot + m_step;
        m_statistics.spared += next - end;
        m_nextSlot = next;
        goesOn = timer.WaitUntil(m_clock.DueTicks(next), stop);
        slot = std::max(next, m_clock.SlotAt(NowTicks()));
        m_statistics.missed += slot - next;
    }
    return SlotTime(std::max(end, m_clock.SlotAt(NowTicks())), m_framesPerSecond);
}

void FrameLoop::Look(std::uint64_t slot) {
    SharedPicture target = m_queue.HasRoom() ? m_pictures.TakeFree() : SharedPicture();
    if (!target) {
        ++m_dropped;
        return;
    }
    ++m_statistics.looks;
    Grab grab = Grab::Failed;
    {
        const Stopwatch watch(m_statistics.grabTicks);
        grab = m_source.Take(*target, m_newest.Get());
    }
    NoteReadable(grab != Grab::Failed);
    const MediaTime now = Now();
    if (grab == Grab::Changed) {
        target->number = ++m_number;
        {
            const std::lock_guard lock(m_mutex);
            m_newest = target;
        }
        HandOn(target, slot, target->presentedTicks ? m_clock.TimeAt(*target->presentedTicks) : now);
        return;
    }
    ++m_statistics.unchanged;
    if (m_keyWanted && m_newest) {
        HandOn(m_newest, slot, now);
    }
}

void FrameLoop::HandOn(const SharedPicture& picture, std::uint64_t slot, MediaTime captured) {
    m_queue.Add({picture, SlotTime(slot, m_framesPerSecond), captured, m_keyWanted.exchange(false)});
}

SharedPicture FrameLoop::Newest() const noexcept {
    const std::lock_guard lock(m_mutex);
    return m_newest;
}

// One line for each change, not for each picture.
void FrameLoop::NoteReadable(bool readable) {
    if (readable == m_readable) {
        return;
    }
    m_readable = readable;
    if (readable) {
        LOG4CPLUS_INFO(GetLogger(), L"The screen can be read again");
    } else {
        LOG4CPLUS_WARN(GetLogger(), L"The screen cannot be read; the last picture is shown until it can");
    }
}

} // namespace kxvcr
