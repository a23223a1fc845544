// The encoder's thread: keys, failures, and what happens when the encoder is too slow.
#include "worker/encodeloop.h"

#include "common/win/handle.h"
#include "pipelinedoubles.h"
#include "worker/pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

namespace kxvcr {

namespace {

using kxtest::KeepingSink;
using kxtest::NumberEncoder;
using kxtest::NumberSource;

constexpr std::uint32_t kFramesPerSecond = 50;
constexpr DWORD kLimitMs = 30'000;
constexpr DWORD kPollMs = 5;

// A pipeline whose screen shows what a function says.
class PipelineTest : public testing::Test {
protected:
    void Begin(std::function<int(int)> onLook) {
        parts.source = std::make_unique<NumberSource>(std::move(onLook));
        parts.pictures = PicturePool::Create(kPicturesOfPipeline, kxtest::kNumberWidth, kxtest::kNumberHeight);
        auto made = std::make_unique<NumberEncoder>();
        encoder = made.get();
        encoder->failsIn = failsIn;
        encoder->noMemoryIn = noMemoryIn;
        encoder->alwaysFails = alwaysFails;
        encoder->onEncode = onEncode;
        parts.encoder = std::move(made);
        parts.framesPerSecond = kFramesPerSecond;
        pipeline = std::make_unique<Pipeline>(parts, sink);
    }
    template <class Condition>
    void WaitUntil(Condition condition) const {
        for (DWORD waited = 0; !condition(); waited += kPollMs) {
            ASSERT_LT(waited, kLimitMs);
            WaitForSingleObject(never.Get(), kPollMs);
        }
    }
    void Wait(DWORD milliseconds) const { WaitForSingleObject(never.Get(), milliseconds); }

    std::set<int> failsIn;
    std::set<int> noMemoryIn;
    bool alwaysFails = false;
    std::function<void(MediaTime)> onEncode = [](MediaTime) {};

