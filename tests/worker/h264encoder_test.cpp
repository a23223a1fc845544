// The H.264 encoder, read back with a decoder, and in front of a library that is missing, too old or failing.
#include "tests/worker/fakeopenh264.h"
#include "tests/worker/h264decoder.h"
#include "tests/worker/picture.h"
#include "worker/video/h264encoder.h"
#include "worker/video/makeencoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>

namespace kxvcr::test {

namespace {

constexpr std::uint32_t kRate = 30;
constexpr double kGoodPsnr = 35;

EncoderSettings Settings(std::uint32_t width, std::uint32_t height) {
    return {width, height, kRate, kDefaultQuality, 0};
}

std::unique_ptr<VideoEncoder> MakeH264(const EncoderSettings& settings) {
    MadeEncoder made = MakeEncoder(Codec::H264, settings);
    EXPECT_EQ(made.result, Result::Accepted);
    return std::move(made.encoder);
}

bool IsNear(Color a, Color b, int tolerance) {
    return std::abs(a.blue - b.blue) <= tolerance && std::abs(a.green - b.green) <= tolerance &&
           std::abs(a.red - b.red) <= tolerance;
}

class H264Sizes : public testing::TestWithParam<PictureRect> {};

TEST_P(H264Sizes, FirstPicture_IsDecodedInTheSizeThatTheFormatSays) {
    const Picture page(GetParam().left, GetParam().top, {40, 80, 200}); // of one colour
    const auto encoder = MakeH264(Settings(page.Width(), page.Height()));
    ASSERT_NE(encoder, nullptr);

    const SharedPacket packet = encoder->Encode(page.View(), MediaTime(0), false);

    ASSERT_NE(packet, nullptr);
    EXPECT_TRUE(packet->isKey);
    const PictureFormat& format = encoder->Format();
    EXPECT_EQ(format.width, GetParam().width);
    EXPECT_EQ(format.height, GetParam().height);
    const std::optional<Samples> decoded = H264Decoder(format.decoderConfig).Decode(*packet);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->width, format.width);
    EXPECT_EQ(decoded->height, format.height);
    EXPECT_TRUE(IsNear(Shown(*decoded, format.matrix, 0, 0), {40, 80, 200}, 6));
    // The encoder fills its last blocks up with black, which shines into the corner.
    EXPECT_TRUE(IsNear(Shown(*decoded, format.matrix, format.width - 1, format.height - 1), {40, 80, 200}, 20));
}

// Left and top are the captured size, width and height what is shown.
INSTANTIATE_TEST_SUITE_P(Sizes, H264Sizes,
                         testing::Values(PictureRect{1, 1, 16, 16}, PictureRect{2, 40, 16, 40},
                                         PictureRect{15, 17, 16, 18}, PictureRect{641, 481, 642, 482},
                                         PictureRect{1279, 719, 1280, 720}, PictureRect{1920, 1080, 1920, 1080},
                                         PictureRect{3840, 2160, 3840, 2160}, PictureRect{5120, 2880, 4096, 2304}),
                         [](const auto& size) {
                             return std::to_string(size.param.left) + "x" + std::to_string(size.param.top);
                         });

TEST(H264Encoder, Page_KeepsItsTextAndColours) {
    const Picture page = Page(1280, 720);
    const auto encoder = MakeH264(Settings(1280, 720));

    const SharedPacket packet = encoder->Encode(page.View(), MediaTime(0), false);

    ASSERT_NE(packet, nullptr);
    const auto decoded = H264Decoder(encoder->Format().decoderConfig).Decode(*packet);
    ASSERT_TRUE(decoded);
    EXPECT_GT(LumaPsnr(page, *decoded, ColorMatrix::Bt709), kGoodPsnr);
    EXPECT_TRUE(IsNear(Shown(*decoded, ColorMatrix::Bt709, 600, 20), page.At(600, 20), 6));
    EXPECT_TRUE(IsNear(Shown(*decoded, ColorMatrix::Bt709, 600, 60), page.At(600, 60), 6));
}

TEST(H264Encoder, Format_SaysHighProfileAndTheMatrix) {
    const auto small = MakeH264(Settings(640, 480));
    const auto large = MakeH264(Settings(1280, 720));

    EXPECT_EQ(small->Format().codec, Codec::H264);
    EXPECT_EQ(small->Format().framesPerSecond, kRate);
    EXPECT_EQ(small->Format().matrix, ColorMatrix::Bt601);
    EXPECT_EQ(large->Format().matrix, ColorMatrix::Bt709);
    const std::vector<std::byte>& record = large->Format().decoderConfig;
    EXPECT_EQ(record.at(0), std::byte{1});
    EXPECT_EQ(record.at(1), std::byte{100});  // High
    EXPECT_EQ(record.at(4), std::byte{0xFF}); // lengths of four bytes
    ASSERT_GT(record.size(), 4U);
    const std::vector<std::byte> extension(record.end() - 4, record.end());
    EXPECT_EQ(extension, (std::vector<std::byte>{std::byte{0xFD}, std::byte{0xF8}, std::byte{0xF8}, std::byte{0}}));
}

TEST(H264Encoder, Packets_HoldOnlyUnitsOfPictures) {
    const auto encoder = MakeH264(Settings(320, 240));
    const SharedPacket key = encoder->Encode(Page(320, 240, 1).View(), SlotTime(0, kRate), false);
    const SharedPacket other = encoder->Encode(Page(320, 240, 2).View(), SlotTime(1, kRate), false);

    ASSERT_EQ(Units(*key).size(), 1U);
    EXPECT_EQ(Units(*key)[0].front(), std::byte{0x65});
    ASSERT_EQ(Units(*other).size(), 1U);
    EXPECT_EQ(Units(*other)[0].front(), std::byte{0x61});
}

TEST(H264Encoder, Packet_TellsItsTimes) {
    const auto encoder = MakeH264(Settings(320, 240));
    encoder->Encode(Page(320, 240, 1).View(), SlotTime(7, kRate), false);

    const Picture page = Page(320, 240, 2);
    PictureView view = page.View();
    view.captured = MediaTime(12345);
    const SharedPacket packet = encoder->Encode(view, SlotTime(31, kRate), false);

    EXPECT_EQ(packet->stream, Stream::Picture);
    EXPECT_EQ(packet->time, SlotTime(31, kRate));
    EXPECT_EQ(packet->captured, MediaTime(12345));
}

// Encodes a picture that changes in each of the slots; tells the slots of the key pictures.
std::vector<std::uint64_t> KeySlots(VideoEncoder& encoder, const std::vector<std::uint64_t>& slots,
                                    std::uint64_t asked = ~std::uint64_t{0}) {
    std::vector<std::uint64_t> keys;
    Picture picture = Page(160, 96);
    for (const std::uint64_t slot : slots) {
        picture.Write({16, 48, 128, 40}, static_cast<std::uint32_t>(slot), {0, 90, 0});
        const SharedPacket packet = encoder.Encode(picture.View(), SlotTime(slot, kRate), slot == asked);
        if (packet != nullptr && packet->isKey) {
            keys.push_back(slot);
        }
    }
    return keys;
}

std::vector<std::uint64_t> EverySlotUntil(std::uint64_t end) {
    std::vector<std::uint64_t> slots(end);
    std::iota(slots.begin(), slots.end(), std::uint64_t{0});
    return slots;
}

TEST(H264Encoder, ChangingPictures_HaveAKeyPictureEveryTwoSeconds) {
    const auto encoder = MakeH264(Settings(160, 96));

    EXPECT_EQ(KeySlots(*encoder, EverySlotUntil(150)), (std::vector<std::uint64_t>{0, 60, 120}));
}

TEST(H264Encoder, RarePictures_HaveTheirKeyPicturesByTheClock) {
    const auto encoder = MakeH264(Settings(160, 96));

    EXPECT_EQ(KeySlots(*encoder, {0, 20, 40, 70, 90, 900, 901}), (std::vector<std::uint64_t>{0, 70, 900}));
}

TEST(H264Encoder, AskedKeyPicture_ComesAndStartsTheInterval) {
    const auto encoder = MakeH264(Settings(160, 96));

    EXPECT_EQ(KeySlots(*encoder, EverySlotUntil(100), 25), (std::vector<std::uint64_t>{0, 25, 85}));
}

TEST(H264Encoder, WhollyNewPicture_MayBeAKeyPictureButIsDecoded) {
    const auto encoder = MakeH264(Settings(320, 240));
    H264Decoder decoder(encoder->Format().decoderConfig);
    Picture noise(320, 240);
    for (std::uint32_t i = 0; i < 4; ++i) {
        noise.FillWithNoise({0, 0, 320, 240}, i);
        const SharedPacket packet = encoder->Encode(noise.View(), SlotTime(i, kRate), false);
        ASSERT_NE(packet, nullptr);
        EXPECT_TRUE(decoder.Decode(*packet)) << i;
    }
}

TEST(H264Encoder, LaterKeyPicture_IsDecodedWithTheParameterSetsOfTheStart) {
    const auto encoder = MakeH264(Settings(320, 240));
    const std::vector<std::byte> config = encoder->Format().decoderConfig;
    Picture picture = Page(320, 240);
    SharedPacket last;
    for (std::uint64_t slot = 0; slot <= 120; ++slot) {
        picture.Write({0, 100, 320, 60}, static_cast<std::uint32_t>(slot), {0, 90, 0});
        last = encoder->Encode(picture.View(), SlotTime(slot, kRate), false);
    }

    ASSERT_TRUE(last->isKey);
    const auto decoded = H264Decoder(config).Decode(*last);

    ASSERT_TRUE(decoded);
    EXPECT_GT(LumaPsnr(picture, *decoded, ColorMatrix::Bt601), kGoodPsnr);
    EXPECT_EQ(encoder->Format().decoderConfig, config);
}

TEST(H264Encoder, ChangedParts_AreEncodedLikeTheWholePicture) {
    const auto inParts = MakeH264(Settings(320, 240));
    const auto atOnce = MakeH264(Settings(320, 240));
    Picture picture = Page(320, 240);
    inParts->Encode(picture.View(), SlotTime(0, kRate), false);
    atOnce->Encode(picture.View(), SlotTime(0, kRate), false);
    const PictureRect changed = {33, 101, 57, 31};
    picture.FillWithNoise(changed, 5);

    const SharedPacket ofParts = inParts->Encode(picture.View({&changed, 1}), SlotTime(1, kRate), false);
    const SharedPacket ofWhole = atOnce->Encode(picture.View(), SlotTime(1, kRate), false);

    EXPECT_EQ(ofParts->bytes, ofWhole->bytes);
}

TEST(H264Encoder, ChangedEffort_GoesOnWithTheSameFormat) {
    const auto encoder = MakeH264(Settings(320, 240));
    const std::vector<std::byte> config = encoder->Format().decoderConfig;
    H264Decoder decoder(config);
    Picture picture = Page(320, 240);
    for (std::uint64_t slot = 0; slot < 12; ++slot) {
        if (slot == 1 || slot == 6) { // the first one right after a key picture
            encoder->SetEffort(slot == 1 ? Effort::Camera : Effort::Screen);
        }
        picture.Write({0, 100, 320, 60}, static_cast<std::uint32_t>(slot), {0, 90, 0});

        const SharedPacket packet = encoder->Encode(picture.View(), SlotTime(slot, kRate), false);

        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->isKey, slot == 0 || slot == 2 || slot == 6) << slot;
        const auto decoded = decoder.Decode(*packet);
        ASSERT_TRUE(decoded) << slot;
        EXPECT_GT(LumaPsnr(picture, *decoded, ColorMatrix::Bt601), kGoodPsnr) << slot;
    }
    EXPECT_EQ(encoder->Format().decoderConfig, config);
}

