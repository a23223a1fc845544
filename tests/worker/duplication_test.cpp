// The capture by duplication, on outputs that a test scripts: whatever is drawn, moved, turned, lost or refused, the
// pictures show what the outputs show.
#include "worker/capture/duplicationcapture.h"

#include "common/win/handle.h"
#include "scriptedgraphics.h"
#include "support/logcapture.h"
#include "worker/capture/pixels.h"
#include "worker/ticks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <thread>

namespace kxvcr {

namespace {

using kxtest::ScriptedFrame;
using kxtest::ScriptedGraphics;
using kxtest::ScriptedOutput;
using kxtest::ScriptedShape;

constexpr std::uint32_t kColors = 0x00FFFFFF;
constexpr std::int64_t kSometime = 1'000'000;
constexpr LONG kWidth = 48;
constexpr LONG kHeight = 32;
constexpr RECT kDesktop = {0, 0, kWidth, kHeight};
constexpr DWORD kPauseMs = 20;
constexpr int kPausesUntilAttempt = 50; // a second, which is a few attempts
constexpr int kPausesUntilRefusal = 500;

// The color of a pixel of the upright output.
std::uint32_t Upright(const ScriptedOutput& output, std::uint32_t x, std::uint32_t y) {
    switch (output.rotation) {
    case DXGI_MODE_ROTATION_ROTATE90: // what is at the surface's left is at the top
        return output.At(y, output.Height() - 1 - x);
    case DXGI_MODE_ROTATION_ROTATE180:
        return output.At(output.Width() - 1 - x, output.Height() - 1 - y);
    case DXGI_MODE_ROTATION_ROTATE270:
        return output.At(output.Width() - 1 - y, x);
    default:
        return output.At(x, y);
    }
}

class DuplicationTest : public testing::Test {
protected:
    void Begin(const ScreenRect& rect, std::vector<std::vector<ScriptedOutput*>> adapters, bool drawCursor = false) {
        BeginArea(CaptureArea{rect}, std::move(adapters), drawCursor);
    }
    void BeginArea(const CaptureArea& wanted, std::vector<std::vector<ScriptedOutput*>> adapters, bool drawCursor) {
        area = wanted;
        outputs.clear();
        for (const auto& adapter : adapters) {
            outputs.insert(outputs.end(), adapter.begin(), adapter.end());
        }
        graphics = std::make_unique<ScriptedGraphics>(std::move(adapters));
        pool = PicturePool::Create(3, area.rect.width, area.rect.height);
        capture = std::make_unique<DuplicationCapture>(area, drawCursor, *graphics);
    }
    // With the first picture taken.
    void BeginWith(const ScreenRect& rect, std::vector<std::vector<ScriptedOutput*>> adapters,
                   bool drawCursor = false) {
        for (const auto& adapter : adapters) {
            for (ScriptedOutput* output : adapter) {
                output->Fill({0, 0, static_cast<LONG>(output->Width()), static_cast<LONG>(output->Height())}, 0x101010);
                output->Present(kSometime);
            }
        }
        Begin(rect, std::move(adapters), drawCursor);
        ASSERT_EQ(capture->Begin().result, S_OK);
        ASSERT_EQ(Take(), Grab::Changed);
        ASSERT_TRUE(ShowsTheOutputs());
    }

    // A picture of the pool that is not the newest, as the capture's loop does it.
    Grab Take() {
        SharedPicture target = pool->TakeFree();
        std::vector<std::byte> former;
        if (newest) {
            former.assign(newest->buffer.Pixels().begin(), newest->buffer.Pixels().end());
        }
        const Grab grab = capture->Take(*target, newest.Get());
        if (grab == Grab::Changed) {
            before = std::move(former);
            newest = target;
        }
        return grab;
    }
    template <class Condition>
    bool Within(int pauses, Condition condition) const {
        for (int i = 0; i < pauses; ++i) {
            if (condition()) {
                return true;
            }
            WaitForSingleObject(never.Get(), kPauseMs);
        }
        return false;
    }