    kx::KernelHandle never{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    KeepingSink sink;
    PipelineParts parts;
    NumberEncoder* encoder = nullptr;
    std::unique_ptr<Pipeline> pipeline;
};

TEST_F(PipelineTest, EveryChange_BecomesOnePacketInOrder) {
    Begin([](int look) { return look; });
    WaitUntil([this] { return sink.Packets().size() >= 20; });

    const MediaTime end = pipeline->Stop(false);

    const std::vector<std::uint32_t> numbers = sink.Numbers();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers[i], i + 1);
    }
    EXPECT_TRUE(sink.Packets().front()->isKey);
    EXPECT_GT(end, sink.Packets().back()->time);
    EXPECT_GT(pipeline->Settled(), sink.Packets().back()->time);
    EXPECT_LE(pipeline->Settled(), end);
}

TEST_F(PipelineTest, PicturesThatDoNotChange_MakeNoPacket) {
    Begin([](int) { return 5; });
    WaitUntil([this] { return pipeline->NextSlotTime() > SlotTime(20, kFramesPerSecond); });

    pipeline->Stop(false);

    EXPECT_EQ(sink.Numbers(), std::vector<std::uint32_t>{5});
}

TEST_F(PipelineTest, KeyOnDemand_IsMadeOfAPictureThatDoesNotChange) {
    Begin([](int) { return 5; });
    WaitUntil([this] { return sink.Packets().size() == 1; });

    pipeline->RequestKey();
    WaitUntil([this] { return sink.Packets().size() == 2; });
    pipeline->Stop(false);

    EXPECT_EQ(sink.Numbers(), (std::vector<std::uint32_t>{5, 5}));
    EXPECT_TRUE(sink.Packets().back()->isKey);
}

TEST_F(PipelineTest, PictureThatCannotBeEncoded_IsEncodedAsAKeyInTheNextSlot) {
    failsIn = {3};
    Begin([](int look) { return std::min(look, 3); });
    WaitUntil([this] { return sink.Packets().size() == 3; });

    pipeline->Stop(false);

    EXPECT_EQ(sink.Numbers(), (std::vector<std::uint32_t>{1, 2, 3}));
    EXPECT_TRUE(sink.Packets().back()->isKey);
    EXPECT_EQ(encoder->times.size(), 4u);
}

TEST_F(PipelineTest, EncoderWithoutMemory_IsAskedAgain) {
    noMemoryIn = {2};
    Begin([](int look) { return std::min(look, 2); });
    WaitUntil([this] { return sink.Packets().size() == 2; });

    pipeline->Stop(false);

    EXPECT_EQ(sink.Numbers(), (std::vector<std::uint32_t>{1, 2}));
}

TEST_F(PipelineTest, PacketThatNobodyCouldTake_IsFollowedByAKey) {
    sink.noMemoryFor = 3;
    Begin([](int look) { return std::min(look, 5); });
    WaitUntil([this] { return !sink.Numbers().empty() && sink.Numbers().back() == 5; });

    pipeline->Stop(false);

    const auto packets = sink.Packets();
    ASSERT_GE(packets.size(), 3u);
    EXPECT_TRUE(packets[2]->isKey);
}

TEST_F(PipelineTest, PictureBehindOneThatTheEncoderWasSpared_IsTakenAsChangedInAllOfIt) {
    failsIn = {3, 4}; // then it rests for a second
    Begin([](int look) { return look; });
    WaitUntil([this] { return sink.Packets().size() >= 5; });

    pipeline->Stop(false);

    ASSERT_GE(encoder->changes.size(), 6u);
    EXPECT_EQ(std::vector(encoder->changes.begin(), encoder->changes.begin() + 6),
              (std::vector<std::size_t>{0, 1, 1, 1, 0, 1}));
}

TEST_F(PipelineTest, EncoderThatAlwaysFails_IsTriedOnceASecond) {
    constexpr MediaTime kSecond = std::chrono::seconds(1);
    std::atomic<int> tries = 0;
    alwaysFails = true;
    onEncode = [&tries](MediaTime) { ++tries; };
    Begin([](int look) { return look; });
    WaitUntil([&tries] { return tries >= 4; });

    pipeline->Stop(true);

    EXPECT_TRUE(sink.Packets().empty());
    // The first picture, the next one, and one a second later each time.
    EXPECT_LT(encoder->times[1] - encoder->times[0], kSecond);
    for (std::size_t i = 2; i < encoder->times.size(); ++i) {
        EXPECT_GE(encoder->times[i] - encoder->times[i - 1], kSecond);
        EXPECT_LT(encoder->times[i] - encoder->times[i - 1], 2 * kSecond);
    }
}

TEST_F(PipelineTest, StopThatDrops_EncodesNothingThatWaits) {
    kx::KernelHandle gate(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::atomic<bool> isIn = false;
    onEncode = [&](MediaTime) {
        isIn = true;
        WaitForSingleObject(gate.Get(), kLimitMs);
    };
    Begin([](int look) { return look; });
    WaitUntil([&] { return isIn && pipeline->Dropped() > 0; });

    // One picture is in the encoder and two wait; these go back to the pool, but for the newest, when they are dropped.
    std::jthread opener([&] {
        WaitUntil([this] {
            const SharedPicture free = parts.pictures->TakeFree();
            const SharedPicture dropped = parts.pictures->TakeFree();
            return free && dropped;
        });
        SetEvent(gate.Get());
    });
    pipeline->Stop(true);

    EXPECT_EQ(sink.Packets().size(), 1u);
}

// Every picture takes two slots until the effort goes down, and half a slot from then on.
TEST_F(PipelineTest, SlowEncoder_IsAskedForLessAndTheTimesStayRight) {
    std::atomic<bool> isCheaper = false;
    onEncode = [this, &isCheaper](MediaTime) {
        isCheaper = !encoder->efforts.empty();
        Wait(isCheaper ? 10 : 40);
    };
    Begin([](int look) { return look; });
    WaitUntil([&isCheaper] { return isCheaper.load(); });
    WaitUntil([this, from = sink.Packets().size()] { return sink.Packets().size() >= from + 20; });

    pipeline->Stop(false);

    EXPECT_EQ(encoder->efforts.front(), Effort::Camera);
    EXPECT_GT(pipeline->Dropped(), 0u);
    for (const SharedPacket& packet : sink.Packets()) {
        EXPECT_GE(packet->captured, packet->time);
        EXPECT_LT(packet->captured - packet->time, std::chrono::seconds(1));
    }
}

} // namespace

} // namespace kxvcr
