// The screen's colours as a video's, against the definitions of BT.601 and BT.709.
#include "tests/worker/picture.h"
#include "worker/video/colorconversion.h"
#include "worker/video/encoderinput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

namespace kxvcr::test {

namespace {

struct Triple {
    int luma;
    int blue;
    int red;

    friend bool operator==(const Triple&, const Triple&) = default;
};

std::ostream& operator<<(std::ostream& stream, const Triple& triple) {
    return stream << triple.luma << ' ' << triple.blue << ' ' << triple.red;
}

Triple At(YuvPicture& picture, std::uint32_t x, std::uint32_t y) {
    const std::size_t chroma = y / 2 * picture.ChromaStride() + x / 2;
    return {picture.Luma()[y * picture.LumaStride() + x], picture.Blue()[chroma], picture.Red()[chroma]};
}

Triple Converted(Color color, ColorMatrix matrix) {
    const Picture picture(32, 2, color);
    YuvPicture target(32, 2);
    Convert(picture.View(), matrix, {0, 0, 32, 2}, target);
    return At(target, 17, 1);
}

constexpr Color kBlack = {0, 0, 0};
constexpr Color kGrey = {128, 128, 128};
constexpr Color kWhite = {255, 255, 255};
constexpr Color kBlue = {255, 0, 0};
constexpr Color kGreen = {0, 255, 0};
constexpr Color kRed = {0, 0, 255};

TEST(ColorConversion, GreyTones_HaveNoColour) {
    for (const ColorMatrix matrix : {ColorMatrix::Bt601, ColorMatrix::Bt709}) {
        EXPECT_EQ(Converted(kBlack, matrix), (Triple{16, 128, 128}));
        EXPECT_EQ(Converted(kGrey, matrix), (Triple{126, 128, 128}));
        EXPECT_EQ(Converted(kWhite, matrix), (Triple{235, 128, 128}));
    }
}

TEST(ColorConversion, Primaries601_AreThoseOfTheStandard) {
    EXPECT_EQ(Converted(kRed, ColorMatrix::Bt601), (Triple{81, 90, 240}));
    EXPECT_EQ(Converted(kGreen, ColorMatrix::Bt601), (Triple{145, 54, 34}));
    EXPECT_EQ(Converted(kBlue, ColorMatrix::Bt601), (Triple{41, 240, 110}));
}

TEST(ColorConversion, Primaries709_AreThoseOfTheStandard) {
    EXPECT_EQ(Converted(kRed, ColorMatrix::Bt709), (Triple{63, 102, 240}));
    EXPECT_EQ(Converted(kGreen, ColorMatrix::Bt709), (Triple{173, 42, 26}));
    EXPECT_EQ(Converted(kBlue, ColorMatrix::Bt709), (Triple{32, 240, 118}));
}

// A block's colour by the definition, from pixels that repeat at the edge.
Triple Defined(const Picture& picture, ColorMatrix matrix, std::uint32_t x, std::uint32_t y) {
    const double redPart = matrix == ColorMatrix::Bt601 ? 0.299 : 0.2126;
    const double bluePart = matrix == ColorMatrix::Bt601 ? 0.114 : 0.0722;
    const auto clamped = [&](std::uint32_t column, std::uint32_t row) {
        return picture.At(std::min(column, picture.Width() - 1), std::min(row, picture.Height() - 1));
    };
    const auto luma = [&](double blue, double green, double red) {
        return redPart * red + bluePart * blue + (1 - redPart - bluePart) * green;
    };
    double blue = 0;
    double green = 0;
    double red = 0;
    for (std::uint32_t i = 0; i < 4; ++i) {
        const Color color = clamped(x / 2 * 2 + i % 2, y / 2 * 2 + i / 2);
        blue += color.blue / 4.0;
        green += color.green / 4.0;
        red += color.red / 4.0;
    }
    const Color own = clamped(x, y);
    const double mean = luma(blue, green, red);
    return {static_cast<int>(std::lround(16 + luma(own.blue, own.green, own.red) * 219 / 255)),
            static_cast<int>(std::lround(128 + (blue - mean) / (1 - bluePart) / 2 * 224 / 255)),
            static_cast<int>(std::lround(128 + (red - mean) / (1 - redPart) / 2 * 224 / 255))};
}

int Distance(const Triple& a, const Triple& b) {
    return std::max({std::abs(a.luma - b.luma), std::abs(a.blue - b.blue), std::abs(a.red - b.red)});
}

// The largest distance from the definition, in any sample of a noisy picture.
int LargestDistance(std::uint32_t width, std::uint32_t height, ColorMatrix matrix) {
    Picture picture(width, height);
    picture.FillWithNoise({0, 0, width, height}, width * 100 + height);
    YuvPicture target((width + 1) / 2 * 2, (height + 1) / 2 * 2);
    Convert(picture.View(), matrix, {0, 0, target.Width(), target.Height()}, target);
    int largest = 0;
    for (std::uint32_t y = 0; y < target.Height(); ++y) {
        for (std::uint32_t x = 0; x < target.Width(); ++x) {
            largest = std::max(largest, Distance(At(target, x, y), Defined(picture, matrix, x, y)));
        }
    }
    return largest;
}

TEST(ColorConversion, AnySize_IsTheDefinitionRounded) {
    for (std::uint32_t width = 1; width <= 50; ++width) {
        for (const std::uint32_t height : {1U, 2U, 3U}) {
            EXPECT_LE(LargestDistance(width, height, ColorMatrix::Bt601), 1) << width << 'x' << height;
            EXPECT_LE(LargestDistance(width, height, ColorMatrix::Bt709), 1) << width << 'x' << height;
        }
    }
}

TEST(ColorConversion, Matrix_ChangesAt720Lines) {
    EXPECT_EQ(MatrixForHeight(719), ColorMatrix::Bt601);
    EXPECT_EQ(MatrixForHeight(720), ColorMatrix::Bt709);
}

constexpr SizeLimits kLimits = {16, 8688, 36864};

std::string SizeFor(std::uint32_t width, std::uint32_t height) {
    EncoderInput input(width, height, kLimits);
    return std::to_string(input.Picture().Width()) + "x" + std::to_string(input.Picture().Height());
}

TEST(EncoderInput, Sizes_FitTheEncoder) {
    EXPECT_EQ(SizeFor(1, 1), "16x16");
    EXPECT_EQ(SizeFor(17, 15), "18x16");
    EXPECT_EQ(SizeFor(641, 481), "642x482");
    EXPECT_EQ(SizeFor(3840, 2160), "3840x2160");
    EXPECT_EQ(SizeFor(4096, 2304), "4096x2304");
    EXPECT_EQ(SizeFor(5120, 2880), "4096x2304");
    EXPECT_EQ(SizeFor(17376, 100), "8688x50");
}

std::vector<std::uint8_t> AllSamples(YuvPicture& picture) {
    std::vector<std::uint8_t> samples;
    for (std::uint32_t y = 0; y < picture.Height(); ++y) {
        const std::uint8_t* row = picture.Luma() + y * picture.LumaStride();
        samples.insert(samples.end(), row, row + picture.Width());
    }
    for (const std::uint8_t* plane : {picture.Blue(), picture.Red()}) {
        for (std::uint32_t y = 0; y < picture.Height() / 2; ++y) {
            const std::uint8_t* row = plane + y * picture.ChromaStride();
            samples.insert(samples.end(), row, row + picture.Width() / 2);
        }
    }
    return samples;
}

TEST(EncoderInput, ChangedParts_GiveWhatTheWholePictureGives) {
    constexpr std::uint32_t kWidth = 101;
    constexpr std::uint32_t kHeight = 67;
    Picture picture(kWidth, kHeight);
    EncoderInput inParts(kWidth, kHeight, kLimits);
    ASSERT_TRUE(inParts.Update(picture.View()));
    std::mt19937 random(1);
    for (std::uint32_t round = 0; round < 50; ++round) {
        std::vector<PictureRect> changed;
        for (int i = 0; i < 3; ++i) {
            const auto left = static_cast<std::uint32_t>(random() % kWidth);
            const auto top = static_cast<std::uint32_t>(random() % kHeight);
            changed.push_back({left, top, static_cast<std::uint32_t>(1 + random() % (kWidth - left)),
                               static_cast<std::uint32_t>(1 + random() % (kHeight - top))});
            picture.FillWithNoise(changed.back(), round * 10 + static_cast<std::uint32_t>(i));
        }
        EncoderInput atOnce(kWidth, kHeight, kLimits);

        ASSERT_TRUE(inParts.Update(picture.View(changed)));
        ASSERT_TRUE(atOnce.Update(picture.View()));

        ASSERT_EQ(AllSamples(inParts.Picture()), AllSamples(atOnce.Picture())) << "round " << round;
    }
}

TEST(EncoderInput, Forgotten_TakesTheNextPictureAsAWhole) {
    EncoderInput input(32, 32, kLimits);
    ASSERT_TRUE(input.Update(Picture(32, 32, kBlack).View()));
    input.Forget();
    const PictureRect corner = {0, 0, 2, 2};

    ASSERT_TRUE(input.Update(Picture(32, 32, kWhite).View({&corner, 1})));

    EXPECT_EQ(At(input.Picture(), 31, 31), (Triple{235, 128, 128}));
}

TEST(EncoderInput, ChangedPartBeyondThePicture_IsCutOff) {
    EncoderInput input(32, 32, kLimits);
    ASSERT_TRUE(input.Update(Picture(32, 32, kBlack).View()));
    const PictureRect beyond[] = {{30, 30, 0xFFFFFFFF, 0xFFFFFFFF}, {32, 0, 5, 5}, {0, 0, 0, 0}};

    ASSERT_TRUE(input.Update(Picture(32, 32, kWhite).View(beyond)));

    EXPECT_EQ(At(input.Picture(), 29, 31), (Triple{16, 128, 128}));
    EXPECT_EQ(At(input.Picture(), 31, 31), (Triple{235, 128, 128}));
}

TEST(EncoderInput, PictureOfAnotherSize_IsRefused) {
    EncoderInput input(32, 32, kLimits);

    EXPECT_FALSE(input.Update(Picture(32, 31).View()));
}

TEST(EncoderInput, PictureWithTooFewBytes_IsRefused) {
    const Picture picture(32, 32);
    PictureView view = picture.View();
    view.pixels = view.pixels.first(view.pixels.size() - 1);
    EncoderInput input(32, 32, kLimits);

    EXPECT_FALSE(input.Update(view));
}

TEST(EncoderInput, TooLargePicture_IsScaledAsAWhole) {
    Picture picture(5120, 2880, kWhite);
    picture.Fill({0, 0, 2560, 2880}, kBlack);
    EncoderInput input(5120, 2880, kLimits);

    ASSERT_TRUE(input.Update(picture.View()));

    constexpr int kScalingError = 2;
    EXPECT_LE(Distance(At(input.Picture(), 2040, 2300), {16, 128, 128}), kScalingError);
    EXPECT_LE(Distance(At(input.Picture(), 2056, 2300), {235, 128, 128}), kScalingError);
}

} // namespace

} // namespace kxvcr::test