    std::uint32_t Shown(std::uint32_t x, std::uint32_t y) const {
        std::uint32_t color = 0;
        std::memcpy(&color, PixelAt(newest->buffer, x, y), sizeof(color));
        return color & kColors;
    }
    // What is on the screen at a place of the picture; black where there is no output.
    std::uint32_t Expected(std::uint32_t x, std::uint32_t y) const {
        const LONG left = area.rect.left + static_cast<LONG>(x);
        const LONG top = area.rect.top + static_cast<LONG>(y);
        for (const ScriptedOutput* output : outputs) {
            const RECT& place = output->desktop;
            if (PtInRect(&place, {left, top})) {
                return Upright(*output, static_cast<std::uint32_t>(left - place.left),
                               static_cast<std::uint32_t>(top - place.top)) &
                       kColors;
            }
        }
        return 0;
    }
    testing::AssertionResult ShowsTheOutputs() const {
        for (std::uint32_t y = 0; y < area.rect.height; ++y) {
            for (std::uint32_t x = 0; x < area.rect.width; ++x) {
                if (Shown(x, y) != Expected(x, y)) {
                    return testing::AssertionFailure() << "at " << x << ", " << y << std::hex << ": " << Shown(x, y)
                                                       << " instead of " << Expected(x, y);
                }
            }
        }
        return testing::AssertionSuccess();
    }
    // Whatever differs from the picture before lies in what was said to have changed.
    testing::AssertionResult ToldEveryChange() const {
        const std::size_t stride = newest->buffer.Stride();
        for (std::uint32_t y = 0; y < area.rect.height; ++y) {
            for (std::uint32_t x = 0; x < area.rect.width; ++x) {
                const std::size_t offset = y * stride + x * kBytesPerPixel;
                const bool differs =
                    std::memcmp(before.data() + offset, newest->buffer.Pixels().data() + offset, 3) != 0;
                const bool told = std::ranges::any_of(newest->changed, [&](const PictureRect& rect) {
                    return x >= rect.left && x < rect.left + rect.width && y >= rect.top && y < rect.top + rect.height;
                });
                if (differs && !told) {
                    return testing::AssertionFailure() << "at " << x << ", " << y;
                }
            }
        }
        return testing::AssertionSuccess();
    }

    kx::KernelHandle never{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    CaptureArea area;
    std::vector<const ScriptedOutput*> outputs;
    std::unique_ptr<ScriptedGraphics> graphics;
    std::unique_ptr<PicturePool> pool;
    std::unique_ptr<DuplicationCapture> capture;
    SharedPicture newest;
    std::vector<std::byte> before;
};

TEST_F(DuplicationTest, FirstPicture_IsTheWholeOutput) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});

    EXPECT_TRUE(newest->changed.empty());
    EXPECT_EQ(newest->presentedTicks, kSometime);
}

TEST_F(DuplicationTest, NothingDrawn_IsUnchanged) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});

    EXPECT_EQ(Take(), Grab::Unchanged);
}

TEST_F(DuplicationTest, RectangleDrawn_IsCopiedAndTold) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});

    output.Fill({5, 6, 9, 8}, 0x998877);
    output.Present(kSometime + 5);

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(newest->changed, (std::vector<PictureRect>{{5, 6, 4, 2}}));
    EXPECT_EQ(newest->presentedTicks, kSometime + 5);
    EXPECT_TRUE(ShowsTheOutputs());
}

// The surface lies: only what the frame says is looked at, which shows that no more is copied.
TEST_F(DuplicationTest, PixelsThatTheFrameDoesNotName_AreNotCopied) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});
    const std::uint32_t former = Shown(20, 20);

    output.Fill({20, 20, 21, 21}, 0xABCDEF);
    ScriptedFrame frame = output.NextFrame(kSometime + 1);
    frame.dirty = {{0, 0, 2, 2}};
    output.Push(std::move(frame));

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(Shown(20, 20), former);
}

TEST_F(DuplicationTest, ChangeOutsideTheArea_IsNoChange) {
    ScriptedOutput output(kDesktop);
    BeginWith({8, 8, 16, 16}, {{&output}});

    output.Fill({0, 0, 8, 8}, 0x998877);
    output.Present(kSometime + 5);

    EXPECT_EQ(Take(), Grab::Unchanged);
}

TEST_F(DuplicationTest, FrameThatDoesNotSayWhatChanged_IsReadWhole) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});

    output.Fill({5, 6, 9, 8}, 0x998877);
    ScriptedFrame frame = output.NextFrame(kSometime + 1);
    frame.tellsRects = false;
    output.Push(std::move(frame));

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(newest->changed, (std::vector<PictureRect>{{0, 0, kWidth, kHeight}}));
    EXPECT_TRUE(ShowsTheOutputs());
}

TEST_F(DuplicationTest, FrameOfAPictureBeforeTheFirst_IsNoPicture) {
    ScriptedOutput output(kDesktop);
    ScriptedFrame pointerOnly;
    pointerOnly.pointerMoved = kSometime;
    output.Push(pointerOnly);
    output.Fill(kDesktop, 0x202020);
    output.Present(kSometime);
    Begin({0, 0, kWidth, kHeight}, {{&output}});

    ASSERT_EQ(capture->Begin().result, S_OK);
    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_TRUE(ShowsTheOutputs());
}

TEST_F(DuplicationTest, OutputThatNeverShowsAPicture_FailsInTime) {
    ScriptedOutput output(kDesktop);
    Begin({0, 0, kWidth, kHeight}, {{&output}});

    EXPECT_EQ(capture->Begin().result, DXGI_ERROR_WAIT_TIMEOUT);
}

