// The switch from the replay while the frame loop runs. To the file: every slot is in the file once, with its picture.
// To the live server: it gets every slot from then on and none from before.
#include "worker/capturesink.h"

#include "common/win/handle.h"
#include "matroskareader.h"
#include "memoryfile.h"
#include "worker/recorder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <thread>
#include <vector>

namespace {

using namespace kxvcr;
using kxtest::ForwardingFile;
using kxtest::MatroskaFile;
using kxtest::MemoryFile;
using kxtest::ReadMatroska;

constexpr std::size_t kPlenty = std::size_t{1} << 30;
constexpr DWORD kLimitMs = 20'000;

// Pictures that carry their number. A script says what happens while one is taken.
class NumberedPictures final : public PictureSource {
public:
    std::span<const std::byte> Take(RecordStatistics& statistics) override {
        const std::uint64_t number = ++statistics.captured;
        if (const auto step = script.find(number); step != script.end()) {
            step->second();
        }
        m_picture.resize(sizeof(number));
        std::memcpy(m_picture.data(), &number, sizeof(number));
        return m_picture;
    }

    std::map<std::uint64_t, std::function<void()>> script;

private:
    std::vector<std::byte> m_picture;
};

// Notes the pictures' numbers and when it was finished.
class NotingSink final : public FrameSink {
public:
    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) override {
        std::uint64_t number = 0;
        EXPECT_EQ(jpeg.size(), sizeof(number));
        std::memcpy(&number, jpeg.data(), sizeof(number));
        slots.push_back(slot);
        numbers.push_back(number);
        return true;
    }
    void Finish(std::uint64_t end) override { ends.push_back(end); }

    std::vector<std::uint64_t> slots;
    std::vector<std::uint64_t> numbers;
    std::vector<std::uint64_t> ends;
};

struct Rate {
    std::uint32_t framesPerSecond;
    bool isLate; // pictures that take several slots before, at and after the switch
};

class Switch : public testing::TestWithParam<Rate> {
protected:
    std::unique_ptr<FileSink> Open() {
        auto file = std::make_unique<ForwardingFile>(disk);
        auto writer = MatroskaWriter::Create(*file, {640, 360, GetParam().framesPerSecond});
        auto opened = std::make_unique<FileSink>(std::move(file), std::move(writer), kPlenty);
        EXPECT_TRUE(opened->Start());
        return opened;
    }
    void SwitchNow() {
        auto file = Open();
        EXPECT_TRUE(sink.SwitchTo(file));
    }
    void BeLate() const { WaitForSingleObject(stop.Get(), 3500 / GetParam().framesPerSecond); }
    void MakeLateAround(std::uint64_t number) {
        if (!GetParam().isLate) {
            return;
        }
        for (const std::uint64_t late : {number - 3, number, number + 3}) {
            pictures.script[late] = [this, before = pictures.script[late]] {
                BeLate();
                if (before) {
                    before();
                }
            };
        }
    }
    void Run() {
        FrameLoop loop(pictures, sink, GetParam().framesPerSecond);
        EXPECT_TRUE(loop.Run(stop.Get()));
        statistics = loop.Statistics();
    }

    // Frame times without a gap or a double, and numbers that never go back or leave one out.
    void ExpectOneContinuousFile(const MatroskaFile& file) const {
        for (std::size_t i = 0; i < file.frames.size(); ++i) {
            ASSERT_EQ(file.frames[i].milliseconds, static_cast<std::int64_t>(i * 1000 / GetParam().framesPerSecond));
        }
        for (std::size_t i = 1; i < file.frames.size(); ++i) {
            const std::uint64_t step = Number(file, i) - Number(file, i - 1);
            ASSERT_LE(step, 1u) << "frame " << i;
        }
    }
    static std::uint64_t Number(const MatroskaFile& file, std::size_t frame) {
        std::uint64_t number = 0;
        EXPECT_EQ(file.frames[frame].bytes.size(), sizeof(number));
        std::memcpy(&number, file.frames[frame].bytes.data(), sizeof(number));
        return number;
    }

    kx::KernelHandle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    MemoryFile disk;
    CaptureSink sink;
    NumberedPictures pictures;
    RecordStatistics statistics;
};

