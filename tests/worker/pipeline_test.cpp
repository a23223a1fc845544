// From the screen to packets, and what the live server is told of it, with doubles of screen, encoder and device.
#include "worker/pipeline.h"

#include "common/win/handle.h"
#include "tests/worker/scarcememory.h"
#include "worker/livefeed.h"
#include "worker/pipelinedoubles.h"
#include "worker/sound/makesoundencoder.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <functional>
#include <optional>

namespace kxvcr::test {

namespace {

using kxtest::KeepingSink;
using kxtest::NumberEncoder;
using kxtest::NumberSource;

constexpr std::uint32_t kWidth = 5; // more than the encoder's packets show
constexpr std::uint32_t kHeight = 3;
constexpr std::uint32_t kQuality = 80;
constexpr DWORD kPauseMs = 5;
constexpr int kPauses = 2000;

bool Comes(const std::function<bool()>& what) {
    const kx::KernelHandle never(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    for (int i = 0; i < kPauses; ++i) {
        if (what()) {
            return true;
        }
        WaitForSingleObject(never.Get(), kPauseMs);
    }
    return false;
}

// A device that is there and gives nothing, which is recorded as silence.
class QuietSource final : public SoundSource {
public:
    std::wstring Name() const override { return L"the microphone"; }
    std::wstring Problem() const override { return {}; }
    DeviceFormat Format() const override { return {}; }
    bool Open() override { return true; }
    Read Next(SoundPiece&) override { return Read::Nothing; }
};

PipelineParts Parts() {
    PipelineParts parts;
    parts.source = std::make_unique<NumberSource>([](int look) { return look; });
    parts.pictures = PicturePool::Create(kPicturesOfPipeline, kWidth, kHeight);
    parts.encoder = std::make_unique<NumberEncoder>();
    parts.framesPerSecond = 30;
    return parts;
}

TEST(Pipeline, StartThatWasRefusedMemory_LeavesItsPartsForTheNext) {
    PipelineParts parts = Parts();
    std::vector<std::unique_ptr<SoundSource>> sources;
    sources.push_back(std::make_unique<QuietSource>());
    parts.sound = std::make_unique<SoundCapture>(std::move(sources));
    parts.soundEncoder = MakeSoundEncoder(Codec::H264);
    ASSERT_TRUE(parts.sound->IsOpen());

    KeepingSink sink;
    std::optional<Pipeline> pipeline;
    int refusals = 0;
    while (!pipeline) {
        const RefuseAllocations scarce(refusals);
        try {
            pipeline.emplace(parts, sink);
        } catch (const std::bad_alloc&) {
            ASSERT_TRUE(scarce.HasRefused());
            ++refusals;
        }
    }

    EXPECT_GT(refusals, 0);
    EXPECT_TRUE(Comes([&] {
        return std::ranges::any_of(sink.Packets(),
                                   [](const SharedPacket& packet) { return packet->stream == Stream::Sound; });
    }));
}

TEST(LiveFeed, PictureOfAnotherSizeThanThePackets_IsShownWhole) {
    const PipelineParts parts = Parts();
    KeepingSink sink;
    Pipeline pipeline(parts, sink);
    LiveFeed feed({parts.encoder->Format(), {}}, kQuality);
    feed.Use(pipeline);
    ASSERT_TRUE(Comes([&] { return static_cast<bool>(pipeline.Newest()); }));

    const SharedPacket jpeg = feed.NewestJpeg();

    ASSERT_NE(jpeg, nullptr);
    const JpegCompressor reader(tjInitDecompress());
    int width = 0;
    int height = 0;
    int sampling = 0;
    int colors = 0;
    ASSERT_EQ(tjDecompressHeader3(reader.Get(), reinterpret_cast<const unsigned char*>(jpeg->bytes.data()),
                                  static_cast<unsigned long>(jpeg->bytes.size()), &width, &height, &sampling, &colors),
              0);
    EXPECT_EQ(width, static_cast<int>(kWidth));
    EXPECT_EQ(height, static_cast<int>(kHeight));
}

} // namespace

} // namespace kxvcr::test