// Moved and drawn at random, on outputs of every rotation beside and above each other, of which an area in the middle
// is captured. All pictures of the pool take turns, and are as old as two pictures.
TEST_F(DuplicationTest, RandomChangesOnTurnedOutputs_AreShownToThePixel) {
    ScriptedOutput upright({0, 0, kWidth, kHeight});
    ScriptedOutput quarter({kWidth, 0, 2 * kWidth, kHeight}, DXGI_MODE_ROTATION_ROTATE90);
    ScriptedOutput half({-kWidth, 0, 0, kHeight}, DXGI_MODE_ROTATION_ROTATE180);
    ScriptedOutput threeQuarters({0, -kHeight, kWidth, 0}, DXGI_MODE_ROTATION_ROTATE270);
    const std::array all = {&upright, &quarter, &half, &threeQuarters};
    BeginWith({-20, -11, kWidth + 37, kHeight + 7}, {{&upright, &quarter}, {&half, &threeQuarters}});
    EXPECT_EQ(graphics->devices, 2);

    std::mt19937 random(7);
    const auto below = [&](LONG limit) { return static_cast<LONG>(random() % static_cast<std::uint32_t>(limit)); };
    for (int round = 0; round < 300; ++round) {
        ScriptedOutput& output = *all[random() % all.size()];
        const auto width = static_cast<LONG>(output.Width());
        const auto height = static_cast<LONG>(output.Height());
        for (LONG i = below(3); i >= 0; --i) {
            const LONG partWidth = 1 + below(width);
            const LONG partHeight = 1 + below(height);
            const LONG left = below(width - partWidth + 1);
            const LONG top = below(height - partHeight + 1);
            const RECT part = {left, top, left + partWidth, top + partHeight};
            if (below(2) == 0) {
                output.Fill(part, static_cast<std::uint32_t>(random()));
            } else {
                output.Move({below(width - partWidth + 1), below(height - partHeight + 1)}, part);
            }
        }
        output.Present(kSometime + round);
        const Grab grab = Take();
        ASSERT_NE(grab, Grab::Failed);
        ASSERT_TRUE(ShowsTheOutputs()) << "round " << round;
        if (grab == Grab::Changed) {
            ASSERT_TRUE(ToldEveryChange()) << "round " << round;
        }
    }
}

TEST_F(DuplicationTest, MoreChangesThanAreTold_AreEnclosed) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});

    for (LONG i = 0; i < 100; ++i) {
        output.Fill({i % 24 * 2, i / 24 * 2, i % 24 * 2 + 1, i / 24 * 2 + 1}, static_cast<std::uint32_t>(i));
    }
    output.Present(kSometime + 1);

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_LE(newest->changed.size(), ChangedArea::kMost);
    EXPECT_TRUE(ToldEveryChange());
    EXPECT_TRUE(ShowsTheOutputs());
}

TEST_F(DuplicationTest, PlaceWithoutOutput_IsBlack) {
    ScriptedOutput output({0, 0, kWidth, kHeight});
    BeginWith({-10, -10, kWidth + 20, kHeight + 20}, {{&output}});

    EXPECT_EQ(Shown(0, 0), 0u);
    EXPECT_TRUE(ShowsTheOutputs());
}

TEST_F(DuplicationTest, OutputsElsewhere_AreLeftAlone) {
    ScriptedOutput shown({0, 0, kWidth, kHeight});
    ScriptedOutput elsewhere({kWidth, 0, 2 * kWidth, kHeight});
    ScriptedOutput detached({0, 0, kWidth, kHeight});
    detached.isAttached = false;
    shown.Fill(kDesktop, 0x303030);
    shown.Present(kSometime);
    Begin({0, 0, kWidth, kHeight}, {{&elsewhere, &detached}, {&shown}});

    ASSERT_EQ(capture->Begin().result, S_OK);
    EXPECT_EQ(elsewhere.duplicated, 0);
    EXPECT_EQ(detached.duplicated, 0);
    EXPECT_EQ(graphics->devices, 1);
}

TEST_F(DuplicationTest, OutputsThatShowTheSame_AreDuplicatedOnce) {
    ScriptedOutput screen(kDesktop);
    ScriptedOutput projector(kDesktop);
    screen.Fill(kDesktop, 0x303030);
    screen.Present(kSometime);
    Begin({0, 0, kWidth, kHeight}, {{&screen, &projector}});

    ASSERT_EQ(capture->Begin().result, S_OK);
    EXPECT_EQ(projector.duplicated, 0);
}

