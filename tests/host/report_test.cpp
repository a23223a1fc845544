// What a recording tells people and machines while it runs.
#include "host/report.h"

#include "support/hostfolder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <windows.h>

#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace kxrecord {
namespace {

using nlohmann::ordered_json;
using std::chrono::milliseconds;

/** What @p work writes to a standard stream, which is a file meanwhile. */
std::string Written(DWORD stream, const std::function<void()>& work) {
    const kxtest::TempFolder folder;
    const std::filesystem::path path = folder.Path() / L"written.txt";
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr);
    const HANDLE before = GetStdHandle(stream);
    SetStdHandle(stream, file);
    work();
    SetStdHandle(stream, before);
    CloseHandle(file);
    return kxtest::ReadFileBytes(path);
}

std::vector<ordered_json> Events(const std::function<void(Report&)>& work) {
    std::istringstream lines(Written(STD_OUTPUT_HANDLE, [&work] { work(*MakeJsonReport()); }));
    std::vector<ordered_json> events;
    for (std::string line; std::getline(lines, line);) {
        events.push_back(ordered_json::parse(line));
    }
    return events;
}

RecordState StateAt(milliseconds elapsed) {
    RecordState state{elapsed, 45, std::nullopt, 3 << 20, std::uint64_t{5} << 30};
    kxvcr::RecordingStatus worker;
    worker.pictures = 40;
    worker.repeats = 5;
    worker.dropped = 1;
    worker.liveStart = 20'000'000;
    worker.length = 35'000'000;
    state.worker = worker;
    return state;
}

TEST(Clock, AnyTime_IsHoursMinutesSecondsAndTenths) {
    EXPECT_EQ(ClockText(milliseconds(0)), L"00:00:00.0");
    EXPECT_EQ(ClockText(milliseconds(3'723'450)), L"01:02:03.4");
    EXPECT_EQ(ClockText(std::chrono::hours(100)), L"100:00:00.0");
}

TEST(Progress, WideTerminal_ShowsEveryField) {
    EXPECT_EQ(ProgressText(StateAt(milliseconds(1500)), 120), L"00:00:01.5  40 pictures  3.0 MB  5.0 GB free");
}

TEST(Progress, OnePicture_IsNotCalledPictures) {
    RecordState state = StateAt(milliseconds(0));
    state.worker->pictures = 1;
    EXPECT_EQ(ProgressText(state, 120), L"00:00:00.0  1 picture  3.0 MB  5.0 GB free");
    state.worker.reset();
    state.framesDue = 1;
    EXPECT_EQ(ProgressText(state, 120), L"00:00:00.0  1 frame due  3.0 MB  5.0 GB free");
}

TEST(Progress, NarrowTerminal_KeepsOneLine) {
    EXPECT_EQ(ProgressText(StateAt(milliseconds(1500)), 40), L"00:00:01.5  40 pictures  3.0 MB");
    for (std::size_t width = 11; width < 60; ++width) {
        EXPECT_LT(ProgressText(StateAt(milliseconds(1500)), width).size(), width);
    }
}

TEST(Progress, WorkerThatDoesNotTell_LeavesWhatIsDue) {
    EXPECT_EQ(ProgressText({milliseconds(1500), 45, std::nullopt, std::nullopt, std::nullopt}, 80),
              L"00:00:01.5  45 frames due");
}

TEST(TextReport, QuietRecording_SaysNothingButErrors) {
    const auto work = [] {
        const std::unique_ptr<Report> report = MakeTextReport(Verbosity::Quiet);
        report->Recording({L"C:\\a.mp4", 30, milliseconds(0)});
        report->Recorded(StateAt(milliseconds(1000)), Exit::WorkerGone);
        report->Error({Exit::WorkerGone, 77, L"it ended"});
    };
    EXPECT_EQ(Written(STD_OUTPUT_HANDLE, work), "");
    EXPECT_EQ(Written(STD_ERROR_HANDLE, work), "kxrecord: it ended\n");
}

const WindowInfo kWindow{0x1002a, L"Letter", L"editor.exe", false, {10, 20, 640, 360}, false};

