// A window as it moves, shrinks, hides and closes, told by a script; the screen shows where it was looked at.
#include "worker/capture/windowcapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <functional>
#include <optional>

namespace kxvcr {

namespace {

using kx::WindowState;

constexpr std::uint32_t kWidth = 8;
constexpr std::uint32_t kHeight = 4;

kx::WindowView ShownAt(LONG left, LONG top, LONG width = kWidth, LONG height = kHeight) {
    return {WindowState::Shown, {left, top, left + width, top + height}};
}

kx::WindowView In(WindowState state) {
    return {state, {}};
}

/** Answers its looks from a list, the last one for ever. */
class ScriptedWindow final : public WatchedWindow {
public:
    explicit ScriptedWindow(std::deque<kx::WindowView>& views) : m_views(views) {}

    kx::WindowView Look() noexcept override {
        const kx::WindowView view = m_views.front();
        if (m_views.size() > 1) {
            m_views.pop_front();
        }
        return view;
    }

private:
    std::deque<kx::WindowView>& m_views;
};

class WindowCaptureTest : public testing::Test {
protected:
    // What the screen shows is where it is: the picture holds its left edge.
    Grab TakeFromScreen(const ScreenRect& source, Picture& target, const Picture* before) {
        ++looks;
        lastArea = source;
        if (!screenIsReadable) {
            return Grab::Failed;
        }
        std::memcpy(target.buffer.Pixels().data(), &source.left, sizeof(source.left));
        return before != nullptr && LeftIn(*before) == source.left ? Grab::Unchanged : Grab::Changed;
    }

    static std::int32_t LeftIn(const Picture& picture) {
        std::int32_t left = 0;
        std::memcpy(&left, picture.buffer.Pixels().data(), sizeof(left));
        return left;
    }

    // One slot: the picture that is shown after it.
    Grab Take() {
        SharedPicture target = pool->TakeFree();
        const Grab grab = capture.Take(*target, newest.Get());
        if (grab == Grab::Changed) {
            newest = target;
        }
        return grab;
    }

    std::deque<kx::WindowView> views = {ShownAt(100, 50)};
    int looks = 0;
    int closings = 0;
    bool screenIsReadable = true;
    ScreenRect lastArea;
    std::unique_ptr<PicturePool> pool = PicturePool::Create(2, kWidth, kHeight);
    SharedPicture newest;
    WindowCapture capture{std::make_unique<ScriptedWindow>(views),
                          [this](const ScreenRect& source, Picture& target, const Picture* before) {
                              return TakeFromScreen(source, target, before);
                          },
                          kBytesPerPixel* kWidth* kHeight, [this] { ++closings; }};
};

TEST_F(WindowCaptureTest, WindowThatStands_IsTakenWhereItIsWithOneLookAtTheScreen) {
    EXPECT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(lastArea, (ScreenRect{100, 50, kWidth, kHeight}));
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(Take(), Grab::Unchanged);
}

TEST_F(WindowCaptureTest, WindowThatMovesAndGrows_IsFollowed) {
    Take();
    views = {ShownAt(-20, 7, 300, 200)};
    EXPECT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(lastArea, (ScreenRect{-20, 7, 300, 200}));
}

TEST_F(WindowCaptureTest, WindowThatMovesDuringTheLook_IsTakenAgainAtItsNewPlace) {
    views = {ShownAt(100, 50), ShownAt(110, 50)};
    EXPECT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(looks, 2);
    EXPECT_EQ(LeftIn(*newest), 110);
}

TEST_F(WindowCaptureTest, WindowThatNeverRests_IsTakenAllTheSame) {
    views = {ShownAt(1, 0), ShownAt(2, 0), ShownAt(3, 0), ShownAt(4, 0)};
    EXPECT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(looks, 2);
    EXPECT_EQ(LeftIn(*newest), 2);
}

TEST_F(WindowCaptureTest, MinimizedHiddenOrEmptyWindow_KeepsItsLastPictureUntilItIsBack) {
    for (const WindowState state : {WindowState::Minimized, WindowState::Hidden, WindowState::Empty}) {
        newest = {};
        views = {ShownAt(100, 50)};
        Take();
        looks = 0;
        views = {In(state)};
        EXPECT_EQ(Take(), Grab::Unchanged);
        EXPECT_EQ(looks, 0);
        views = {ShownAt(300, 50)};
        EXPECT_EQ(Take(), Grab::Changed);
        EXPECT_EQ(LeftIn(*newest), 300);
    }
    EXPECT_EQ(closings, 0);
}

TEST_F(WindowCaptureTest, WindowThatIsMinimizedDuringTheLook_DoesNotShowWhatLiesBehindIt) {
    Take();
    views = {ShownAt(300, 50), In(WindowState::Minimized)};
    EXPECT_EQ(Take(), Grab::Unchanged);
    EXPECT_EQ(LeftIn(*newest), 100);
}

TEST_F(WindowCaptureTest, ClosedWindow_IsToldOnceAndKeepsItsLastPicture) {
    Take();
    views = {In(WindowState::Gone)};
    EXPECT_EQ(Take(), Grab::Unchanged);
    EXPECT_EQ(Take(), Grab::Unchanged);
    EXPECT_EQ(closings, 1);
}

TEST_F(WindowCaptureTest, WindowThatIsClosedDuringTheLook_IsToldAtOnce) {
    Take();
    views = {ShownAt(300, 50), In(WindowState::Gone)};
    EXPECT_EQ(Take(), Grab::Unchanged);
    EXPECT_EQ(closings, 1);
}

// A recording begins with a picture, also when the window was closed or minimised since the first one was taken.
TEST_F(WindowCaptureTest, RecordingThatBeginsWithoutTheWindow_BeginsWithItsLastPicture) {
    for (const WindowState state : {WindowState::Minimized, WindowState::Gone}) {
        newest = {};
        views = {ShownAt(100, 50)};
        Take();
        newest = {};
        views = {In(state)};
        EXPECT_EQ(Take(), Grab::Changed);
        EXPECT_EQ(LeftIn(*newest), 100);
    }
}

TEST_F(WindowCaptureTest, WindowThatWasNeverSeen_HasNoPicture) {
    views = {In(WindowState::Minimized)};
    EXPECT_EQ(Take(), Grab::Failed);
    EXPECT_EQ(looks, 0);
}

TEST_F(WindowCaptureTest, ScreenThatCannotBeRead_IsAFailure) {
    screenIsReadable = false;
    EXPECT_EQ(Take(), Grab::Failed);
    EXPECT_EQ(closings, 0);
}

} // namespace

} // namespace kxvcr