TEST_P(Switch, EverySlotSinceTheOldestKept_IsInTheFileOnce) {
    sink.KeepReplay(1000);
    pictures.script[12] = [this] { SwitchNow(); };
    pictures.script[24] = [this] { SetEvent(stop.Get()); };
    MakeLateAround(12);

    Run();

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ASSERT_EQ(file.frames.size(), statistics.written);
    ExpectOneContinuousFile(file);
    EXPECT_EQ(Number(file, 0), 1u);
    EXPECT_EQ(Number(file, file.frames.size() - 1), 24u);
    EXPECT_EQ(statistics.captured + statistics.repeated, statistics.written);
    EXPECT_TRUE(file.segmentEndsWithFile);
    if (GetParam().isLate) {
        EXPECT_GE(statistics.repeated, 6u);
    }
}

TEST_P(Switch, OldestSlots_HaveLeftTheReplay) {
    sink.KeepReplay(6);
    pictures.script[20] = [this] { SwitchNow(); };
    pictures.script[26] = [this] { SetEvent(stop.Get()); };
    MakeLateAround(20);

    Run();

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ExpectOneContinuousFile(file);
    // Six slots of replay, then all from the one on during whose capture the switch was made.
    std::size_t before = 0;
    while (Number(file, before) < 20) {
        ++before;
    }
    EXPECT_EQ(before, 6u);
    EXPECT_GE(Number(file, 0), 14u);
}

TEST_P(Switch, FromAnotherThread_LosesNoSlot) {
    sink.KeepReplay(1000);
    const kx::KernelHandle running(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    pictures.script[8] = [&running] { SetEvent(running.Get()); };
    std::jthread commands([&] {
        EXPECT_EQ(WaitForSingleObject(running.Get(), kLimitMs), WAIT_OBJECT_0);
        SwitchNow();
        WaitForSingleObject(stop.Get(), 6000 / GetParam().framesPerSecond);
        SetEvent(stop.Get());
    });

    Run();

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ASSERT_EQ(file.frames.size(), statistics.written);
    ExpectOneContinuousFile(file);
    EXPECT_EQ(Number(file, 0), 1u);
}

TEST_P(Switch, WithoutReplay_TheFileBeginsWithTheFirstSlot) {
    SwitchNow();
    pictures.script[5] = [this] { SetEvent(stop.Get()); };

    Run();

    const MatroskaFile file = ReadMatroska(disk.bytes);
    ExpectOneContinuousFile(file);
    EXPECT_EQ(Number(file, 0), 1u);
    ASSERT_EQ(file.frames.size(), statistics.written);
}

TEST_P(Switch, AfterTheEnd_IsRefused) {
    pictures.script[3] = [this] { SetEvent(stop.Get()); };
    Run();

    auto file = Open();

    EXPECT_FALSE(sink.SwitchTo(file));
    EXPECT_NE(file, nullptr);
}

TEST_P(Switch, ToTheLiveServer_DropsWhatWasKeptAndGivesEverySlotAfterIt) {
    NotingSink live;
    sink.KeepReplay(1000);
    pictures.script[12] = [this, &live] { EXPECT_TRUE(sink.SwitchTo(live)); };
    pictures.script[24] = [this] { SetEvent(stop.Get()); };
    MakeLateAround(12);

    Run();

    ASSERT_FALSE(live.numbers.empty());
    EXPECT_EQ(live.numbers.front(), 12u);
    EXPECT_EQ(live.numbers.back(), 24u);
    for (std::size_t i = 1; i < live.slots.size(); ++i) {
        ASSERT_EQ(live.slots[i], live.slots[i - 1] + 1);
    }
    EXPECT_EQ(live.ends, (std::vector<std::uint64_t>{live.slots.back() + 1}));
    EXPECT_FALSE(sink.CutShort());
}

TEST_P(Switch, ToTheLiveServerAfterTheEnd_IsRefused) {
    NotingSink live;
    pictures.script[3] = [this] { SetEvent(stop.Get()); };
    Run();

    EXPECT_FALSE(sink.SwitchTo(live));

    EXPECT_TRUE(live.ends.empty());
}

TEST_P(Switch, CapturingThatBreaksOff_CutsTheFileShortAndNoLiveServer) {
    NotingSink live;
    CaptureSink liveSink;
    SwitchNow();
    EXPECT_TRUE(liveSink.SwitchTo(live));

    sink.End();
    liveSink.End();

    EXPECT_TRUE(sink.CutShort());
    EXPECT_FALSE(liveSink.CutShort());
}

INSTANTIATE_TEST_SUITE_P(Rates, Switch,
                         testing::Values(Rate{7, false}, Rate{60, false}, Rate{30, true}, Rate{60, true}),
                         [](const auto& instance) {
                             return std::to_string(instance.param.framesPerSecond) +
                                    (instance.param.isLate ? "Late" : "");
                         });

} // namespace