TEST(TextReport, Window_IsNamedWithItsProgram) {
    EXPECT_EQ(Written(STD_OUTPUT_HANDLE, [] { MakeTextReport(Verbosity::Normal)->Window(kWindow); }),
              "The window is \"Letter\" of editor.exe (0x0001002a)\n");
}

TEST(JsonReport, Window_IsAnEvent) {
    const std::vector<ordered_json> events = Events([](Report& report) { report.Window(kWindow); });
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].dump(),
              R"({"schema":2,"event":"window","handle":65578,"title":"Letter","program":"editor.exe",)"
              R"("minimized":false,"left":10,"top":20,"width":640,"height":360})");
}

TEST(TextReport, Recording_IsALineAtItsStartAndOneAtItsEnd) {
    EXPECT_EQ(Written(STD_OUTPUT_HANDLE,
                      [] {
                          const std::unique_ptr<Report> report = MakeTextReport(Verbosity::Normal);
                          report->Recording({L"C:\\a.mp4", 30, milliseconds(0)});
                          report->RecordProgress(StateAt(milliseconds(1000)));
                          report->Recorded(StateAt(milliseconds(2000)), Exit::Success);
                      }),
              "Recording to C:\\a.mp4 (Ctrl-C stops)\n"
              "Recorded 00:00:02.0 to C:\\a.mp4 (40 pictures, 3.0 MB)\n");
}

TEST(JsonReport, Recording_TellsWhatTheWorkerTells) {
    const std::vector<ordered_json> events = Events([](Report& report) {
        report.Recording({L"C:\\Bild \u00e4.mp4", 30, milliseconds(2000)});
        report.RecordProgress(StateAt(milliseconds(1000)));
        report.Recorded(StateAt(milliseconds(1500)), Exit::Success);
    });
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0].dump(), R"({"schema":2,"event":"started","file":"C:\\Bild )"
                                "\xc3\xa4"
                                R"(.mp4","framesPerSecond":30,"replaySeconds":2.0})");
    EXPECT_EQ(events[1].dump(),
              R"({"schema":2,"event":"progress","seconds":1.0,"framesDue":45,"pictures":40,"repeats":5,"dropped":1,)"
              R"("bytes":3145728,"diskFreeBytes":5368709120})");
    EXPECT_EQ(events[2].dump(), R"({"schema":2,"event":"finished","file":"C:\\Bild )"
                                "\xc3\xa4"
                                R"(.mp4","seconds":1.5,"pictures":40,"repeats":5,"dropped":1,"fileSeconds":3.5,)"
                                R"("liveStartSeconds":2.0,"bytes":3145728,"exitCode":0})");
}

TEST(JsonReport, WorkerThatDoesNotTell_IsNull) {
    const std::vector<ordered_json> events = Events([](Report& report) {
        report.Recording({L"a.mp4", 30, std::nullopt});
        report.Recorded({milliseconds(0), 0, std::nullopt, std::nullopt, std::nullopt}, Exit::WorkerGone);
    });
    EXPECT_TRUE(events[0]["replaySeconds"].is_null());
    for (const char* const key : {"pictures", "repeats", "dropped", "fileSeconds", "liveStartSeconds", "bytes"}) {
        EXPECT_TRUE(events[1].at(key).is_null()) << key;
    }
    EXPECT_EQ(events[1]["exitCode"], 15);
}

TEST(JsonReport, Progress_ComesOnceASecond) {
    const std::vector<ordered_json> events = Events([](Report& report) {
        for (int tenths = 0; tenths <= 25; ++tenths) {
            report.RecordProgress(StateAt(milliseconds(100 * tenths)));
        }
    });
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]["seconds"], 1.0);
    EXPECT_EQ(events[1]["seconds"], 2.0);
}

TEST(JsonReport, ErrorCode_IsNeverZero) {
    const std::vector<ordered_json> events = Events([](Report& report) {
        report.Error({Exit::Verification, 191, L"no"});
        report.Error({Exit::PrepareRefused, -5, L"no"});
        report.Error({Exit::NotARecording, 0, L"no"});
    });
    EXPECT_EQ(events[0].dump(), R"({"schema":2,"event":"error","code":191,"exitCode":11,"message":"no"})");
    EXPECT_EQ(events[1]["code"], -5);
    EXPECT_EQ(events[2]["code"], 20);
}

} // namespace
} // namespace kxrecord