TEST_F(DuplicationTest, AreaWithoutOutput_IsRefused) {
    ScriptedOutput output({0, 0, kWidth, kHeight});
    Begin({1000, 0, kWidth, kHeight}, {{&output}});

    EXPECT_EQ(capture->Begin().result, DXGI_ERROR_NOT_FOUND);
}

// The system's screen is larger than the picture, as after a change of its size.
TEST_F(DuplicationTest, ScreenOfAnotherSize_IsScaledBetweenBorders) {
    const ScreenRect screen = WholeScreen();
    ScriptedOutput output({screen.left, screen.top, screen.left + static_cast<LONG>(screen.width),
                           screen.top + static_cast<LONG>(screen.height)});
    output.Present(kSometime);
    ScriptedFrame frame = output.NextFrame(kSometime + 1);
    std::ranges::fill(frame.pixels, std::byte{0x80});
    frame.tellsRects = false;
    output.Push(std::move(frame));
    CaptureArea whole{{0, 0, screen.width / 4, screen.height / 2}};
    whole.wholeScreen = true;
    BeginArea(whole, {{&output}}, false);

    ASSERT_EQ(capture->Begin().result, S_OK);
    ASSERT_EQ(Take(), Grab::Changed);
    ASSERT_EQ(Take(), Grab::Unchanged);

    const std::uint32_t middle = screen.width / 8;
    EXPECT_EQ(Shown(middle, 0), 0u);
    EXPECT_EQ(Shown(middle, screen.height / 4), 0x808080u);
    EXPECT_EQ(Shown(middle, screen.height / 2 - 1), 0u);
}

// --- The pointer

ScriptedShape Crosshair() {
    ScriptedShape shape;
    shape.info = {DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MASKED_COLOR, 2, 2, 8, {1, 1}};
    const std::array<std::uint32_t, 4> pixels = {0x00112233, 0xFFFFFFFF, 0xFFFFFFFF, 0x00445566};
    const auto* bytes = reinterpret_cast<const std::byte*>(pixels.data());
    shape.bytes.assign(bytes, bytes + sizeof(pixels));
    return shape;
}

ScriptedFrame PointerAt(POINT place, std::int64_t ticks, std::optional<ScriptedShape> shape = std::nullopt) {
    ScriptedFrame frame;
    frame.pointerMoved = ticks;
    frame.isPointerVisible = true;
    frame.pointer = place;
    if (shape) {
        frame.shape = std::make_shared<ScriptedShape>(*shape);
    }
    return frame;
}

TEST_F(DuplicationTest, PointerThatMoves_IsDrawnWhereItIsAndGoneWhereItWas) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}}, true);
    output.Push(PointerAt({10, 10}, kSometime + 1, Crosshair()));

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(newest->presentedTicks, kSometime + 1);
    EXPECT_EQ(newest->changed, (std::vector<PictureRect>{{10, 10, 2, 2}}));
    EXPECT_EQ(Shown(10, 10), 0x112233u);
    EXPECT_EQ(Shown(11, 10), Expected(11, 10) ^ kColors);
    EXPECT_EQ(Shown(11, 11), 0x445566u);

    output.Push(PointerAt({30, 10}, kSometime + 2));
    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_TRUE(ToldEveryChange());
    EXPECT_EQ(Shown(10, 10), Expected(10, 10));
    EXPECT_EQ(Shown(11, 10), Expected(11, 10));
    EXPECT_EQ(Shown(30, 10), 0x112233u);
}

// Its inverted pixels would be inverted twice if they were drawn onto themselves.
TEST_F(DuplicationTest, PointerThatRests_IsTheSameInEveryPicture) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}}, true);
    output.Push(PointerAt({10, 10}, kSometime + 1, Crosshair()));
    ASSERT_EQ(Take(), Grab::Changed);

    for (int i = 0; i < 6; ++i) {
        output.Fill({i, 0, i + 1, 1}, 0x778899);
        output.Present(kSometime + 2 + i);
        ASSERT_EQ(Take(), Grab::Changed);
        ASSERT_EQ(Shown(11, 10), Expected(11, 10) ^ kColors) << i;
    }
}

TEST_F(DuplicationTest, PointerThatHides_IsGone) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}}, true);
    output.Push(PointerAt({10, 10}, kSometime + 1, Crosshair()));
    ASSERT_EQ(Take(), Grab::Changed);

    ScriptedFrame hidden = PointerAt({0, 0}, kSometime + 2);
    hidden.isPointerVisible = false;
    output.Push(std::move(hidden));

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_TRUE(ShowsTheOutputs());
}

TEST_F(DuplicationTest, PointerThatNobodyWants_IsNoChange) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}}, false);
    output.Push(PointerAt({10, 10}, kSometime + 1, Crosshair()));

    EXPECT_EQ(Take(), Grab::Unchanged);
}