double QualityPsnr(std::uint32_t quality) {
    EncoderSettings settings = Settings(320, 240);
    settings.quality = quality;
    const auto encoder = MakeH264(settings);
    const Picture page = Page(320, 240);
    const SharedPacket packet = encoder->Encode(page.View(), MediaTime(0), false);
    const auto decoded = H264Decoder(encoder->Format().decoderConfig).Decode(*packet);
    return decoded ? LumaPsnr(page, *decoded, ColorMatrix::Bt601) : 0;
}

TEST(H264Encoder, Quality_DecidesHowCloseThePictureIs) {
    const double worst = QualityPsnr(1);
    const double middle = QualityPsnr(50);
    const double usual = QualityPsnr(80);
    const double best = QualityPsnr(100);

    EXPECT_LT(worst, middle);
    EXPECT_LT(middle, usual);
    EXPECT_LT(usual, best);
}

class FakeH264 : public testing::Test {
protected:
    static std::filesystem::path Path() {
        return H264Library::DefaultPath().parent_path() / L"fakeencoder" / L"openh264.dll";
    }

    FakeH264() : m_module(LoadLibraryW(Path().c_str())) {
        auto* function = reinterpret_cast<FakeH264ScriptFunction*>(
            reinterpret_cast<void*>(GetProcAddress(m_module.Get(), kFakeH264ScriptName)));
        script = function();
        *script = {};
    }

