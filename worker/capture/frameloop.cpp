// The capture. In each slot the source draws into a free picture and says whether something changed; only then the
// picture goes to the encoder. When the encoder still has all it can hold, the slot passes without a look: the next one
// finds everything that changed in between. A source that can tell when something changes is waited for, and slots pass
// without a look until it does.
#include "worker/capture/frameloop.h"

#include "worker/log.h"

#include <algorithm>
#include <utility>

namespace kxvcr {

namespace {

constexpr std::uint32_t kLongestWaitMs = 100; // what a stop, or a picture that is asked for, may have to wait

} // namespace

MediaTime FrameLoop::Run(HANDLE stop) {
    const FineTimerResolution fine;
    const FrameTimer timer;
    std::uint64_t slot = 0; // a file begins with a picture, however late it comes
    std::uint64_t end = 0;
    bool goesOn = true;
    while (goesOn) {
        if (Now() - m_shown >= m_longestStill) {
            RequestKey();
        }
        const Change change = AwaitChange();
        if (change != Change::CannotTell) {
            slot = Waited(slot);
        }
        const std::int64_t looked = NowTicks();
        if (change == Change::NotYet) {
            ++m_statistics.quiet;
        } else {
            const std::uint64_t read = Look(slot);
            m_statistics.missed += read - slot;
            slot = read;
        }
        end = slot + 1;
        NoteLooked(end, looked);
        const std::uint64_t next = slot + m_step;
        m_statistics.spared += next - end;
        m_nextSlot = next;
        goesOn = timer.WaitUntil(m_clock.DueTicks(next), stop);
        slot = std::max(next, m_clock.SlotAt(NowTicks()));
        m_statistics.missed += slot - next;
    }
    return std::max(SlotTime(std::max(end, m_clock.SlotAt(NowTicks())), m_framesPerSecond), m_free);
}

// The first picture, and one that was asked for, are not waited for.
Change FrameLoop::AwaitChange() {
    return m_newest && !m_keyWanted ? m_source.AwaitChange(kLongestWaitMs) : Change::CannotTell;
}

// Slots that passed in the wait had nothing to show.
std::uint64_t FrameLoop::Waited(std::uint64_t slot) {
    const std::uint64_t now = std::max(slot, m_clock.SlotAt(NowTicks()));
    m_statistics.quiet += now - slot;
    return now;
}

// A source that tells the time of its pictures may have one that was presented since it was looked at.
void FrameLoop::NoteLooked(std::uint64_t end, std::int64_t lookedTicks) {
    const MediaTime until =
        m_source.TellsPresentation() ? m_clock.TimeAt(lookedTicks) : SlotTime(end, m_framesPerSecond);
    m_free = std::max(m_free, until);
    m_queue.LookedUntil(m_free);
}

// A busy system may take many slots for a look. At which moment of it the screen was read nobody tells: the middle is
// off by the least. The slots behind that one are the next look's.
std::uint64_t FrameLoop::Look(std::uint64_t slot) {
    SharedPicture target = m_queue.HasRoom() ? m_pictures.TakeFree() : SharedPicture();
    if (!target) {
        ++m_dropped;
        return slot;
    }
    ++m_statistics.looks;
    const std::int64_t begun = NowTicks();
    const Grab grab = m_source.Take(*target, m_newest.Get());
    const std::int64_t taken = NowTicks() - begun;
    m_statistics.grabTicks += taken;
    NoteReadable(grab != Grab::Failed);
    const MediaTime now = Now();
    if (grab == Grab::Changed) {
        target->number = ++m_number;
        {
            const std::lock_guard lock(m_mutex);
            m_newest = target;
        }
        const bool isTold = target->presentedTicks.has_value();
        const MediaTime captured = isTold ? std::min(m_clock.TimeAt(*target->presentedTicks), now) : now;
        const bool isFirst = target->number == 1; // a file begins with a picture
        const std::uint64_t read = isFirst || isTold ? slot : std::max(slot, m_clock.SlotAt(begun + taken / 2));
        HandOn(target, isTold && !isFirst ? captured : SlotTime(read, m_framesPerSecond), captured);
        return read;
    }
    ++m_statistics.unchanged;
    if (m_keyWanted && m_newest) {
        HandOn(m_newest, SlotTime(slot, m_framesPerSecond), now);
    }
    return slot;
}

// Two pictures may have been presented closer to each other than slots are; half a slot lies between them at least, so
// that every format of a file can tell their times apart.
void FrameLoop::HandOn(const SharedPicture& picture, MediaTime time, MediaTime captured) {
    m_shown = std::max(time, m_free);
    m_free = m_shown + SlotTime(1, m_framesPerSecond) / 2;
    m_queue.Add({picture, m_shown, captured, m_keyWanted.exchange(false)});
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
        KXVCR_LOG_INFO(L"The screen can be read again");
    } else {
        KXVCR_LOG_WARN(L"The screen cannot be read; the last picture is shown until it can");
    }
}

} // namespace kxvcr
