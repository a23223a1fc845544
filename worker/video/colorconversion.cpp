// Converts blue, green and red into brightness and colour differences, in whole numbers with 15 bits behind the point.
//
// Two rows are converted at once, sixteen columns at a time with SSE2, which every 64-bit Windows has; what is left,
// and what lies beyond the picture, goes block by block through the same arithmetic.
#include "worker/video/colorconversion.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>

namespace kxvcr {

namespace {

constexpr std::uint32_t kColumnsAtOnce = 16;
constexpr std::size_t kRowAlignment = 32;

constexpr int kFractionBits = 15;
constexpr int kSumOfFourBits = 2;
constexpr int kBlack = 16;    // brightness
constexpr int kNeutral = 128; // colour difference
constexpr double kLumaRange = 219.0 / 255;
constexpr double kChromaRange = 224.0 / 255;

// What a sum of blue, green and red weighs each with.
struct Weights {
    std::int16_t blue;
    std::int16_t green;
    std::int16_t red;
};

struct MatrixWeights {
    Weights luma;
    Weights blue;
    Weights red;
};

constexpr std::int16_t Fixed(double value) {
    const double scaled = value * (1 << kFractionBits);
    return static_cast<std::int16_t>(scaled < 0 ? scaled - 0.5 : scaled + 0.5);
}

// Green takes what rounding left over, so that white is exactly white and grey has no colour.
constexpr Weights WeightsThatAddUpTo(double sum, double blue, double red) {
    return {Fixed(blue), static_cast<std::int16_t>(Fixed(sum) - Fixed(blue) - Fixed(red)), Fixed(red)};
}

constexpr MatrixWeights WeightsOf(double redPart, double bluePart) {
    const double half = kChromaRange / 2;
    return {WeightsThatAddUpTo(kLumaRange, kLumaRange * bluePart, kLumaRange * redPart),
            WeightsThatAddUpTo(0, half, -half * redPart / (1 - bluePart)),
            WeightsThatAddUpTo(0, -half * bluePart / (1 - redPart), half)};
}

constexpr MatrixWeights kBt601 = WeightsOf(0.299, 0.114);
constexpr MatrixWeights kBt709 = WeightsOf(0.2126, 0.0722);

// Added before the fraction is cut off: the sample's offset, and a half to round.
constexpr int Offset(int sample, int fractionBits) {
    return (sample << fractionBits) + (1 << (fractionBits - 1));
}

constexpr int kLumaOffset = Offset(kBlack, kFractionBits);
constexpr int kChromaBits = kFractionBits + kSumOfFourBits;
constexpr int kChromaOffset = Offset(kNeutral, kChromaBits);

struct Rows {
    const std::byte* top;
    const std::byte* bottom;
};

struct BlockTarget {
    std::uint8_t* top;
    std::uint8_t* bottom;
    std::uint8_t* blue;
    std::uint8_t* red;
};

struct Pixel {
    int blue;
    int green;
    int red;
};

Pixel PixelAt(const std::byte* row, std::uint32_t column) noexcept {
    const std::byte* pixel = row + column * kBytesPerPixel;
    return {static_cast<int>(pixel[0]), static_cast<int>(pixel[1]), static_cast<int>(pixel[2])};
}

std::uint8_t Sample(const Pixel& pixel, const Weights& weights, int offset, int bits) noexcept {
    return static_cast<std::uint8_t>(
        (pixel.blue * weights.blue + pixel.green * weights.green + pixel.red * weights.red + offset) >> bits);
}

// One block of two by two pixels; the right column may be the left one again.
void ConvertBlock(const Rows& rows, std::uint32_t left, std::uint32_t right, const MatrixWeights& weights,
                  const BlockTarget& target) noexcept {
    const std::array<Pixel, 4> pixels = {PixelAt(rows.top, left), PixelAt(rows.top, right), PixelAt(rows.bottom, left),
                                         PixelAt(rows.bottom, right)};
    Pixel sum = {};
    for (const Pixel& pixel : pixels) {
        sum.blue += pixel.blue;
        sum.green += pixel.green;
        sum.red += pixel.red;
    }
    target.top[0] = Sample(pixels[0], weights.luma, kLumaOffset, kFractionBits);
    target.top[1] = Sample(pixels[1], weights.luma, kLumaOffset, kFractionBits);
    target.bottom[0] = Sample(pixels[2], weights.luma, kLumaOffset, kFractionBits);
    target.bottom[1] = Sample(pixels[3], weights.luma, kLumaOffset, kFractionBits);
    *target.blue = Sample(sum, weights.blue, kChromaOffset, kChromaBits);
    *target.red = Sample(sum, weights.red, kChromaOffset, kChromaBits);
}

// Four pixels in words: blue and red of each, green and nothing of each.
struct FourPixels {
    __m128i blueRed;
    __m128i green;
};

FourPixels Load(const std::byte* pixels) noexcept {
    const __m128i loaded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
    return {_mm_and_si128(loaded, _mm_set1_epi32(0x00FF00FF)),
            _mm_and_si128(_mm_srli_epi16(loaded, 8), _mm_set1_epi32(0x000000FF))};
}

template <int Bits>
class VectorWeights {
public:
    VectorWeights(const Weights& weights, int offset) noexcept
        : m_blueRed(Pair(weights.blue, weights.red)),
          m_green(Pair(weights.green, 0)),
          m_offset(_mm_set1_epi32(offset)) {}

