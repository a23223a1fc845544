// The choice between the two ways to capture the screen.
#include "worker/capture/screencapture.h"

#include "common/win/handle.h"
#include "scriptedgraphics.h"
#include "support/logcapture.h"
#include "worker/capture/pixels.h"

#include <gtest/gtest.h>
#include <log4cplus/loglevel.h>

#include <cstring>
#include <string_view>

namespace kxvcr {

namespace {

using kxtest::ScriptedFrame;
using kxtest::ScriptedGraphics;
using kxtest::ScriptedOutput;

constexpr LONG kWidth = 32;
constexpr LONG kHeight = 16;
constexpr RECT kDesktop = {0, 0, kWidth, kHeight};
constexpr std::uint32_t kColor = 0x00123456;
constexpr std::int64_t kSometime = 1'000'000;

class ScreenCaptureTest : public testing::Test {
protected:
    ScreenCaptureTest() {
        output.Fill(kDesktop, kColor);
        output.Present(kSometime);
    }

    ScreenCapture Make() { return {area, false, std::make_unique<ScriptedGraphics>(std::move(adapters))}; }
    std::vector<std::wstring> Warnings() const {
        std::vector<std::wstring> texts;
        for (const kxtest::LogEvent& event : log.Events()) {
            if (event.level >= log4cplus::WARN_LOG_LEVEL) {
                constexpr std::wstring_view kBeforeCode = L" says 0x";
                constexpr std::size_t kDigits = 8; // behind them stands what the system says in its own language
                texts.push_back(event.text.substr(0, event.text.find(kBeforeCode) + kBeforeCode.size() + kDigits));
            }
        }
        return texts;
    }

    CaptureArea area{{0, 0, kWidth, kHeight}};
    ScriptedOutput output{kDesktop};
    std::vector<std::vector<ScriptedOutput*>> adapters{{&output}};
    std::unique_ptr<PicturePool> pool = PicturePool::Create(2, kWidth, kHeight);
    kxtest::LogCapture log;
};

TEST_F(ScreenCaptureTest, SystemThatDuplicates_IsTaken) {
    ScreenCapture capture = Make();
    const SharedPicture picture = pool->TakeFree();

    EXPECT_EQ(capture.Take(*picture, nullptr), Grab::Changed);

    std::uint32_t shown = 0;
    std::memcpy(&shown, PixelAt(picture->buffer, 0, 0), sizeof(shown));
    EXPECT_EQ(shown, kColor);
    EXPECT_TRUE(capture.TellsPresentation());
    EXPECT_EQ(capture.AwaitChange(1), Change::NotYet);
    EXPECT_EQ(Warnings(), std::vector<std::wstring>{});
}

TEST_F(ScreenCaptureTest, SystemThatRefuses_LeavesItToGdiAndIsNamedOnce) {
    output.duplicate1 = output.duplicate = E_NOTIMPL;
    ScreenCapture capture = Make();
    const SharedPicture picture = pool->TakeFree();
    const SharedPicture next = pool->TakeFree();

    EXPECT_EQ(capture.Take(*picture, nullptr), Grab::Changed);
    EXPECT_EQ(capture.Take(*next, picture.Get()), Grab::Unchanged);

    EXPECT_FALSE(capture.TellsPresentation());
    EXPECT_FALSE(picture->presentedTicks);
    EXPECT_EQ(capture.AwaitChange(1), Change::CannotTell);
    EXPECT_EQ(Warnings(), (std::vector<std::wstring>{L"The screen is captured with GDI, because the system does not "
                                                     L"duplicate it: DuplicateOutput says 0x80004001"}));
}

TEST_F(ScreenCaptureTest, GdiThatIsWanted_AsksNobody) {
    ScreenCapture capture(area, false, nullptr);
    const SharedPicture picture = pool->TakeFree();

    EXPECT_EQ(capture.Take(*picture, nullptr), Grab::Changed);
    EXPECT_EQ(capture.AwaitChange(1), Change::CannotTell);
    EXPECT_EQ(Warnings(), std::vector<std::wstring>{});
}

TEST_F(ScreenCaptureTest, RefusalInTheMiddle_IsGdisTurnForTheRest) {
    constexpr DWORD kPauseMs = 20;
    constexpr int kPauses = 1000;
    const kx::KernelHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ScreenCapture capture = Make();
    const SharedPicture picture = pool->TakeFree();
    ASSERT_EQ(capture.Take(*picture, nullptr), Grab::Changed);

    ScriptedFrame lost;
    lost.acquire = DXGI_ERROR_ACCESS_LOST;
    output.Push(std::move(lost));
    output.duplicate1 = output.duplicate = DXGI_ERROR_UNSUPPORTED;
    const SharedPicture next = pool->TakeFree();
    Grab grab = Grab::Failed;
    for (int i = 0; i < kPauses && grab != Grab::Changed; ++i) {
        grab = capture.Take(*next, picture.Get());
        WaitForSingleObject(never.Get(), kPauseMs);
    }

    EXPECT_EQ(grab, Grab::Changed);
    EXPECT_FALSE(capture.TellsPresentation());
    EXPECT_EQ(Warnings(), (std::vector<std::wstring>{L"The screen is captured with GDI, because the system does not "
                                                     L"duplicate it: DuplicateOutput says 0x887a0004"}));
}

// The machine's own system: whatever it answers, there are pictures.
TEST_F(ScreenCaptureTest, OwnSystem_GivesPicturesEitherWay) {
    ScreenCapture capture(area, false, std::make_unique<WindowsGraphics>());
    const SharedPicture picture = pool->TakeFree();

    EXPECT_EQ(capture.Take(*picture, nullptr), Grab::Changed);
    EXPECT_EQ(Warnings().size(), capture.TellsPresentation() ? 0u : 1u);
}

} // namespace

} // namespace kxvcr