// The place is told on the upright output, whatever way round its surface is.
TEST_F(DuplicationTest, PointerOnATurnedOutputBesideAnother_IsDrawnUpright) {
    ScriptedOutput left({0, 0, kWidth, kHeight});
    ScriptedOutput right({kWidth, 0, 2 * kWidth, kHeight}, DXGI_MODE_ROTATION_ROTATE90);
    BeginWith({0, 0, 2 * kWidth, kHeight}, {{&left, &right}}, true);
    right.Push(PointerAt({3, 4}, kSometime + 1, Crosshair()));

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(Shown(kWidth + 3, 4), 0x112233u);
    EXPECT_EQ(Shown(kWidth + 4, 5), 0x445566u);
}

// The output that the pointer left may say so after the one that it came to.
TEST_F(DuplicationTest, PointerThatChangesOutputs_StaysWhereItCameTo) {
    ScriptedOutput left({0, 0, kWidth, kHeight});
    ScriptedOutput right({kWidth, 0, 2 * kWidth, kHeight});
    BeginWith({0, 0, 2 * kWidth, kHeight}, {{&left, &right}}, true);
    right.Push(PointerAt({10, 10}, kSometime + 1, Crosshair()));
    ASSERT_EQ(Take(), Grab::Changed);

    left.Push(PointerAt({20, 20}, kSometime + 2));
    ASSERT_EQ(Take(), Grab::Changed);
    ScriptedFrame gone = PointerAt({0, 0}, kSometime + 2);
    gone.isPointerVisible = false;
    right.Push(std::move(gone));
    EXPECT_EQ(Take(), Grab::Unchanged);

    EXPECT_EQ(Shown(20, 20), 0x112233u);
    EXPECT_EQ(Shown(kWidth + 10, 10), Expected(kWidth + 10, 10));
}

// --- What the calls answer

TEST_F(DuplicationTest, NewerCall_IsAskedForEightBitsFirst) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});

    EXPECT_EQ(output.askedFormats,
              (std::vector<DXGI_FORMAT>{DXGI_FORMAT_B8G8R8A8_UNORM, DXGI_FORMAT_R16G16B16A16_FLOAT}));
}

TEST_F(DuplicationTest, SystemWithoutTheNewerInterface_IsAskedByTheOlder) {
    ScriptedOutput output(kDesktop);
    output.hasNewerInterface = false;
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});

    EXPECT_TRUE(output.askedFormats.empty());
}

TEST_F(DuplicationTest, NewerCallRefused_OlderOneIsMade) {
    for (const HRESULT refusal : {E_INVALIDARG, E_NOTIMPL, DXGI_ERROR_UNSUPPORTED}) {
        ScriptedOutput output(kDesktop);
        output.duplicate1 = refusal;
        BeginWith({0, 0, kWidth, kHeight}, {{&output}});
        EXPECT_EQ(output.duplicated, 1);
        newest = {};
        capture.reset();
    }
}

TEST_F(DuplicationTest, EveryDocumentedRefusal_IsToldAndLeavesNothingBehind) {
    for (const HRESULT refusal :
         {E_INVALIDARG, E_ACCESSDENIED, E_NOTIMPL, E_OUTOFMEMORY, DXGI_ERROR_UNSUPPORTED,
          DXGI_ERROR_NOT_CURRENTLY_AVAILABLE, DXGI_ERROR_SESSION_DISCONNECTED, DXGI_ERROR_DEVICE_REMOVED}) {
        ScriptedOutput good({0, 0, kWidth, kHeight});
        ScriptedOutput bad({kWidth, 0, 2 * kWidth, kHeight});
        bad.duplicate1 = bad.duplicate = refusal;
        Begin({0, 0, 2 * kWidth, kHeight}, {{&good, &bad}});

        const DuplicationFailure failure = capture->Begin();

        EXPECT_EQ(failure.result, refusal);
        EXPECT_EQ(failure.step, std::wstring_view(L"DuplicateOutput"));
        EXPECT_EQ(*good.alive, 0);
    }
}

