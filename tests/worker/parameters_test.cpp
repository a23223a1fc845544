// Payloads of commands: defaults, every refused field, and bytes that are no record.
#include "worker/parameters.h"

#include "common/win/toplevelwindow.h"
#include "screenrecordproxy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace kxvcr {

namespace {

using KxScreenRecord::LiveServerParam;
using KxScreenRecord::ScreenRecordParam;

// Two monitors, the second left of the primary one.
ScreenLayout TwoMonitors() {
    return {{-800, 0, 2080, 720}, {{HMONITOR{}, {0, 0, 1280, 720}}, {HMONITOR{}, {-800, 60, 800, 600}}}};
}

template <class Record>
std::vector<std::byte> BytesOf(const Record& record) {
    std::vector<std::byte> bytes(sizeof(record));
    std::memcpy(bytes.data(), &record, sizeof(record));
    return bytes;
}

std::vector<std::byte> BytesOfText(const std::wstring& text) {
    std::vector<std::byte> bytes(text.size() * sizeof(wchar_t));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

Result Read(const ScreenRecordParam& param) {
    RecordSettings settings;
    return ReadPrepare(BytesOf(param), TwoMonitors(), settings);
}

Result ReadRectangle(std::int32_t left, std::int32_t top, std::uint32_t width, std::uint32_t height,
                     std::uint32_t monitor = 0) {
    ScreenRecordParam param;
    param.left = left;
    param.top = top;
    param.width = width;
    param.height = height;
    param.monitor = monitor;
    return Read(param);
}

TEST(ReadPrepare, Zeros_AreTheDefaults) {
    RecordSettings settings;

    EXPECT_EQ(ReadPrepare(BytesOf(ScreenRecordParam{}), TwoMonitors(), settings), Result::Accepted);

    EXPECT_EQ(settings.area.rect, (ScreenRect{-800, 0, 2080, 720}));
    EXPECT_TRUE(settings.area.wholeScreen);
    EXPECT_EQ(settings.framesPerSecond, 30u);
    EXPECT_EQ(settings.quality, 80u);
    EXPECT_FALSE(settings.drawCursor);
}

TEST(ReadPrepare, GivenValues_AreTaken) {
    ScreenRecordParam param;
    param.left = -10;
    param.top = 20;
    param.width = 300;
    param.height = 200;
    param.framesPerSecond = 60;
    param.quality = 100;
    param.drawCursor = 1;
    RecordSettings settings;

    EXPECT_EQ(ReadPrepare(BytesOf(param), TwoMonitors(), settings), Result::Accepted);

    EXPECT_EQ(settings.area.rect, (ScreenRect{-10, 20, 300, 200}));
    EXPECT_FALSE(settings.area.wholeScreen);
    EXPECT_EQ(settings.framesPerSecond, 60u);
    EXPECT_EQ(settings.quality, 100u);
    EXPECT_TRUE(settings.drawCursor);
}

TEST(ReadPrepare, FlagsOfSound_ChooseItsSources) {
    const auto soundOf = [](std::uint32_t streams) {
        ScreenRecordParam param;
        param.streams = streams;
        RecordSettings settings;
        EXPECT_EQ(ReadPrepare(BytesOf(param), TwoMonitors(), settings), Result::Accepted);
        return std::pair(settings.sound.machine, settings.sound.microphone);
    };
    EXPECT_EQ(soundOf(0), std::pair(false, false));
    EXPECT_EQ(soundOf(kStreamMachineSound), std::pair(true, false));
    EXPECT_EQ(soundOf(kStreamMicrophone | kStreamVp9), std::pair(false, true));
    EXPECT_EQ(soundOf(kStreamMachineSound | kStreamMicrophone), std::pair(true, true));
}

TEST(ReadPrepare, Monitor_IsTheAreaAndTheLimitOfARectangle) {
    ScreenRecordParam param;
    param.monitor = 2;
    RecordSettings settings;

    EXPECT_EQ(ReadPrepare(BytesOf(param), TwoMonitors(), settings), Result::Accepted);
    EXPECT_EQ(settings.area.rect, (ScreenRect{-800, 60, 800, 600}));
    EXPECT_EQ(ReadRectangle(-800, 60, 800, 600, 2), Result::Accepted);
    EXPECT_EQ(ReadRectangle(0, 0, 100, 100, 2), Result::BadRectangle);
}

TEST(ReadPrepare, RectangleNotOnTheScreen_IsRefused) {
    EXPECT_EQ(ReadRectangle(1279, 719, 1, 1), Result::Accepted);
    EXPECT_EQ(ReadRectangle(1279, 719, 2, 1), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(1279, 719, 1, 2), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(-801, 0, 10, 10), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(0, -1, 10, 10), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(0, 0, 10, 0), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(0, 0, 0, 10), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(5, 5, 0, 0), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(INT32_MAX, INT32_MAX, UINT32_MAX, UINT32_MAX), Result::BadRectangle);
    EXPECT_EQ(ReadRectangle(INT32_MIN, INT32_MIN, UINT32_MAX, UINT32_MAX), Result::BadRectangle);
}

TEST(ReadPrepare, FieldOutOfRange_IsRefusedWithItsResult) {
    ScreenRecordParam param;
    param.framesPerSecond = 61;
    EXPECT_EQ(Read(param), Result::BadFrameRate);
    param = {};
    param.quality = 101;
    EXPECT_EQ(Read(param), Result::BadQuality);
    param = {};
    param.drawCursor = 2;
    EXPECT_EQ(Read(param), Result::BadCursorFlag);
    param = {};
    param.monitor = 3;
    EXPECT_EQ(Read(param), Result::BadMonitor);
}

TEST(ReadPrepare, Window_IsTheAreaWhoseSizeIsNotKnownYet) {
    ScreenRecordParam param;
    param.window = 0x0001002A;
    RecordSettings settings;

    EXPECT_EQ(ReadPrepare(BytesOf(param), TwoMonitors(), settings), Result::Accepted);

    EXPECT_EQ(settings.area.window, 0x0001002Au);
    EXPECT_EQ(settings.area.rect, ScreenRect{});
    EXPECT_FALSE(settings.area.wholeScreen);
}

TEST(ReadPrepare, WindowWithARectangleOrAMonitor_IsRefused) {
    ScreenRecordParam param;
    param.window = 0x0001002A;
    param.monitor = 1;
    EXPECT_EQ(Read(param), Result::BadWindow);
    param.monitor = 0;
    param.width = 10;
    param.height = 10;
    EXPECT_EQ(Read(param), Result::BadWindow);
}

TEST(WindowNumbers, LowBitsOfAHandle_AreAllOfIt) {
    for (const std::uint32_t number : {1u, 0x0001002Au, 0x80010000u, 0xFFFFFFFEu}) {
        EXPECT_EQ(kx::NumberOfWindow(kx::WindowOfNumber(number)), number);
    }
    EXPECT_EQ(reinterpret_cast<std::intptr_t>(kx::WindowOfNumber(0xFFFFFFFE)), -2);
}

TEST(ReadPrepare, OtherSizes_AreRefusedAndLeaveTheSettings) {
    RecordSettings settings;
    settings.framesPerSecond = 7;

    for (const std::size_t size : {0u, 1u, 40u, 43u, 45u, 47u, 49u, 1000u}) {
        EXPECT_EQ(ReadPrepare(std::vector<std::byte>(size), TwoMonitors(), settings), Result::WrongPayloadSize) << size;
    }

    EXPECT_EQ(settings.framesPerSecond, 7u);
}

TEST(ReadPrepare, TimeMachine_IsTakenUpToItsLimit) {
    std::vector<std::byte> payload = BytesOf(ScreenRecordParam{});
    payload.resize(48);
    RecordSettings settings;
    const auto read = [&](std::uint32_t seconds) {
        std::memcpy(payload.data() + 44, &seconds, sizeof(seconds));
        return ReadPrepare(payload, TwoMonitors(), settings);
    };

    EXPECT_EQ(read(0), Result::Accepted);
    EXPECT_EQ(settings.replaySeconds, 0u);
    EXPECT_EQ(read(kMaxReplaySeconds), Result::Accepted);
    EXPECT_EQ(settings.replaySeconds, kMaxReplaySeconds);
    EXPECT_EQ(read(kMaxReplaySeconds + 1), Result::NotSupported);
    EXPECT_EQ(read(0xFFFFFFFF), Result::NotSupported);
    EXPECT_EQ(settings.replaySeconds, kMaxReplaySeconds);
}

TEST(ScreenLayout, Intersection_IsWhatBothHave) {
    const ScreenRect screen{-800, 0, 2080, 720};

    EXPECT_EQ(Intersection(screen, {100, 50, 10, 20}), (ScreenRect{100, 50, 10, 20}));
    EXPECT_EQ(Intersection({1200, -10, 200, 30}, screen), (ScreenRect{1200, 0, 80, 20}));
    EXPECT_EQ(Intersection(screen, {1280, 0, 10, 10}), ScreenRect{});
    EXPECT_EQ(Intersection(screen, {-900, 0, 50, 10}), ScreenRect{});
    EXPECT_EQ(Intersection({INT32_MIN, INT32_MIN, UINT32_MAX, UINT32_MAX}, screen), screen);
}

TEST(ReadLocalRecord, TerminatedPath_IsTaken) {
    std::wstring path;

    EXPECT_EQ(ReadLocalRecord(BytesOfText(std::wstring(L"C:\\\u00FC\\a b.mkv\0", 13)), path), Result::Accepted);
    EXPECT_EQ(path, L"C:\\\u00FC\\a b.mkv");
    EXPECT_EQ(ReadLocalRecord(BytesOfText(std::wstring(L"b\0\0\0", 4)), path), Result::Accepted);
    EXPECT_EQ(path, L"b");
}

TEST(ReadLocalRecord, NoPath_IsRefusedAndLeavesThePath) {
    std::wstring path = L"before";

    EXPECT_EQ(ReadLocalRecord({}, path), Result::WrongPayloadSize);
    EXPECT_EQ(ReadLocalRecord(std::vector<std::byte>(5), path), Result::WrongPayloadSize);
    EXPECT_EQ(ReadLocalRecord(BytesOfText(L"unterminated"), path), Result::BadPath);
    EXPECT_EQ(ReadLocalRecord(BytesOfText(std::wstring(L"\0", 1)), path), Result::BadPath);
    EXPECT_EQ(ReadLocalRecord(BytesOfText(std::wstring(L"a\0b\0", 4)), path), Result::BadPath);
    EXPECT_EQ(path, L"before");
}

Result ReadLive(const LiveServerParam& param) {
    LiveSettings settings;
    return ReadLiveServer(BytesOf(param), settings);
}

TEST(ReadLiveServer, Zeros_AreTheDefaults) {
    LiveSettings settings;
    settings.allInterfaces = true;

    EXPECT_EQ(ReadLiveServer(BytesOf(LiveServerParam{}), settings), Result::Accepted);

    EXPECT_EQ(settings.port, 0u);
    EXPECT_EQ(settings.maxClients, 8u);
    EXPECT_FALSE(settings.allInterfaces);
    EXPECT_EQ(settings.key, std::nullopt);
}

TEST(ReadLiveServer, GivenValues_AreTaken) {
    LiveServerParam param;
    param.port = 65535;
    param.maxClients = 64;
    param.listenOnAllInterfaces = 1;
    param.key[15] = 7;
    LiveSettings settings;

    EXPECT_EQ(ReadLiveServer(BytesOf(param), settings), Result::Accepted);

    EXPECT_EQ(settings.port, 65535u);
    EXPECT_EQ(settings.maxClients, 64u);
    EXPECT_TRUE(settings.allInterfaces);
    EXPECT_EQ(settings.key, (LiveKey{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}));
}

TEST(ReadLiveServer, FieldOutOfRange_IsRefusedWithItsResult) {
    LiveServerParam param;
    param.port = 65536;
    EXPECT_EQ(ReadLive(param), Result::BadPort);
    param = {};
    param.maxClients = 65;
    EXPECT_EQ(ReadLive(param), Result::BadClientLimit);
    param = {};
    param.listenOnAllInterfaces = 2;
    EXPECT_EQ(ReadLive(param), Result::BadInterfaceFlag);
    for (std::uint32_t& field : param.reserved) {
        param = {};
        field = 1;
        EXPECT_EQ(ReadLive(param), Result::ReservedNotZero);
    }
}

TEST(ReadLiveServer, OtherSizes_AreRefusedAndLeaveTheSettings) {
    LiveSettings settings;
    settings.port = 7;

    for (const std::size_t size : {0u, 1u, 39u, 41u, 44u}) {
        EXPECT_EQ(ReadLiveServer(std::vector<std::byte>(size), settings), Result::WrongPayloadSize) << size;
    }

    EXPECT_EQ(settings.port, 7u);
}

} // namespace

} // namespace kxvcr
