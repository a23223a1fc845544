// The capture: a picture for every slot in which something changed, whatever the screen and the encoder do.
#include "worker/capture/frameloop.h"

#include "common/win/handle.h"
#include "pipelinedoubles.h"
#include "worker/ticks.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

namespace kxvcr {

namespace {

using kxtest::NumberIn;
using kxtest::NumberSource;

constexpr std::uint32_t kFramesPerSecond = 50;

struct Seen {
    std::uint32_t number;
    MediaTime time;
    MediaTime captured;
    bool isKey;
};

// Another source that waits, before it says whether something changed, until there is room for it in the queue: however
// late the thread is that takes the pictures, no slot passes for want of room.
class UnhurriedSource final : public PictureSource {
public:
    UnhurriedSource(PictureSource& source, const PictureQueue& queue) : m_source(source), m_queue(queue) {}

    Change AwaitChange(std::uint32_t milliseconds) noexcept override {
        while (!m_queue.HasRoom()) {
            std::this_thread::yield();
        }
        return m_source.AwaitChange(milliseconds);
    }
    bool TellsPresentation() const noexcept override { return m_source.TellsPresentation(); }
    Grab Take(Picture& target, const Picture* before) noexcept override { return m_source.Take(target, before); }

private:
    PictureSource& m_source;
    const PictureQueue& m_queue;
};

class FrameLoopTest : public testing::Test {
protected:
    FrameLoopTest() : pool(PicturePool::Create(PictureQueue::kMost + 2, kxtest::kNumberWidth, kxtest::kNumberHeight)) {}

    // Runs until the look at which the source stops it, with a thread that takes what is handed on.
    void Run(PictureSource& hurried, MediaTime longestStill = FrameLoop::kLongestStill) {
        UnhurriedSource source(hurried, queue);
        loop = std::make_unique<FrameLoop>(source, *pool, queue, kFramesPerSecond, longestStill);
        std::jthread taker([this] {
            while (const auto picture = queue.Take()) {
                seen.push_back(
                    {NumberIn(picture->picture->buffer.Pixels()), picture->time, picture->captured, picture->isKey});
            }
        });
        end = loop->Run(stop.Get());
        queue.Close(false);
    }
    void StopAt(int look, int last) const {
        if (look == last) {
            SetEvent(stop.Get());
        }
    }
    void Wait(DWORD milliseconds) const { WaitForSingleObject(never.Get(), milliseconds); }

