// The recorder, with a screen and an encoder of its own: what a command leaves that was refused.
#include "worker/recorder.h"

#include "common/win/owner.h"
#include "common/win/toplevelwindow.h"
#include "support/handlecount.h"
#include "support/importpatch.h"
#include "support/logcapture.h"
#include "tests/worker/mp4reader.h"
#include "tests/worker/scarcememory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <system_error>

namespace kxvcr::test {

namespace {

using IsWindowHook = kxtest::ImportHook<"USER32.dll", "IsWindow", decltype(IsWindow)>;
using Window = kx::Owner<kx::FreedBy<HWND, &DestroyWindow>>;

constexpr ScreenRect kPart = {0, 0, 64, 48};
constexpr std::uint32_t kReplaySeconds = 10;
// A start that leaves its server holds it; systems give away by themselves only ports above it.
constexpr std::uint16_t kPort = 27'213;
constexpr std::chrono::seconds kLimit(10);
constexpr unsigned kEnoughRefusals = 10;
constexpr int kMostAllocations = 1000; // of a command

Window ShownWindow() {
    return Window(CreateWindowExW(0, L"Static", L"a window", WS_POPUP | WS_VISIBLE, 0, 0, 64, 48, nullptr, nullptr,
                                  nullptr, nullptr));
}

RecordSettings SettingsOf(const Window& window) {
    RecordSettings settings;
    settings.area.window = kx::NumberOfWindow(window.Get());
    return settings;
}

std::filesystem::path PathWith(const wchar_t* extension) {
    return std::filesystem::temp_directory_path() /
           (L"recorder_test." + std::to_wstring(GetCurrentProcessId()) + extension);
}

std::vector<std::byte> BytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::byte> bytes;
    std::transform(std::istreambuf_iterator<char>(file), {}, std::back_inserter(bytes),
                   [](char byte) { return static_cast<std::byte>(byte); });
    return bytes;
}

// The window is there when it is looked up, and gone when its first picture is taken.
TEST(Recorder, WindowThatClosedDuringAPrepare_IsForgottenByTheNext) {
    const std::filesystem::path path = PathWith(L".mkv");
    std::atomic<int> ends = 0;
    ScreenRecorder recorder;
    recorder.SetEndCallback([&] { ++ends; });
    const Window window = ShownWindow();
    {
        int looks = 0;
        const IsWindowHook hook([&](HWND) -> BOOL { return ++looks == 1; }, GetModuleHandleW(nullptr));
        ASSERT_EQ(recorder.Prepare(SettingsOf(window)), Result::CaptureFailed);
    }
    RecordSettings part;
    part.area.rect = kPart;
    ASSERT_EQ(recorder.Prepare(part), Result::Accepted);
    ASSERT_EQ(recorder.StartFile(path.wstring()), Result::Accepted);

    EXPECT_EQ(ends, 0);
    EXPECT_FALSE(recorder.WindowClosed());
    recorder.Finish();
    std::filesystem::remove(path);
}

std::unique_ptr<ScreenRecorder> NewRecorder() {
    return std::make_unique<ScreenRecorder>();
}

// An encoder that failed, and the library that writes WebM, do not say that it was for want of memory.
bool IsRefusal(Result result) {
    return result == Result::OutOfResources || result == Result::EncoderFailed || result == Result::CannotCreateFile;
}

// Each allocation of a command is refused in turn, alone or with all behind it.
class RecorderWithoutMemory : public testing::TestWithParam<Refused> {
protected:
    static void SetUpTestSuite() { window = ShownWindow(); }
    static void TearDownTestSuite() { window.Reset(); }

    using Maker = std::function<std::unique_ptr<ScreenRecorder>()>;
    using Command = std::function<Result(ScreenRecorder&)>;
    using Check = std::function<void(ScreenRecorder&)>;

    RecordSettings Settings(std::uint32_t replaySeconds) const {
        RecordSettings settings = SettingsOf(window);
        settings.replaySeconds = replaySeconds;
        return settings;
    }

    std::unique_ptr<ScreenRecorder> PreparedRecorder(std::uint32_t replaySeconds) const {
        std::unique_ptr<ScreenRecorder> recorder = NewRecorder();
        EXPECT_EQ(recorder->Prepare(Settings(replaySeconds)), Result::Accepted);
        return recorder;
    }

    // A recorder whose command was refused takes the next one; behind one that was accepted another recorder is made.
    int RefuseInTurn(const Maker& make, const Command& command, const Check& onRefused, const Check& onAccepted) {
        std::unique_ptr<ScreenRecorder> recorder;
        for (int granted = 0; granted < kMostAllocations; ++granted) {
            if (recorder == nullptr) {
                recorder = make();
            }
            Result result = Result::OutOfResources;
            bool isRefused = false;
            {
                const RefuseAllocations scarce(granted, GetParam());
                try {
                    result = command(*recorder);
                } catch (const std::bad_alloc&) { // which is answered with that result
                }
                isRefused = scarce.HasRefused();
            }
            SCOPED_TRACE(granted);
            if (result == Result::Accepted) {
                onAccepted(*recorder);
                recorder.reset();
            } else {
                EXPECT_TRUE(isRefused);
                EXPECT_TRUE(IsRefusal(result)) << static_cast<int>(result);
                onRefused(*recorder);
            }
            if (!isRefused || HasFailure()) {
                return granted;
            }
        }
        ADD_FAILURE() << "the command asks for memory without end";
        return kMostAllocations;
    }

