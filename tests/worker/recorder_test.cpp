// The recorder, with a screen and an encoder of its own: what a command leaves that was refused.
#include "worker/recorder.h"

#include "common/win/owner.h"
#include "common/win/toplevelwindow.h"
#include "support/importpatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <system_error>

namespace kxvcr::test {

namespace {

using IsWindowHook = kxtest::ImportHook<"USER32.dll", "IsWindow", decltype(IsWindow)>;
using Window = kx::Owner<kx::FreedBy<HWND, &DestroyWindow>>;

constexpr ScreenRect kPart = {0, 0, 64, 48};

RecordSettings SettingsOfPart() {
    RecordSettings settings;
    settings.area.rect = kPart;
    return settings;
}

class RecorderTest : public testing::Test {
protected:
    RecorderTest()
        : path(std::filesystem::temp_directory_path() /
               (L"recorder_test." + std::to_wstring(GetCurrentProcessId()) + L".mkv")) {
        recorder.SetEndCallback([this] { ++ends; });
    }
    ~RecorderTest() override {
        recorder.Finish();
        std::error_code failure;
        std::filesystem::remove(path, failure);
    }

    std::filesystem::path path;
    std::atomic<int> ends = 0;
    ScreenRecorder recorder;
};

// The window is there when it is looked up, and gone when its first picture is taken.
TEST_F(RecorderTest, WindowThatClosedDuringAPrepare_IsForgottenByTheNext) {
    const Window window(CreateWindowExW(0, L"Static", L"a window", WS_POPUP | WS_VISIBLE, 0, 0, 64, 48, nullptr,
                                        nullptr, nullptr, nullptr));
    RecordSettings settings;
    settings.area.window = kx::NumberOfWindow(window.Get());
    {
        int looks = 0;
        const IsWindowHook hook([&](HWND) -> BOOL { return ++looks == 1; }, GetModuleHandleW(nullptr));
        ASSERT_EQ(recorder.Prepare(settings), Result::CaptureFailed);
    }
    ASSERT_EQ(recorder.Prepare(SettingsOfPart()), Result::Accepted);
    ASSERT_EQ(recorder.StartFile(path.wstring()), Result::Accepted);

    EXPECT_EQ(ends, 0);
    EXPECT_FALSE(recorder.WindowClosed());
}

} // namespace

} // namespace kxvcr::test