    std::unique_ptr<H264Encoder> Create() const {
        return H264Encoder::Create(H264Library::Load(Path()), Settings(64, 64));
    }

    kx::Module m_module;
    FakeH264Script* script = nullptr;
};

TEST_F(FakeH264, Units_BecomePacketsAndTheDecodersRecord) {
    const auto encoder = Create();
    ASSERT_NE(encoder, nullptr);

    const SharedPacket key = encoder->Encode(Picture(64, 64).View(), SlotTime(0, kRate), false);
    const SharedPacket other = encoder->Encode(Picture(64, 64).View(), SlotTime(1, kRate), false);

    const auto bytes = [](std::initializer_list<int> values) {
        std::vector<std::byte> made;
        for (const int value : values) {
            made.push_back(static_cast<std::byte>(value));
        }
        return made;
    };
    EXPECT_EQ(key->bytes, bytes({0, 0, 0, 3, 0x65, 0xAA, 0xBB}));
    EXPECT_EQ(other->bytes, bytes({0, 0, 0, 2, 0x41, 0xCC}));
    EXPECT_EQ(encoder->Format().decoderConfig, bytes({1,  100,  0, 31, 0xFF, 0xE1, 0,    5,    0x67, 100,  0,
                                                      31, 0xDD, 1, 0,  2,    0x68, 0xEE, 0xFD, 0xF8, 0xF8, 0}));
}