    __m128i Samples(const FourPixels& pixels) const noexcept {
        const __m128i sum =
            _mm_add_epi32(_mm_madd_epi16(pixels.blueRed, m_blueRed), _mm_madd_epi16(pixels.green, m_green));
        return _mm_srai_epi32(_mm_add_epi32(sum, m_offset), Bits);
    }

private:
    static __m128i Pair(std::int16_t low, std::int16_t high) noexcept {
        return _mm_set_epi16(high, low, high, low, high, low, high, low);
    }

    __m128i m_blueRed;
    __m128i m_green;
    __m128i m_offset;
};

// The first and third of each vector's four numbers.
__m128i EvenNumbers(__m128i first, __m128i second) noexcept {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(first), _mm_castsi128_ps(second), _MM_SHUFFLE(2, 0, 2, 0)));
}

// Adds each pixel's neighbour below and then, in every second place, the pair to its right.
__m128i SumOfFour(__m128i top, __m128i bottom) noexcept {
    const __m128i pairs = _mm_add_epi16(top, bottom);
    return _mm_add_epi16(pairs, _mm_srli_epi64(pairs, 32));
}

FourPixels SumsOfFour(const FourPixels* top, const FourPixels* bottom) noexcept {
    return {EvenNumbers(SumOfFour(top[0].blueRed, bottom[0].blueRed), SumOfFour(top[1].blueRed, bottom[1].blueRed)),
            EvenNumbers(SumOfFour(top[0].green, bottom[0].green), SumOfFour(top[1].green, bottom[1].green))};
}

class RowConverter {
public:
    explicit RowConverter(const MatrixWeights& weights) noexcept
        : m_luma(weights.luma, kLumaOffset),
          m_blue(weights.blue, kChromaOffset),
          m_red(weights.red, kChromaOffset) {}

    // kColumnsAtOnce columns of two rows.
    void Convert(const Rows& rows, const BlockTarget& target) const noexcept {
        std::array<FourPixels, 4> top;
        std::array<FourPixels, 4> bottom;
        for (std::size_t i = 0; i < top.size(); ++i) {
            top[i] = Load(rows.top + i * sizeof(__m128i));
            bottom[i] = Load(rows.bottom + i * sizeof(__m128i));
        }
        StoreLuma(top, target.top);
        StoreLuma(bottom, target.bottom);
        const FourPixels left = SumsOfFour(top.data(), bottom.data());
        const FourPixels right = SumsOfFour(top.data() + 2, bottom.data() + 2);
        StoreChroma(m_blue.Samples(left), m_blue.Samples(right), target.blue);
        StoreChroma(m_red.Samples(left), m_red.Samples(right), target.red);
    }

private:
    void StoreLuma(const std::array<FourPixels, 4>& pixels, std::uint8_t* target) const noexcept {
        const __m128i left = _mm_packs_epi32(m_luma.Samples(pixels[0]), m_luma.Samples(pixels[1]));
        const __m128i right = _mm_packs_epi32(m_luma.Samples(pixels[2]), m_luma.Samples(pixels[3]));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(target), _mm_packus_epi16(left, right));
    }

    static void StoreChroma(__m128i left, __m128i right, std::uint8_t* target) noexcept {
        const __m128i words = _mm_packs_epi32(left, right);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(target), _mm_packus_epi16(words, words));
    }

    VectorWeights<kFractionBits> m_luma;
    VectorWeights<kChromaBits> m_blue;
    VectorWeights<kChromaBits> m_red;
};

} // namespace

YuvPicture::YuvPicture(std::uint32_t width, std::uint32_t height)
    : m_width(width),
      m_height(height),
      m_lumaStride((width + kRowAlignment - 1) / kRowAlignment * kRowAlignment),
      m_samples(m_lumaStride * height + 2 * (m_lumaStride / 2) * (height / 2)) {}

void Convert(const PictureView& source, ColorMatrix matrix, const PictureRect& area, YuvPicture& target) noexcept {
    const MatrixWeights& weights = matrix == ColorMatrix::Bt601 ? kBt601 : kBt709;
    const RowConverter converter(weights);
    const std::uint32_t lastColumn = source.width - 1;
    const std::uint32_t lastRow = source.height - 1;
    const std::uint32_t right = area.left + area.width;
    for (std::uint32_t y = area.top; y < area.top + area.height; y += 2) {
        const Rows rows = {source.pixels.data() + std::min(y, lastRow) * source.stride,
                           source.pixels.data() + std::min(y + 1, lastRow) * source.stride};
        std::uint8_t* const luma = target.Luma() + y * target.LumaStride();
        const std::size_t chroma = y / 2 * target.ChromaStride();
        const auto blockAt = [&](std::uint32_t x) {
            return BlockTarget{luma + x, luma + target.LumaStride() + x, target.Blue() + chroma + x / 2,
                               target.Red() + chroma + x / 2};
        };
        std::uint32_t x = area.left;
        for (; x + kColumnsAtOnce <= std::min(right, source.width); x += kColumnsAtOnce) {
            const std::size_t offset = x * kBytesPerPixel;
            converter.Convert({rows.top + offset, rows.bottom + offset}, blockAt(x));
        }
        for (; x < right; x += 2) {
            ConvertBlock(rows, std::min(x, lastColumn), std::min(x + 1, lastColumn), weights, blockAt(x));
        }
    }
}

} // namespace kxvcr
