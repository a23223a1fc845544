// Encodes pictures as JPEG with libjpeg-turbo's own interface, into one block that is large enough for any picture.
#include "worker/video/jpegencoder.h"

#include "worker/video/videoencoder.h"

namespace kxvcr {

JpegEncoder::JpegEncoder(std::uint32_t width, std::uint32_t height, std::uint32_t quality)
    : m_width(width),
      m_height(height),
      m_quality(quality),
      m_compressor(tjInitCompress()),
      m_output(tjBufSize(static_cast<int>(width), static_cast<int>(height), TJSAMP_420)) {}

std::span<const std::byte> JpegEncoder::Encode(std::span<const std::byte> pixels) noexcept {
    if (!m_compressor || pixels.size() < kBytesPerPixel * m_width * m_height) {
        return {};
    }
    auto* output = reinterpret_cast<unsigned char*>(m_output.data());
    auto size = static_cast<unsigned long>(m_output.size());
    const int failed =
        tjCompress2(m_compressor.Get(), reinterpret_cast<const unsigned char*>(pixels.data()),
                    static_cast<int>(m_width), static_cast<int>(m_width * kBytesPerPixel), static_cast<int>(m_height),
                    TJPF_BGRX, &output, &size, TJSAMP_420, static_cast<int>(m_quality), TJFLAG_NOREALLOC);
    if (failed != 0) {
        return {};
    }
    return std::span<const std::byte>(m_output).first(size);
}

const char* JpegEncoder::LastError() const noexcept {
    return tjGetErrorStr2(m_compressor.Get());
}

} // namespace kxvcr