TEST_F(FakeH264, MissingLibrary_IsNull) {
    EXPECT_EQ(H264Library::Load(Path().replace_filename(L"absent.dll")), nullptr);
}

TEST_F(FakeH264, FileThatIsNoLibrary_IsNull) {
    EXPECT_EQ(H264Library::Load(H264Library::DefaultPath().replace_filename(L"config") / L"CheckFileIntergrity.xml"),
              nullptr);
}

TEST_F(FakeH264, LibraryWithoutTheFunctions_IsNull) {
    EXPECT_EQ(H264Library::Load(H264Library::DefaultPath().replace_filename(L"libwinpthread-1.dll")), nullptr);
}

TEST_F(FakeH264, OtherVersions_AreRefused) {
    for (const auto& [major, minor] : {std::pair{1U, 8U}, {2U, 2U}, {2U, 5U}, {3U, 3U}}) {
        script->major = major;
        script->minor = minor;
        EXPECT_EQ(H264Library::Load(Path()), nullptr) << major << '.' << minor;
    }
    script->major = 2;
    script->minor = 4;
    EXPECT_NE(H264Library::Load(Path()), nullptr);
}

TEST_F(FakeH264, RefusedEncoder_IsNull) {
    script->createResult = 1;
    EXPECT_EQ(Create(), nullptr);
    script->createResult = 0;
    EXPECT_NE(Create(), nullptr);
}

TEST_F(FakeH264, RefusedSettings_GiveNothingAndLeaveNothing) {
    script->initialiseResult = 1;
    EXPECT_EQ(Create(), nullptr);
    EXPECT_EQ(script->destroyed, 1);
    script->initialiseResult = 0;
    EXPECT_NE(Create(), nullptr);
}

TEST_F(FakeH264, RefusedParameterSets_GiveNothing) {
    script->parameterSetsResult = 1;
    EXPECT_EQ(Create(), nullptr);
    script->parameterSetsResult = 0;
    EXPECT_NE(Create(), nullptr);
}

TEST_F(FakeH264, FailureInTheMiddle_StartsAgainWithAKeyPicture) {
    script->failingPicture = 2;
    const auto encoder = Create();
    const Picture picture(64, 64);
    std::string packets;
    for (std::uint64_t slot = 0; slot < 5; ++slot) {
        const SharedPacket packet = encoder->Encode(picture.View(), SlotTime(slot, kRate), false);
        packets += packet == nullptr ? "failed " : packet->isKey ? "key " : "other ";
    }

    EXPECT_EQ(packets, "key other failed key other ");
    EXPECT_EQ(script->initialised, 2);
}

TEST_F(FakeH264, PictureLeftOut_CountsAsAFailure) {
    script->failingPicture = 1;
    script->leavesOut = true;
    const auto encoder = Create();
    const Picture picture(64, 64);

    EXPECT_NE(encoder->Encode(picture.View(), SlotTime(0, kRate), false), nullptr);
    EXPECT_EQ(encoder->Encode(picture.View(), SlotTime(1, kRate), false), nullptr);
    const SharedPacket next = encoder->Encode(picture.View(), SlotTime(2, kRate), false);

    ASSERT_NE(next, nullptr);
    EXPECT_TRUE(next->isKey);
}

TEST_F(FakeH264, FailureToStartAgain_FailsUntilItStarts) {
    script->failingPicture = 0;
    const auto encoder = Create();
    const Picture picture(64, 64);
    EXPECT_EQ(encoder->Encode(picture.View(), SlotTime(0, kRate), false), nullptr);
    script->initialiseResult = 1;
    EXPECT_EQ(encoder->Encode(picture.View(), SlotTime(1, kRate), false), nullptr);
    script->initialiseResult = 0;

    const SharedPacket packet = encoder->Encode(picture.View(), SlotTime(2, kRate), false);

    ASSERT_NE(packet, nullptr);
    EXPECT_TRUE(packet->isKey);
}

TEST_F(FakeH264, Encoder_KeepsItsLibraryLoaded) {
    auto encoder = Create();
    m_module.Reset();

    EXPECT_NE(encoder->Encode(Picture(64, 64).View(), SlotTime(0, kRate), false), nullptr);
}

} // namespace

} // namespace kxvcr::test
