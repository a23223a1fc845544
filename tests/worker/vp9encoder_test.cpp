// The VP9 encoder, read back with the library's decoder.
#include "tests/worker/picture.h"
#include "worker/video/makeencoder.h"

#include <gtest/gtest.h>
#include <vpx/vp8dx.h>
#include <vpx/vpx_decoder.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>
#include <string>

namespace kxvcr::test {

namespace {

constexpr std::uint32_t kRate = 30;
constexpr double kGoodPsnr = 35;

EncoderSettings Settings(std::uint32_t width, std::uint32_t height) {
    return {width, height, kRate, kDefaultQuality, 0};
}

std::unique_ptr<VideoEncoder> MakeVp9(const EncoderSettings& settings) {
    MadeEncoder made = MakeEncoder(Codec::Vp9, settings);
    EXPECT_EQ(made.result, Result::Accepted);
    return std::move(made.encoder);
}

std::vector<std::uint8_t> Plane(const vpx_image_t& image, int plane, std::uint32_t width, std::uint32_t height) {
    std::vector<std::uint8_t> samples;
    for (std::uint32_t y = 0; y < height; ++y) {
        const unsigned char* row = image.planes[plane] + static_cast<std::ptrdiff_t>(y) * image.stride[plane];
        samples.insert(samples.end(), row, row + width);
    }
    return samples;
}

class Vp9Decoder {
public:
    Vp9Decoder() { vpx_codec_dec_init(&m_context, vpx_codec_vp9_dx(), nullptr, 0); }
    ~Vp9Decoder() { vpx_codec_destroy(&m_context); }
    Vp9Decoder(const Vp9Decoder&) = delete;
    Vp9Decoder& operator=(const Vp9Decoder&) = delete;

    // Nothing when the packet is not one picture without a fault.
    std::optional<Samples> Decode(const Packet& packet) {
        if (vpx_codec_decode(&m_context, reinterpret_cast<const std::uint8_t*>(packet.bytes.data()),
                             static_cast<unsigned int>(packet.bytes.size()), nullptr, 0) != VPX_CODEC_OK) {
            return std::nullopt;
        }
        vpx_codec_iter_t next = nullptr;
        const vpx_image_t* image = vpx_codec_get_frame(&m_context, &next);
        if (image == nullptr || image->fmt != VPX_IMG_FMT_I420) {
            return std::nullopt;
        }
        m_colorSpace = image->cs;
        m_range = image->range;
        return Samples{image->d_w, image->d_h, Plane(*image, VPX_PLANE_Y, image->d_w, image->d_h),
                       Plane(*image, VPX_PLANE_U, (image->d_w + 1) / 2, (image->d_h + 1) / 2),
                       Plane(*image, VPX_PLANE_V, (image->d_w + 1) / 2, (image->d_h + 1) / 2)};
    }

