/**
 * @file
 * What crosses the worker's rooms: an encoded picture or piece of sound, the format that it is encoded in, and the
 * interface of whoever takes it.
 */
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ratio>
#include <span>
#include <vector>

namespace kxvcr {

/** A moment or a length in 100 ns. Moments count from the first picture that was captured: slot 0 is at 0. */
using MediaTime = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

/** The moment at which a slot of the frame clock is shown, rounded to the nearest 100 ns. */
constexpr MediaTime SlotTime(std::uint64_t slot, std::uint32_t framesPerSecond) noexcept {
    const std::uint64_t whole = slot / framesPerSecond;
    const std::uint64_t rest = slot % framesPerSecond;
    return MediaTime(static_cast<std::int64_t>(
        whole * MediaTime::period::den + (rest * MediaTime::period::den + framesPerSecond / 2) / framesPerSecond));
}

/** The slots that are shown within @p length, which begins and ends with a slot up to rounding. */
constexpr std::uint64_t SlotsIn(MediaTime length, std::uint32_t framesPerSecond) noexcept {
    return (static_cast<std::uint64_t>(length.count()) * framesPerSecond + MediaTime::period::den / 2) /
           MediaTime::period::den;
}

enum class Stream : std::uint8_t { Picture, Sound };

enum class Codec : std::uint8_t {
    Jpeg,  ///< a whole JPEG file a packet
    H264,  ///< an access unit a packet: NAL units, each behind its length in four big-endian bytes, no parameter sets
    Vp9,   ///< a VP9 frame (or superframe) a packet
    AacLc, ///< a raw AAC frame a packet, no ADTS header
    Opus,  ///< an Opus packet a packet
};

/**
 * An encoded picture or piece of sound. Made once by its encoder and never changed or copied afterwards: replay, file
 * and live view hold the same block.
 */
struct Packet {
    Stream stream = Stream::Picture;
    bool isKey = false;   ///< a picture that is decoded without any other; every piece of sound is one
    MediaTime time{};     ///< when it is shown or heard, as decoded; grows from packet to packet of its stream
    MediaTime captured{}; ///< when its picture was grabbed, on the same clock; for the delay that /status tells
    std::vector<std::byte> bytes;
};

/** Never null where a packet is handed over. */
using SharedPacket = std::shared_ptr<const Packet>;

/** How the pictures' colours were made from the screen's RGB; always limited range. */
enum class ColorMatrix : std::uint8_t {
    Bt601, ///< BT.601 (SMPTE 170M), for pictures of fewer than 720 lines
    Bt709, ///< BT.709
};

/** How a stream or file says its colours: the code points of ISO/IEC 23091-2, which all formats share. */
struct ColorCodes {
    std::uint8_t primaries;
    std::uint8_t transfer;
    std::uint8_t matrix;
};

constexpr ColorCodes CodesOf(ColorMatrix matrix) noexcept {
    constexpr std::uint8_t kBt709 = 1;
    constexpr std::uint8_t kSmpte170 = 6;
    return matrix == ColorMatrix::Bt601 ? ColorCodes{kSmpte170, kBt709, kSmpte170} : ColorCodes{kBt709, kBt709, kBt709};
}

/** Everything that a container or a viewer must know before the first picture. */
struct PictureFormat {
    Codec codec = Codec::Jpeg;
    std::uint32_t width = 0;           ///< of the picture that is shown, in pixels
    std::uint32_t height = 0;          ///< of the picture that is shown, in pixels
    std::uint32_t framesPerSecond = 0; ///< slots a second, the ceiling of the rate
    ColorMatrix matrix = ColorMatrix::Bt709;

    /** H.264: an AVCDecoderConfigurationRecord. VP9: a VPCodecConfigurationRecord without its FullBox head. Else empty.
     */
    std::vector<std::byte> decoderConfig;
};

struct SoundFormat {
    Codec codec = Codec::AacLc;
    std::uint32_t samplesPerSecond = 48000;
    std::uint32_t channels = 2;
    std::uint32_t samplesPerPacket = 1024; ///< each packet lasts so long
    std::uint32_t delaySamples = 0;        ///< what the decoder gives before the first sample of sound: the first
                                           ///< packet's time lies so long before it

    /** AAC: an AudioSpecificConfig. Opus: an OpusHead. */
    std::vector<std::byte> decoderConfig;
};

/** The streams of one recording, replay or live view. */
struct StreamFormat {
    PictureFormat picture;
    std::optional<SoundFormat> sound;
};

/** Takes packets, each stream's in the order of time. An unchanged picture is no packet: the one before lasts longer.
 */
class PacketSink {
public:
    virtual ~PacketSink() = default;

    /** @return false when the packet could not be taken; no more are wanted then */
    virtual bool Add(const SharedPacket& packet) = 0;

    /**
     * Takes the packets of a replay together, so that nobody takes their beginning for all of it. There must be room
     * for them. @return as Add() does
     */
    virtual bool AddAll(std::span<const SharedPacket> packets) {
        return std::ranges::all_of(packets, [this](const SharedPacket& packet) { return Add(packet); });
    }

    /** Says that no more packets come and that the last picture is shown until @p end. */
    virtual void Finish(MediaTime end) = 0;
};

} // namespace kxvcr