    kx::KernelHandle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    kx::KernelHandle never{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::unique_ptr<PicturePool> pool;
    PictureQueue queue;
    std::unique_ptr<FrameLoop> loop;
    std::vector<Seen> seen;
    MediaTime end{};
};

TEST_F(FrameLoopTest, EachChange_IsHandedOnOnceWithTheTimeOfItsSlot) {
    NumberSource source([this](int look) {
        StopAt(look, 6);
        return look;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 6u);
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].number, i + 1);
        EXPECT_EQ(seen[i].time.count() % SlotTime(1, kFramesPerSecond).count(), 0);
        EXPECT_TRUE(i == 0 || seen[i].time > seen[i - 1].time);
    }
    EXPECT_EQ(seen.front().time, MediaTime(0));
    EXPECT_GT(end, seen.back().time);
    EXPECT_EQ(loop->Dropped(), 0u);
}

TEST_F(FrameLoopTest, NothingChanges_NothingIsHandedOnAndTimeGoesOn) {
    NumberSource source([this](int look) {
        StopAt(look, 10);
        return 7;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(loop->Statistics().unchanged, 9u);
    EXPECT_GE(end, SlotTime(10, kFramesPerSecond));
    EXPECT_GE(queue.Settled(), SlotTime(10, kFramesPerSecond));
    EXPECT_LE(queue.Settled(), SlotTime(10 + loop->Statistics().missed, kFramesPerSecond));
}

TEST_F(FrameLoopTest, KeyIsAskedForWhileNothingChanges_TheSamePictureComesAgainOnce) {
    NumberSource source([this](int look) {
        if (look == 4) {
            loop->RequestKey();
        }
        StopAt(look, 8);
        return 7;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 2u);
    EXPECT_FALSE(seen[0].isKey);
    EXPECT_TRUE(seen[1].isKey);
    EXPECT_EQ(seen[1].number, 7u);
    EXPECT_GT(seen[1].time, seen[0].time);
}

TEST_F(FrameLoopTest, NothingChangesForLong_TheSamePictureComesAgainFromTimeToTime) {
    constexpr MediaTime kLongestStill = std::chrono::milliseconds(200); // ten slots
    NumberSource source([this](int look) {
        StopAt(look, 55);
        return look < 53 ? 7 : 8;
    });

    Run(source, kLongestStill);

    ASSERT_GE(seen.size(), 4u);
    EXPECT_EQ(seen.back().number, 8u);
    for (std::size_t i = 1; i + 1 < seen.size(); ++i) {
        EXPECT_EQ(seen[i].number, 7u);
        EXPECT_TRUE(seen[i].isKey);
        EXPECT_GE(seen[i].time - seen[i - 1].time, kLongestStill);
    }
}

TEST_F(FrameLoopTest, ScreenThatCannotBeRead_KeepsThePictureBefore) {
    NumberSource source([this](int look) {
        StopAt(look, 6);
        return look < 3 || look > 4 ? 1 + look / 5 : -1;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1].number, 2u);
}

TEST_F(FrameLoopTest, SlowLook_IsForTheSlotInItsMiddle) {
    NumberSource source([this](int look) {
        if (look == 2) {
            Wait(200); // ten slots
        }
        StopAt(look, 3);
        return look;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 3u);
    EXPECT_GE(seen[1].time - seen[0].time, SlotTime(5, kFramesPerSecond));
    EXPECT_GE(seen[2].time - seen[1].time, SlotTime(4, kFramesPerSecond));
    EXPECT_EQ(seen[1].time.count() % SlotTime(1, kFramesPerSecond).count(), 0);
    EXPECT_GE(loop->Statistics().missed, 8u);
}

// One and a half slots, so that the next look begins in the middle of a slot; then one that reaches from there into the
// slot behind, where its middle is; and one that is over at once, in the same slot.
TEST_F(FrameLoopTest, LooksThatTakeLongerThanASlot_GiveEachPictureASlotOfItsOwn) {
    constexpr std::array<DWORD, 3> kLooks = {30, 25, 0};
    NumberSource source([&](int look) {
        Wait(kLooks[static_cast<std::size_t>(look) % kLooks.size()]);
        StopAt(look, 12);
        return look;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 12u);
    for (std::size_t i = 1; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].time.count() % SlotTime(1, kFramesPerSecond).count(), 0) << i;
        EXPECT_GT(seen[i].time, seen[i - 1].time) << i;
    }
}

TEST_F(FrameLoopTest, EverySecondSlot_IsLookedAtWhenAsked) {
    NumberSource source([this](int look) {
        if (look == 1) {
            loop->TakeEvery(2);
        }
        StopAt(look, 5);
        return look;
    });

    Run(source);

    for (std::size_t i = 1; i < seen.size(); ++i) {
        EXPECT_GE(seen[i].time - seen[i - 1].time, SlotTime(2, kFramesPerSecond));
    }
    EXPECT_GE(loop->Statistics().spared, 4u);
}

TEST_F(FrameLoopTest, NewestPicture_IsThereForOthers) {
    NumberSource source([this](int look) {
        StopAt(look, 3);
        return look;
    });

    Run(source);

    const SharedPicture newest = loop->Newest();
    ASSERT_TRUE(newest);
    EXPECT_EQ(NumberIn(newest->buffer.Pixels()), 3u);
    EXPECT_EQ(newest->number, 3u);
}

// Without anybody who takes them, the queue fills up; what changes in the meantime is found when there is room again.
TEST_F(FrameLoopTest, FullQueue_DropsSlotsWithoutALookAndFindsTheChangeLater) {
    int looks = 0;
    NumberSource source([&looks](int look) { return looks = look; });
    loop = std::make_unique<FrameLoop>(source, *pool, queue, kFramesPerSecond);
    std::jthread capture([this] { end = loop->Run(stop.Get()); });

    while (loop->Dropped() < 5) {
        Wait(1);
    }
    const int looksWhileFull = looks;
    const auto first = queue.Take();
    const auto second = queue.Take();
    const auto third = queue.Take();
    SetEvent(stop.Get());
    capture.join();

    EXPECT_EQ(looksWhileFull, static_cast<int>(PictureQueue::kMost));
    ASSERT_TRUE(first && second && third);
    EXPECT_EQ(NumberIn(third->picture->buffer.Pixels()), 3u);
    EXPECT_GE(third->time - second->time, SlotTime(5, kFramesPerSecond));
}

// A screen that tells when it changes: one number for each change, with the moment of its presentation.
class TellingSource final : public PictureSource {
public:
    /** @param onWait what comes of each wait; it may wait itself */
    explicit TellingSource(std::function<Change(int wait)> onWait) : m_onWait(std::move(onWait)) {}

    Change AwaitChange(std::uint32_t) noexcept override { return m_onWait(++waits); }
    bool TellsPresentation() const noexcept override { return true; }
    Grab Take(Picture& target, const Picture*) noexcept override {
        ++looks;
        target.changed.clear();
        target.presentedTicks = presented ? presented(looks) : NowTicks();
        std::memcpy(target.buffer.Pixels().data(), &looks, sizeof(looks));
        return Grab::Changed;
    }

    int waits = 0;
    int looks = 0;
    std::function<std::int64_t(int look)> presented;

private:
    std::function<Change(int wait)> m_onWait;
};

TEST_F(FrameLoopTest, SourceThatTells_IsLookedAtOnlyWhenSomethingChanged) {
    TellingSource source([this](int wait) {
        StopAt(wait, 9);
        return wait % 3 == 0 ? Change::Came : Change::NotYet;
    });

    Run(source);

    EXPECT_EQ(source.looks, 1 + 3); // the first picture is not waited for
    EXPECT_EQ(seen.size(), 4u);
    EXPECT_EQ(loop->Statistics().looks, 4u);
    EXPECT_GE(loop->Statistics().quiet, 6u);
}

TEST_F(FrameLoopTest, SlotsThatPassInTheWait_AreQuiet) {
    TellingSource source([this](int wait) {
        Wait(100); // five slots
        StopAt(wait, 3);
        return Change::NotYet;
    });

    Run(source);

    EXPECT_GE(loop->Statistics().quiet, 12u);
    EXPECT_GE(end, SlotTime(15, kFramesPerSecond));
}

TEST_F(FrameLoopTest, ChangesWithoutEnd_AreTakenAtTheFrameRateAtMost) {
    TellingSource source([this](int wait) {
        StopAt(wait, 10);
        return Change::Came;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 11u);
    EXPECT_GE(end, SlotTime(10, kFramesPerSecond));
}

TEST_F(FrameLoopTest, KeyThatIsAskedForInTheWait_ComesWithoutAChange) {
    TellingSource source([this](int wait) {
        if (wait == 2) {
            loop->RequestKey();
        }
        StopAt(wait, 4);
        return Change::NotYet;
    });

    Run(source);

    ASSERT_EQ(seen.size(), 2u);
    EXPECT_TRUE(seen[1].isKey);
}

TEST_F(FrameLoopTest, TimeOfAPicture_IsThatOfItsPresentation) {
    constexpr std::int64_t kBefore = 3; // milliseconds before the look
    std::vector<std::int64_t> presented;
    TellingSource source([this](int wait) {
        Wait(25);
        StopAt(wait, 5);
        return Change::Came;
    });
    source.presented = [&](int) {
        presented.push_back(NowTicks() - kBefore * TicksPerSecond() / 1000);
        return presented.back();
    };

    Run(source);

    ASSERT_EQ(seen.size(), 6u);
    EXPECT_EQ(seen[0].time, MediaTime(0)); // a file begins with a picture
    for (std::size_t i = 2; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].time - seen[1].time, TimeOf(presented[i] - presented[1])) << i;
        EXPECT_EQ(seen[i].captured, seen[i].time);
    }
}

// The clock of a presentation may be wrong, and may stand still.
TEST_F(FrameLoopTest, PresentationInThePastOrTheFuture_LeavesTheTimesInOrder) {
    TellingSource source([this](int wait) {
        StopAt(wait, 8);
        return Change::Came;
    });
    source.presented = [](int look) { return look % 2 == 0 ? std::int64_t{1} : NowTicks() + 3600 * TicksPerSecond(); };

    Run(source);

    ASSERT_EQ(seen.size(), 9u);
    for (std::size_t i = 1; i < seen.size(); ++i) {
        EXPECT_GE(seen[i].time - seen[i - 1].time, SlotTime(1, kFramesPerSecond) / 2) << i;
    }
    EXPECT_GE(end, seen.back().time);
}

} // namespace

} // namespace kxvcr