TEST_F(DuplicationTest, SystemWithoutDuplication_IsTold) {
    ScriptedOutput output(kDesktop);
    output.hasNewerInterface = output.hasOlderInterface = false;
    Begin({0, 0, kWidth, kHeight}, {{&output}});
    EXPECT_EQ(capture->Begin().result, E_NOINTERFACE);

    graphics->deviceResult = DXGI_ERROR_UNSUPPORTED;
    EXPECT_EQ(capture->Begin().step, std::wstring_view(L"D3D11CreateDevice"));

    graphics->factoryResult = HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
    const DuplicationFailure failure = capture->Begin();
    EXPECT_EQ(failure.step, std::wstring_view(L"CreateDXGIFactory1"));
    EXPECT_EQ(failure.result, HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
}

// What a frame's calls may answer: after each the pictures are right again.
struct FrameFault {
    const char* name;
    void (*break_)(ScriptedFrame&);
    bool losesTheDuplication;
};

constexpr FrameFault kFrameFaults[] = {
    {"AcquireNextFrame is lost", [](ScriptedFrame& frame) { frame.acquire = DXGI_ERROR_ACCESS_LOST; }, true},
    {"AcquireNextFrame has an invalid call", [](ScriptedFrame& frame) { frame.acquire = DXGI_ERROR_INVALID_CALL; },
     true},
    {"AcquireNextFrame has an invalid argument", [](ScriptedFrame& frame) { frame.acquire = E_INVALIDARG; }, true},
    {"AcquireNextFrame finds the device removed",
     [](ScriptedFrame& frame) { frame.acquire = DXGI_ERROR_DEVICE_REMOVED; }, true},
    {"AcquireNextFrame finds the session gone",
     [](ScriptedFrame& frame) { frame.acquire = DXGI_ERROR_SESSION_DISCONNECTED; }, true},
    {"GetFrameMoveRects is lost", [](ScriptedFrame& frame) { frame.moveRects = DXGI_ERROR_ACCESS_LOST; }, true},
    {"GetFrameMoveRects has an invalid call", [](ScriptedFrame& frame) { frame.moveRects = DXGI_ERROR_INVALID_CALL; },
     false},
    {"GetFrameMoveRects has an invalid argument", [](ScriptedFrame& frame) { frame.moveRects = E_INVALIDARG; }, false},
    {"GetFrameMoveRects always wants more", [](ScriptedFrame& frame) { frame.moveRects = DXGI_ERROR_MORE_DATA; },
     false},
    {"GetFrameDirtyRects is lost", [](ScriptedFrame& frame) { frame.dirtyRects = DXGI_ERROR_ACCESS_LOST; }, true},
    {"GetFrameDirtyRects has an invalid call", [](ScriptedFrame& frame) { frame.dirtyRects = DXGI_ERROR_INVALID_CALL; },
     false},
    {"GetFrameDirtyRects has an invalid argument", [](ScriptedFrame& frame) { frame.dirtyRects = E_INVALIDARG; },
     false},
    {"GetFrameDirtyRects always wants more", [](ScriptedFrame& frame) { frame.dirtyRects = DXGI_ERROR_MORE_DATA; },
     false},
    {"The lists are longer than announced", [](ScriptedFrame& frame) { frame.announcedBytes = 1; }, false},
    {"GetFramePointerShape is lost", [](ScriptedFrame& frame) { frame.pointerShape = DXGI_ERROR_ACCESS_LOST; }, true},
    {"GetFramePointerShape has an invalid call",
     [](ScriptedFrame& frame) { frame.pointerShape = DXGI_ERROR_INVALID_CALL; }, false},
    {"GetFramePointerShape has an invalid argument", [](ScriptedFrame& frame) { frame.pointerShape = E_INVALIDARG; },
     false},
    {"GetFramePointerShape always wants more", [](ScriptedFrame& frame) { frame.pointerShape = DXGI_ERROR_MORE_DATA; },
     false},
    {"ReleaseFrame is lost", [](ScriptedFrame& frame) { frame.release = DXGI_ERROR_ACCESS_LOST; }, true},
    {"ReleaseFrame has an invalid call", [](ScriptedFrame& frame) { frame.release = DXGI_ERROR_INVALID_CALL; }, false},
};

TEST_F(DuplicationTest, EveryDocumentedAnswerOfAFrame_IsSurvived) {
    for (const FrameFault& fault : kFrameFaults) {
        SCOPED_TRACE(fault.name);
        ScriptedOutput output(kDesktop);
        BeginWith({0, 0, kWidth, kHeight}, {{&output}});
        output.Move({0, 0}, {8, 8, 16, 16});
        output.Fill({1, 1, 5, 5}, 0x515151);
        for (LONG i = 0; i < 9; ++i) {
            output.Fill({30 + i, 20, 31 + i, 22 + i}, 0x616161);
        }
        ScriptedFrame frame = output.NextFrame(kSometime + 1);
        frame.pointerMoved = kSometime + 1;
        frame.isPointerVisible = true;
        frame.shape = std::make_shared<ScriptedShape>(Crosshair());
        fault.break_(frame);
        output.Push(std::move(frame));
        // What a new duplication shows first; for the old one it is a frame as any other.
        output.Fill({40, 0, 44, 4}, 0x717171);
        output.Present(kSometime + 2);

        Grab last = Grab::Failed;
        ASSERT_TRUE(Within(kPausesUntilAttempt, [&] {
            last = Take();
            return last == Grab::Unchanged && ShowsTheOutputs();
        }));
        EXPECT_EQ(output.duplicated, fault.losesTheDuplication ? 2 : 1);
        EXPECT_EQ(*output.alive, 1);
        newest = {};
        capture.reset();
        EXPECT_EQ(*output.alive, 0);
    }
}

TEST_F(DuplicationTest, PointerShapeThatIsLongerThanAnnounced_IsReadAgain) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}}, true);
    ScriptedFrame frame = PointerAt({10, 10}, kSometime + 1, Crosshair());
    output.Push(std::move(frame));
    ASSERT_EQ(Take(), Grab::Changed);

    ScriptedShape larger = Crosshair();
    larger.info.Height = 40;
    larger.bytes.resize(std::size_t{larger.info.Pitch} * 40);
    frame = PointerAt({10, 10}, kSometime + 2, larger);
    frame.announcedShapeBytes = 1;
    output.Push(std::move(frame));

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_EQ(Shown(11, 10), Expected(11, 10) ^ kColors);
    EXPECT_EQ(Shown(10, 12), 0u);
}