    vpx_color_space_t ColorSpace() const { return m_colorSpace; }
    vpx_color_range_t Range() const { return m_range; }

private:
    vpx_codec_ctx_t m_context = {};
    vpx_color_space_t m_colorSpace = VPX_CS_UNKNOWN;
    vpx_color_range_t m_range = VPX_CR_FULL_RANGE;
};

class Vp9Sizes : public testing::TestWithParam<std::pair<std::uint32_t, std::uint32_t>> {};

TEST_P(Vp9Sizes, FirstPicture_IsDecodedInTheCapturedSize) {
    const auto [width, height] = GetParam();
    const Color color = {40, 80, 200};
    const Picture page(width, height, color);
    const auto encoder = MakeVp9(Settings(width, height));
    ASSERT_NE(encoder, nullptr);

    const SharedPacket packet = encoder->Encode(page.View(), MediaTime(0), false);

    ASSERT_NE(packet, nullptr);
    EXPECT_TRUE(packet->isKey);
    EXPECT_EQ(encoder->Format().width, width);
    EXPECT_EQ(encoder->Format().height, height);
    const std::optional<Samples> decoded = Vp9Decoder().Decode(*packet);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->width, width);
    EXPECT_EQ(decoded->height, height);
    const Color shown = Shown(*decoded, encoder->Format().matrix, width - 1, height - 1);
    EXPECT_NEAR(shown.blue, color.blue, 6);
    EXPECT_NEAR(shown.green, color.green, 6);
    EXPECT_NEAR(shown.red, color.red, 6);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Vp9Sizes,
                         testing::Values(std::pair{1U, 1U}, std::pair{2U, 40U}, std::pair{15U, 17U},
                                         std::pair{641U, 481U}, std::pair{1920U, 1080U}, std::pair{5120U, 2880U}),
                         [](const auto& size) {
                             return std::to_string(size.param.first) + "x" + std::to_string(size.param.second);
                         });

TEST(Vp9Encoder, Page_KeepsItsText) {
    const Picture page = Page(1280, 720);
    const auto encoder = MakeVp9(Settings(1280, 720));

    const SharedPacket packet = encoder->Encode(page.View(), MediaTime(0), false);

    ASSERT_NE(packet, nullptr);
    const auto decoded = Vp9Decoder().Decode(*packet);
    ASSERT_TRUE(decoded);
    EXPECT_GT(LumaPsnr(page, *decoded, ColorMatrix::Bt709), kGoodPsnr);
}

TEST(Vp9Encoder, Stream_SaysItsColours) {
    for (const auto& [height, space] : {std::pair{480U, VPX_CS_BT_601}, std::pair{720U, VPX_CS_BT_709}}) {
        const auto encoder = MakeVp9(Settings(640, height));
        Vp9Decoder decoder;
        ASSERT_TRUE(decoder.Decode(*encoder->Encode(Page(640, height).View(), MediaTime(0), false)));

        EXPECT_EQ(decoder.ColorSpace(), space);
        EXPECT_EQ(decoder.Range(), VPX_CR_STUDIO_RANGE);
    }
}

std::vector<int> ConfigFor(std::uint32_t width, std::uint32_t height, std::uint32_t rate) {
    const auto encoder = MakeVp9({width, height, rate, kDefaultQuality, 0});
    std::vector<int> config;
    for (const std::byte byte : encoder->Format().decoderConfig) {
        config.push_back(std::to_integer<int>(byte));
    }
    return config;
}

TEST(Vp9Encoder, DecoderConfig_SaysLevelAndColours) {
    EXPECT_EQ(ConfigFor(640, 480, 30), (std::vector<int>{0, 30, 0x82, 6, 1, 6, 0, 0}));
    EXPECT_EQ(ConfigFor(1280, 720, 30), (std::vector<int>{0, 31, 0x82, 1, 1, 1, 0, 0}));
    EXPECT_EQ(ConfigFor(1920, 1080, 60), (std::vector<int>{0, 41, 0x82, 1, 1, 1, 0, 0}));
    EXPECT_EQ(ConfigFor(3840, 2160, 30), (std::vector<int>{0, 50, 0x82, 1, 1, 1, 0, 0}));
}

TEST(Vp9Encoder, ChangingPictures_AreDecodedAndHaveAKeyPictureEveryTwoSeconds) {
    const auto encoder = MakeVp9(Settings(320, 240));
    Vp9Decoder decoder;
    Picture picture = Page(320, 240);
    std::vector<std::uint64_t> keys;
    for (std::uint64_t slot = 0; slot < 130; ++slot) {
        picture.Write({0, 100, 320, 60}, static_cast<std::uint32_t>(slot), {0, 90, 0});
        const SharedPacket packet = encoder->Encode(picture.View(), SlotTime(slot, kRate), slot == 25);
        ASSERT_NE(packet, nullptr) << slot;
        EXPECT_EQ(packet->time, SlotTime(slot, kRate));
        if (packet->isKey) {
            keys.push_back(slot);
        }
        const auto decoded = decoder.Decode(*packet);
        ASSERT_TRUE(decoded) << slot;
        EXPECT_GT(LumaPsnr(picture, *decoded, ColorMatrix::Bt601), kGoodPsnr) << slot;
    }
    EXPECT_EQ(keys, (std::vector<std::uint64_t>{0, 25, 85}));
}

TEST(Vp9Encoder, RarePictures_AreDecoded) {
    const auto encoder = MakeVp9(Settings(320, 240));
    Vp9Decoder decoder;
    for (const std::uint64_t slot : {0U, 1U, 1800U, 108000U}) {
        const SharedPacket packet =
            encoder->Encode(Page(320, 240, static_cast<std::uint32_t>(slot)).View(), SlotTime(slot, kRate), false);
        ASSERT_NE(packet, nullptr) << slot;
        EXPECT_TRUE(decoder.Decode(*packet)) << slot;
    }
}

double QualityPsnr(std::uint32_t quality) {
    EncoderSettings settings = Settings(320, 240);
    settings.quality = quality;
    const Picture page = Page(320, 240);
    const auto decoded = Vp9Decoder().Decode(*MakeVp9(settings)->Encode(page.View(), MediaTime(0), false));
    return decoded ? LumaPsnr(page, *decoded, ColorMatrix::Bt601) : 0;
}

TEST(Vp9Encoder, Quality_DecidesHowCloseThePictureIs) {
    const double worst = QualityPsnr(1);
    const double middle = QualityPsnr(50);
    const double usual = QualityPsnr(80);
    const double best = QualityPsnr(100);

    EXPECT_LT(worst, middle);
    EXPECT_LT(middle, usual);
    EXPECT_LT(usual, best);
}

} // namespace

} // namespace kxvcr::test
