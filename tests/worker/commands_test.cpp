// The order of commands: every command in every state, and refusals that change nothing.
#include "worker/commands.h"

#include "screenrecordproxy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

namespace kxvcr {

namespace {

constexpr std::uint16_t kPort = 8080;
constexpr auto kWrongOrder = static_cast<std::int32_t>(Result::WrongOrder);

// Notes what it is told and answers as it is told.
class FakeDevice final : public RecordingDevice {
public:
    ScreenLayout Layout() const override { return {{0, 0, 1280, 720}, {}}; }
    Result Prepare(const RecordSettings& settings) override {
        calls.push_back(L"prepare " + std::to_wstring(settings.framesPerSecond));
        return answer;
    }
    Result StartFile(const std::wstring& path) override {
        if (outOfMemory) {
            throw std::bad_alloc();
        }
        calls.push_back(L"start " + path);
        return answer;
    }

    LiveStart StartLive(const LiveSettings& settings) override {
        calls.push_back(L"live " + std::to_wstring(settings.port));
        return {answer, answer == Result::Accepted ? kPort : std::uint16_t{0}};
    }

    std::vector<std::wstring> calls;
    Result answer = Result::Accepted;
    bool outOfMemory = false;
};

class Commands : public testing::Test {
protected:
    Result Prepare(std::uint32_t framesPerSecond = 30) {
        KxScreenRecord::ScreenRecordParam param;
        param.framesPerSecond = framesPerSecond;
        return Answer(kMessagePrepare, std::as_bytes(std::span(&param, 1)));
    }
    Result StartFile() { return Answer(kMessageStartLocalRecord, std::as_bytes(std::span(L"a.mkv"))); }
    Result Answer(std::uint32_t messageId, std::span<const std::byte> payload) {
        return static_cast<Result>(handler.Answer(messageId, payload));
    }
    std::int32_t StartLive() {
        const KxScreenRecord::LiveServerParam param;
        return handler.Answer(kMessageStartLiveServer, std::as_bytes(std::span(&param, 1)));
    }

    FakeDevice device;
    CommandHandler handler{device};
};

TEST_F(Commands, PrepareThenStart_ReachTheDevice) {
    EXPECT_EQ(Prepare(25), Result::Accepted);
    EXPECT_EQ(StartFile(), Result::Accepted);

    EXPECT_EQ(device.calls, (std::vector<std::wstring>{L"prepare 25", L"start a.mkv"}));
}

TEST_F(Commands, BeforePrepare_OnlyPrepareFits) {
    EXPECT_EQ(StartFile(), Result::WrongOrder);
    EXPECT_EQ(StartLive(), kWrongOrder);
    EXPECT_TRUE(device.calls.empty());
    EXPECT_EQ(Prepare(), Result::Accepted);
}

TEST_F(Commands, AfterPrepare_OnlyAStartFits) {
    Prepare();

    EXPECT_EQ(Prepare(), Result::WrongOrder);
    EXPECT_EQ(StartFile(), Result::Accepted);
}

TEST_F(Commands, StartLive_AnswersThePort) {
    Prepare();

    EXPECT_EQ(StartLive(), kPort);

    EXPECT_EQ(device.calls, (std::vector<std::wstring>{L"prepare 30", L"live 0"}));
}

TEST_F(Commands, WhileServing_NothingFits) {
    Prepare();
    StartLive();

    EXPECT_EQ(Prepare(), Result::WrongOrder);
    EXPECT_EQ(StartFile(), Result::WrongOrder);
    EXPECT_EQ(StartLive(), kWrongOrder);
}

TEST_F(Commands, LiveServerThatCannotStart_CanBeStartedAgain) {
    Prepare();
    device.answer = Result::CannotListen;

    EXPECT_EQ(StartLive(), static_cast<std::int32_t>(Result::CannotListen));
    device.answer = Result::Accepted;
    EXPECT_EQ(StartLive(), kPort);
}

TEST_F(Commands, WhileRecording_NothingFits) {
    Prepare();
    StartFile();

    EXPECT_EQ(Prepare(), Result::WrongOrder);
    EXPECT_EQ(StartFile(), Result::WrongOrder);
    EXPECT_EQ(StartLive(), kWrongOrder);
}

TEST_F(Commands, RefusedCommand_CanBeRepeated) {
    EXPECT_EQ(Prepare(61), Result::BadFrameRate);
    device.answer = Result::CaptureFailed;
    EXPECT_EQ(Prepare(), Result::CaptureFailed);
    device.answer = Result::Accepted;
    EXPECT_EQ(Prepare(), Result::Accepted);

    device.answer = Result::CannotCreateFile;
    EXPECT_EQ(StartFile(), Result::CannotCreateFile);
    device.outOfMemory = true;
    EXPECT_EQ(StartFile(), Result::OutOfResources);
    device.outOfMemory = false;
    device.answer = Result::Accepted;
    EXPECT_EQ(StartFile(), Result::Accepted);
}

TEST_F(Commands, UnknownId_IsRefused) {
    EXPECT_EQ(Answer(0x4E0007, {}), Result::UnknownCommand);
    EXPECT_EQ(Answer(0xFFFFFFFF, {}), Result::UnknownCommand);
    EXPECT_TRUE(device.calls.empty());
}

TEST_F(Commands, EmptyPayload_IsRefused) {
    EXPECT_EQ(Answer(kMessagePrepare, {}), Result::WrongPayloadSize);
}

} // namespace

} // namespace kxvcr
