/**
 * @file
 * The pixels of a display with a high dynamic range, as eight bits a colour.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace kxvcr {

/**
 * Turns linear light in half floats (red, green, blue, unused; 1.0 is 80 nits) into sRGB. What ordinary programs draw
 * keeps the colours that it has on an ordinary display; what is brighter than their white becomes white.
 */
class Toning {
public:
    static constexpr std::size_t kBytesPerPixel = 8;

    /**
     * @param whiteNits how bright the display shows the white of ordinary programs
     * @throws std::bad_alloc
     */
    explicit Toning(double whiteNits);

    /** One pixel: from eight bytes to blue, green, red and an unused byte. */
    void Pixel(const std::byte* from, std::byte* to) const noexcept {
        std::uint16_t halves[3];
        std::memcpy(halves, from, sizeof(halves));
        to[0] = m_tones[halves[2]];
        to[1] = m_tones[halves[1]];
        to[2] = m_tones[halves[0]];
        to[3] = std::byte{0xFF};
    }

private:
    std::vector<std::byte> m_tones; // for each half there is
};

} // namespace kxvcr