// --- Loss

class LossTest : public DuplicationTest {
protected:
    static void LoseNext(ScriptedOutput& output) {
        ScriptedFrame lost;
        lost.acquire = DXGI_ERROR_ACCESS_LOST;
        output.Push(std::move(lost));
    }
};

TEST_F(LossTest, SecureDesktop_IsWaitedForWithTheLastPicture) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});
    kxtest::LogCapture log;
    LoseNext(output);
    output.duplicate1 = output.duplicate = E_ACCESSDENIED;

    EXPECT_EQ(Take(), Grab::Unchanged);                                               // at first nobody is told
    ASSERT_TRUE(Within(kPausesUntilRefusal, [&] { return Take() == Grab::Failed; })); // then it takes long
    EXPECT_FALSE(Within(kPausesUntilAttempt, [&] { return Take() == Grab::Changed; }));

    output.duplicate1 = output.duplicate = S_OK;
    output.Fill({5, 6, 9, 8}, 0x998877);
    output.Present(kSometime + 9);
    ASSERT_TRUE(Within(kPausesUntilAttempt, [&] { return Take() == Grab::Changed; }));
    EXPECT_TRUE(ShowsTheOutputs());
    EXPECT_TRUE(ToldEveryChange());
    EXPECT_FALSE(capture->Refusal());
    std::vector<std::wstring> lines;
    for (const kxtest::LogEvent& event : log.Events()) {
        lines.push_back(event.text);
    }
    EXPECT_EQ(lines,
              (std::vector<std::wstring>{L"The duplication of the screen is lost: AcquireNextFrame says 0x887a0026",
                                         L"The screen is duplicated again"}));
}

TEST_F(LossTest, OutputOfAnotherMode_IsReadAnewAndWhole) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});
    ScriptedOutput smaller({0, 0, kWidth / 2, kHeight / 2});
    smaller.Fill(smaller.desktop, 0x445566);
    smaller.Present(kSometime + 1);

    LoseNext(output);
    outputs = {&smaller};
    auto* const former = graphics.get();
    ASSERT_EQ(Take(), Grab::Unchanged);
    *former = ScriptedGraphics({{&smaller}});

    ASSERT_TRUE(Within(kPausesUntilAttempt, [&] { return Take() == Grab::Changed; }));
    EXPECT_TRUE(ShowsTheOutputs()); // and black beyond it
    EXPECT_TRUE(ToldEveryChange());
}

TEST_F(LossTest, SurfaceOfAnotherSizeThanTheOutput_IsALoss) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});
    output.desktop.right += 2; // the next duplication finds the output changed, its surface not yet
    LoseNext(output);
    output.Present(kSometime + 1);
    ASSERT_EQ(Take(), Grab::Unchanged);
    EXPECT_FALSE(Within(kPausesUntilAttempt, [&] { return Take() == Grab::Changed; }));

    output.desktop.right -= 2;
    output.Present(kSometime + 2); // for a duplication that was made before
    output.Present(kSometime + 3);
    EXPECT_TRUE(Within(kPausesUntilAttempt, [&] { return Take() == Grab::Changed; }));
}

TEST_F(LossTest, RefusalThatLasts_IsForGood) {
    for (const HRESULT refusal : {DXGI_ERROR_UNSUPPORTED, DXGI_ERROR_NOT_CURRENTLY_AVAILABLE}) {
        ScriptedOutput output(kDesktop);
        BeginWith({0, 0, kWidth, kHeight}, {{&output}});
        LoseNext(output);
        output.duplicate1 = output.duplicate = refusal;

        ASSERT_TRUE(Within(kPausesUntilRefusal, [&] {
            Take();
            return capture->Refusal().has_value();
        }));
        EXPECT_EQ(capture->Refusal()->result, refusal);
        newest = {};
    }
}

