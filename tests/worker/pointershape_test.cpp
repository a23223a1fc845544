// The pointer's shapes on a picture.
#include "worker/capture/pointershape.h"

#include "worker/capture/pixels.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <vector>

namespace kxvcr {

namespace {

constexpr std::uint32_t kWidth = 6;
constexpr std::uint32_t kHeight = 4;
constexpr std::uint32_t kScreen = 0x00204060;
constexpr std::uint32_t kInverted = 0x00DFBF9F;
constexpr std::uint32_t kWhite = 0x00FFFFFF;

DXGI_OUTDUPL_POINTER_SHAPE_INFO Info(DXGI_OUTDUPL_POINTER_SHAPE_TYPE type, UINT width, UINT height, UINT pitch) {
    return {static_cast<UINT>(type), width, height, pitch, {1, 2}};
}

std::vector<std::byte> BytesOf(std::initializer_list<std::uint32_t> pixels) {
    std::vector<std::byte> bytes(pixels.size() * sizeof(std::uint32_t));
    std::memcpy(bytes.data(), std::data(pixels), bytes.size());
    return bytes;
}

class PointerShapeTest : public testing::Test {
protected:
    PointerShapeTest() {
        for (std::uint32_t i = 0; i < kWidth * kHeight; ++i) {
            std::memcpy(picture.Pixels().data() + i * kBytesPerPixel, &kScreen, sizeof(kScreen));
        }
    }
    std::uint32_t At(std::uint32_t x, std::uint32_t y) const {
        std::uint32_t color = 0;
        std::memcpy(&color, PixelAt(picture, x, y), sizeof(color));
        return color & kWhite;
    }

    PictureBuffer picture = PictureBuffer::Create(kWidth, kHeight);
    PointerShape shape;
};

TEST_F(PointerShapeTest, Monochrome_HasBlackWhiteScreenAndInverted) {
    // Two rows of masks for one row of pixels: what keeps the screen, and what inverts it or is white.
    const std::vector<std::byte> bytes = {std::byte{0b0011'0000}, std::byte{0}, std::byte{0b0101'0000}, std::byte{0}};

    ASSERT_TRUE(shape.Read(Info(DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MONOCHROME, 4, 2, 2), bytes));
    shape.Draw(picture, {1, 1});

    EXPECT_EQ(shape.Height(), 1u);
    EXPECT_EQ(At(0, 1), kScreen);
    EXPECT_EQ(At(1, 1), 0u);
    EXPECT_EQ(At(2, 1), kWhite);
    EXPECT_EQ(At(3, 1), kScreen);
    EXPECT_EQ(At(4, 1), kInverted);
    EXPECT_EQ(At(1, 2), kScreen);
}

TEST_F(PointerShapeTest, Colors_CoverTheScreenAsFarAsTheySay) {
    ASSERT_TRUE(shape.Read(Info(DXGI_OUTDUPL_POINTER_SHAPE_TYPE_COLOR, 3, 1, 12),
                           BytesOf({0xFF112233, 0x00112233, 0x80000000})));
    shape.Draw(picture, {0, 0});

    EXPECT_EQ(At(0, 0), 0x112233u);
    EXPECT_EQ(At(1, 0), kScreen);
    EXPECT_EQ(At(2, 0), 0x102030u);
}

TEST_F(PointerShapeTest, MaskedColors_ReplaceOrInvert) {
    ASSERT_TRUE(shape.Read(Info(DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MASKED_COLOR, 3, 1, 12),
                           BytesOf({0x00112233, 0xFFFFFFFF, 0xFF000000})));
    shape.Draw(picture, {0, 0});

    EXPECT_EQ(At(0, 0), 0x112233u);
    EXPECT_EQ(At(1, 0), kInverted);
    EXPECT_EQ(At(2, 0), kScreen);
}

TEST_F(PointerShapeTest, RowsWithGaps_AreReadByTheirPitch) {
    ASSERT_TRUE(shape.Read(Info(DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MASKED_COLOR, 1, 2, 8),
                           BytesOf({0x00111111, 0x00999999, 0x00222222})));
    shape.Draw(picture, {0, 0});

    EXPECT_EQ(At(0, 0), 0x111111u);
    EXPECT_EQ(At(0, 1), 0x222222u);
    EXPECT_EQ(At(1, 0), kScreen);
}

TEST_F(PointerShapeTest, PartOutsideThePicture_IsNotDrawn) {
    ASSERT_TRUE(shape.Read(Info(DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MASKED_COLOR, 2, 2, 8), BytesOf({1, 2, 3, 4})));

    shape.Draw(picture, {-1, -1});
    EXPECT_EQ(At(0, 0), 4u);
    shape.Draw(picture, {kWidth - 1, kHeight - 1});
    EXPECT_EQ(At(kWidth - 1, kHeight - 1), 1u);
    shape.Draw(picture, {-2, 0});
    shape.Draw(picture, {kWidth, 0});
    shape.Draw(picture, {0, 100'000});
    EXPECT_EQ(At(0, 1), kScreen);
}

TEST_F(PointerShapeTest, DescriptionThatDoesNotFitItsBytes_ChangesNothing) {
    ASSERT_TRUE(shape.Read(Info(DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MASKED_COLOR, 1, 1, 4), BytesOf({0x00ABCDEF})));
    const std::vector<std::byte> bytes = BytesOf({1, 2, 3, 4});
    constexpr auto kColor = DXGI_OUTDUPL_POINTER_SHAPE_TYPE_COLOR;
    constexpr auto kMonochrome = DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MONOCHROME;

    EXPECT_FALSE(shape.Read(Info(static_cast<DXGI_OUTDUPL_POINTER_SHAPE_TYPE>(3), 1, 1, 4), bytes));
    EXPECT_FALSE(shape.Read(Info(kColor, 0, 1, 4), bytes));
    EXPECT_FALSE(shape.Read(Info(kColor, 1, 0, 4), bytes));
    EXPECT_FALSE(shape.Read(Info(kColor, 2, 1, 7), bytes));
    EXPECT_FALSE(shape.Read(Info(kColor, 1, 5, 4), bytes));
    EXPECT_FALSE(shape.Read(Info(kColor, 1, 2, 0xFFFFFFFF), bytes));
    EXPECT_FALSE(shape.Read(Info(kColor, 0x40000001, 1, 4), bytes));
    EXPECT_FALSE(shape.Read(Info(kMonochrome, 9, 2, 1), bytes));
    EXPECT_FALSE(shape.Read(Info(kMonochrome, 8, 18, 1), bytes));

    shape.Draw(picture, {0, 0});
    EXPECT_EQ(At(0, 0), 0xABCDEFu);
    EXPECT_EQ(At(1, 0), kScreen);
}

} // namespace

} // namespace kxvcr