    void Refuse(const Maker& make, const Command& command, const Check& onRefused, const Check& onAccepted) {
        {
            const std::unique_ptr<ScreenRecorder> first = make(); // opens what the libraries keep
            ASSERT_EQ(command(*first), Result::Accepted);
            onAccepted(*first);
        }
        const std::size_t handles = kxtest::OpenHandleCount();
        const int refusals = RefuseInTurn(make, command, onRefused, onAccepted);
        EXPECT_GT(refusals, 0);
        EXPECT_FALSE(kxtest::HandlesLeakedSince(handles, static_cast<std::size_t>(refusals)));
    }

    void RefuseFileStart(const wchar_t* extension, std::uint32_t replaySeconds) {
        const std::filesystem::path path = PathWith(extension);
        Refuse([=, this] { return PreparedRecorder(replaySeconds); },
               [&](ScreenRecorder& recorder) { return recorder.StartFile(path.wstring()); },
               [&](ScreenRecorder&) { EXPECT_FALSE(std::filesystem::exists(path)); },
               [&](ScreenRecorder& recorder) {
                   recorder.Finish();
                   EXPECT_FALSE(recorder.FileCutShort());
                   EXPECT_GT(std::filesystem::file_size(path), 0u);
                   std::filesystem::remove(path);
               });
    }

    void RefusePrepare(std::uint32_t replaySeconds) {
        Refuse(
            NewRecorder, [=, this](ScreenRecorder& recorder) { return recorder.Prepare(Settings(replaySeconds)); },
            [](ScreenRecorder& recorder) {
                EXPECT_EQ(recorder.StartFile(PathWith(L".mp4").wstring()), Result::WrongOrder);
            },
            [](ScreenRecorder&) {});
    }

    static inline Window window; // is read by GDI alone; the screen's duplication would be tried each time
    kxtest::LogCapture log;      // takes every line, so that lines are refused memory, too
};

TEST_P(RecorderWithoutMemory, Prepare_LeavesNothingPrepared) {
    RefusePrepare(0);
}

TEST_P(RecorderWithoutMemory, PrepareWithAReplay_LeavesNothingPrepared) {
    RefusePrepare(kReplaySeconds);
}

TEST_P(RecorderWithoutMemory, StartOfAnMp4File_LeavesNoFileAndCanBeRepeated) {
    RefuseFileStart(L".mp4", 0);
}

TEST_P(RecorderWithoutMemory, StartOfAWebmFile_LeavesNoFileAndCanBeRepeated) {
    RefuseFileStart(L".webm", 0);
}

TEST_P(RecorderWithoutMemory, StartWithAReplay_LeavesNoFileAndCanBeRepeated) {
    RefuseFileStart(L".mp4", kReplaySeconds);
}

TEST_P(RecorderWithoutMemory, StartOfTheLiveServer_LeavesThePortAndCanBeRepeated) {
    LiveSettings live;
    live.port = kPort;
    Refuse([this] { return PreparedRecorder(0); },
           [&](ScreenRecorder& recorder) { return recorder.StartLive(live).result; }, [](ScreenRecorder&) {},
           [](ScreenRecorder& recorder) { recorder.Finish(); });
}

// The end has no result: the file plays all the same.
TEST_P(RecorderWithoutMemory, Finish_LeavesAFileThatPlays) {
    const std::filesystem::path path = PathWith(L".mp4");
    Refuse(
        [&] {
            std::unique_ptr<ScreenRecorder> recorder = PreparedRecorder(0);
            EXPECT_EQ(recorder->StartFile(path.wstring()), Result::Accepted);
            return recorder;
        },
        [](ScreenRecorder& recorder) {
            recorder.Finish();
            return Result::Accepted;
        },
        [](ScreenRecorder&) {},
        [&](ScreenRecorder&) {
            const kxtest::Mp4File file = kxtest::ReadMp4(BytesOf(path));
            EXPECT_FALSE(file.hasTornEnd);
            ASSERT_EQ(file.tracks.size(), 1u);
            EXPECT_GE(file.tracks.front().samples.size(), 1u);
            std::filesystem::remove(path);
        });
}

INSTANTIATE_TEST_SUITE_P(Allocations, RecorderWithoutMemory, testing::Values(Refused::One, Refused::All),
                         [](const auto& refused) { return refused.param == Refused::One ? "One" : "AllBehind"; });

// What is refused to a recording's own threads.
class RecordingWithoutMemory : public testing::TestWithParam<unsigned> {};

// Costs pictures, or ends the file early; a window whose text counts up is something new to each picture.
TEST_P(RecordingWithoutMemory, LeavesAFileThatPlays) {
    const kxtest::LogCapture log;
    const Window window = ShownWindow();
    const std::filesystem::path path = PathWith(L".mp4");
    ScreenRecorder recorder;
    ASSERT_EQ(recorder.Prepare(SettingsOf(window)), Result::Accepted);
    ASSERT_EQ(recorder.StartFile(path.wstring()), Result::Accepted);
    {
        const RefuseElsewhere scarce(GetParam());
        const auto limit = std::chrono::steady_clock::now() + kLimit;
        for (int i = 0; scarce.Refusals() < kEnoughRefusals && std::chrono::steady_clock::now() < limit; ++i) {
            SetWindowTextW(window.Get(), std::to_wstring(i).c_str());
            UpdateWindow(window.Get());
        }
        EXPECT_GE(scarce.Refusals(), kEnoughRefusals);
    }
    recorder.Finish();

    const kxtest::Mp4File file = kxtest::ReadMp4(BytesOf(path));
    EXPECT_FALSE(file.hasTornEnd);
    EXPECT_EQ(file.tracks.size(), 1u);
    std::filesystem::remove(path);
}

INSTANTIATE_TEST_SUITE_P(Every, RecordingWithoutMemory, testing::Values(3u, 7u),
                         [](const auto& every) { return std::to_string(every.param); });

} // namespace

} // namespace kxvcr::test