// --- High dynamic range

std::uint64_t Halves(std::uint16_t red, std::uint16_t green, std::uint16_t blue) {
    return red | std::uint64_t{green} << 16 | std::uint64_t{blue} << 32;
}

TEST_F(DuplicationTest, HighDynamicRange_IsTonedToEightBits) {
    constexpr std::uint16_t kOne = 0x3C00;
    constexpr std::uint16_t kHuge = 0x7BFF;
    constexpr std::uint16_t kNegative = 0xBC00;
    ScriptedOutput output({0, 0, 2, 1}, DXGI_MODE_ROTATION_IDENTITY, DXGI_FORMAT_R16G16B16A16_FLOAT);
    const std::array<std::uint64_t, 2> pixels = {Halves(kHuge, kOne, 0), Halves(kNegative, 0, kHuge)};
    ScriptedFrame frame;
    const auto* bytes = reinterpret_cast<const std::byte*>(pixels.data());
    frame.pixels.assign(bytes, bytes + sizeof(pixels));
    frame.presented = kSometime;
    output.Push(std::move(frame));
    Begin({0, 0, 2, 1}, {{&output}});

    ASSERT_EQ(capture->Begin().result, S_OK);
    ASSERT_EQ(Take(), Grab::Changed);

    // 80 of 203 nits, where the system does not say how bright white is.
    EXPECT_EQ(Shown(0, 0), 0xFFA800u);
    EXPECT_EQ(Shown(1, 0), 0x0000FFu);
}

TEST_F(DuplicationTest, SurfaceOfAnotherFormat_IsRefused) {
    ScriptedOutput output({0, 0, 2, 1}, DXGI_MODE_ROTATION_IDENTITY, DXGI_FORMAT_R10G10B10A2_UNORM);
    output.Present(kSometime);
    Begin({0, 0, 2, 1}, {{&output}});

    EXPECT_EQ(capture->Begin().result, DXGI_ERROR_UNSUPPORTED);
}

// --- Pace

TEST_F(DuplicationTest, OneOutput_IsWaitedForUntilItChanges) {
    constexpr std::uint32_t kLimitMs = 20'000;
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});
    std::thread drawing([&] {
        WaitForSingleObject(never.Get(), kPauseMs);
        output.Fill({1, 2, 3, 4}, 0x343434);
        output.Present(kSometime + 1);
    });

    EXPECT_EQ(capture->AwaitChange(kLimitMs), Change::Came);
    drawing.join();
    EXPECT_EQ(capture->AwaitChange(kLimitMs), Change::Came); // until it is fetched

    ASSERT_EQ(Take(), Grab::Changed);
    EXPECT_TRUE(ShowsTheOutputs());
    EXPECT_EQ(capture->AwaitChange(1), Change::NotYet);
}

TEST_F(DuplicationTest, ChangeThatNobodySees_IsNone) {
    ScriptedOutput output(kDesktop);
    BeginWith({8, 8, 16, 16}, {{&output}});
    output.Push(PointerAt({10, 10}, kSometime + 1, Crosshair()));
    EXPECT_EQ(capture->AwaitChange(kPauseMs), Change::NotYet);

    output.Fill({0, 0, 4, 4}, 0x343434);
    output.Present(kSometime + 2);
    EXPECT_EQ(capture->AwaitChange(kPauseMs), Change::NotYet);
}

TEST_F(DuplicationTest, SeveralOutputs_AreNotWaitedFor) {
    ScriptedOutput left({0, 0, kWidth, kHeight});
    ScriptedOutput right({kWidth, 0, 2 * kWidth, kHeight});
    BeginWith({0, 0, 2 * kWidth, kHeight}, {{&left, &right}});
    const int waits = left.waits + right.waits;

    EXPECT_EQ(capture->AwaitChange(kPauseMs), Change::CannotTell);
    EXPECT_EQ(left.waits + right.waits, waits);
}

TEST_F(DuplicationTest, LossInTheWait_IsForALookToMend) {
    ScriptedOutput output(kDesktop);
    BeginWith({0, 0, kWidth, kHeight}, {{&output}});
    ScriptedFrame lost;
    lost.acquire = DXGI_ERROR_ACCESS_LOST;
    output.Push(std::move(lost));

    EXPECT_EQ(capture->AwaitChange(kPauseMs), Change::CannotTell);
    output.Fill({1, 2, 3, 4}, 0x343434);
    output.Present(kSometime + 1);
    EXPECT_TRUE(Within(kPausesUntilAttempt, [&] { return Take() == Grab::Changed; }));
    EXPECT_TRUE(ShowsTheOutputs());
}

} // namespace

} // namespace kxvcr
