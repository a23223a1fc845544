// The mouse pointer's shape. A monochrome shape is one with masked colours: its first mask says where the screen stays,
// its second one where it is turned round or white.
#include "worker/capture/pointershape.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kxvcr {

namespace {

constexpr std::uint32_t kLargestSide = 4096; // far above what a display can show as a pointer
constexpr std::uint8_t kFull = 0xFF;

bool BitOf(std::span<const std::byte> bytes, std::size_t rowStart, std::uint32_t column) noexcept {
    const auto eight = static_cast<unsigned>(bytes[rowStart + column / 8]);
    return (eight >> (7 - column % 8) & 1) != 0;
}

std::uint8_t Blend(std::uint8_t screen, std::uint8_t color, std::uint8_t cover) noexcept {
    return static_cast<std::uint8_t>((screen * (kFull - cover) + color * cover + kFull / 2) / kFull);
}

struct Span {
    std::int64_t first; // of the shape
    std::int64_t end;
};

// The part of the shape's columns or rows that lies in the picture.
Span Visible(std::int32_t place, std::uint32_t length, std::uint32_t pictureLength) noexcept {
    return {std::max<std::int64_t>(0, -std::int64_t{place}),
            std::min<std::int64_t>(length, std::int64_t{pictureLength} - place)};
}

} // namespace

bool PointerShape::Read(const DXGI_OUTDUPL_POINTER_SHAPE_INFO& info, std::span<const std::byte> bytes) {
    const bool isMonochrome = info.Type == DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MONOCHROME;
    const bool isBlended = info.Type == DXGI_OUTDUPL_POINTER_SHAPE_TYPE_COLOR;
    const bool isMasked = info.Type == DXGI_OUTDUPL_POINTER_SHAPE_TYPE_MASKED_COLOR;
    if ((!isMonochrome && !isBlended && !isMasked) || info.Width == 0 || info.Height == 0 ||
        info.Width > kLargestSide || info.Height > 2 * kLargestSide) {
        return false;
    }
    const std::size_t rowBytes = isMonochrome ? (info.Width + 7) / 8 : info.Width * kBytesPerPixel;
    if (info.Pitch < rowBytes || bytes.size() < std::size_t{info.Pitch} * (info.Height - 1) + rowBytes) {
        return false;
    }
    if (isMonochrome) {
        ReadMonochrome(info, bytes);
    } else {
        ReadColored(info, bytes);
    }
    m_kind = isBlended ? Kind::Blended : Kind::Masked;
    m_width = info.Width;
    m_hotSpot = info.HotSpot;
    return true;
}

void PointerShape::ReadMonochrome(const DXGI_OUTDUPL_POINTER_SHAPE_INFO& info, std::span<const std::byte> bytes) {
    const std::uint32_t height = info.Height / 2; // one mask stands above the other
    std::vector<std::uint8_t> pixels;
    pixels.reserve(kBytesPerPixel * info.Width * height);
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < info.Width; ++x) {
            const bool keepsScreen = BitOf(bytes, std::size_t{y} * info.Pitch, x);
            const std::uint8_t color = BitOf(bytes, std::size_t{y + height} * info.Pitch, x) ? kFull : 0;
            pixels.insert(pixels.end(), {color, color, color, keepsScreen ? kFull : std::uint8_t{0}});
        }
    }
    m_pixels = std::move(pixels);
    m_height = height;
}

void PointerShape::ReadColored(const DXGI_OUTDUPL_POINTER_SHAPE_INFO& info, std::span<const std::byte> bytes) {
    const std::size_t rowBytes = info.Width * kBytesPerPixel;
    std::vector<std::uint8_t> pixels(rowBytes * info.Height);
    for (std::uint32_t y = 0; y < info.Height; ++y) {
        std::memcpy(pixels.data() + y * rowBytes, bytes.data() + std::size_t{y} * info.Pitch, rowBytes);
    }
    m_pixels = std::move(pixels);
    m_height = info.Height;
}

void PointerShape::Draw(const PictureBuffer& picture, const PicturePoint& place) const noexcept {
    const Span columns = Visible(place.x, m_width, picture.Width());
    const Span rows = Visible(place.y, m_height, picture.Height());
    auto* const screen = reinterpret_cast<std::uint8_t*>(picture.Pixels().data());
    for (std::int64_t y = rows.first; y < rows.end; ++y) {
        for (std::int64_t x = columns.first; x < columns.end; ++x) {
            const std::uint8_t* const pixel =
                m_pixels.data() +
                (static_cast<std::size_t>(y) * m_width + static_cast<std::size_t>(x)) * kBytesPerPixel;
            std::uint8_t* const target = screen + static_cast<std::size_t>(place.y + y) * picture.Stride() +
                                         static_cast<std::size_t>(place.x + x) * kBytesPerPixel;
            for (int i = 0; i < 3; ++i) {
                if (m_kind == Kind::Blended) {
                    target[i] = Blend(target[i], pixel[i], pixel[3]);
                } else {
                    target[i] = pixel[3] == 0 ? pixel[i] : target[i] ^ pixel[i];
                }
            }
        }
    }
}

} // namespace kxvcr
