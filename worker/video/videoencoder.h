/**
 * @file
 * The interface of what makes packets out of pictures.
 */
#pragma once

#include "worker/packet.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kxvcr {

/** A rectangle of a picture, in pixels from its left upper corner. */
struct PictureRect {
    std::uint32_t left = 0;
    std::uint32_t top = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    friend bool operator==(const PictureRect&, const PictureRect&) = default;
};

inline constexpr std::size_t kBytesPerPixel = 4; ///< of captured pictures: blue, green, red, unused

/** A captured picture, borrowed: rows from top to bottom. */
struct PictureView {
    std::span<const std::byte> pixels; ///< at least (height - 1) * stride + width * kBytesPerPixel bytes
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::size_t stride = 0; ///< bytes from one row to the next
    MediaTime captured{};   ///< when it was grabbed, on the packets' clock; its packet says so

    /** Where it differs from the picture given before; empty when that is not known and all of it may. */
    std::span<const PictureRect> changed;
};

/** How much an encoder is asked to spend on a picture; each step is cheaper than the one before. */
enum class Effort : std::uint8_t {
    Screen, ///< tuned for screen content: the smallest files
    Camera, ///< the same without the search for screen content
};

/** How far key pictures are apart in a file, while pictures change. */
inline constexpr MediaTime kUsualKeyInterval = std::chrono::seconds(2);

/** What an encoder is made for. */
struct EncoderSettings {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t framesPerSecond = 0;
    std::uint32_t quality = 0; ///< 1 to 100
    std::uint32_t bitRate = 0; ///< the most bits a second, over some seconds; 0: the default for the size and rate
};

/** Encodes pictures of one size. To be used by one thread at a time; every call that fails logs why. */
class VideoEncoder {
public:
    virtual ~VideoEncoder() = default;

    /** The format of all packets; known from the start and never changed. */
    virtual const PictureFormat& Format() const noexcept = 0;

    /**
     * Encodes one picture.
     * @param time when it is shown; above the time of the picture before
     * @param key whether it must be a key picture. The encoder makes others of its own accord: the first picture, one
     *        in each key interval, and one wherever the pictures ask for it.
     * @return null when it could not be encoded. The next picture is then a key picture.
     */
    virtual SharedPacket Encode(const PictureView& picture, MediaTime time, bool key) = 0;

    /** Changes the effort from the next picture on, without a break in the stream. Encoders that have one ignore it. */
    virtual void SetEffort(Effort effort) noexcept = 0;

    /** Changes how far key pictures are apart at most, kUsualKeyInterval at first. May be called from any thread. */
    virtual void SetKeyInterval(MediaTime interval) noexcept = 0;
};

} // namespace kxvcr
