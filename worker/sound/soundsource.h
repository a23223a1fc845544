/**
 * @file
 * Where sound comes from: the interface of a device, and what it gives.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kxvcr {

enum class SampleType : std::uint8_t { Float32, Int16, Int24, Int32 };

/** How a device gives its sound. */
struct DeviceFormat {
    std::uint32_t samplesPerSecond = 48'000;
    std::uint32_t channels = 2;
    std::uint32_t speakers = 0; ///< one bit for each channel (SPEAKER_...), in their order; 0: not known
    SampleType type = SampleType::Float32;

    friend bool operator==(const DeviceFormat&, const DeviceFormat&) = default;
};

/** What a device gave at once. */
struct SoundPiece {
    std::span<const std::byte> samples; ///< interleaved, borrowed until the next call; empty: silence
    std::uint32_t frames = 0;
    std::int64_t ticks = 0;     ///< of the performance counter: when its first frame was heard
    bool followsABreak = false; ///< something is missing before it
};

/** A device that is listened to. To be used by one thread, which is in an apartment of COM. */
class SoundSource {
public:
    enum class Read {
        Given,   ///< a piece
        Nothing, ///< nothing for now
        Lost,    ///< the device is gone or gives another format: it must be opened again
    };

    virtual ~SoundSource() = default;

    /** What it is, for the log: "the microphone". */
    virtual std::wstring Name() const = 0;

    /** Opens the device, or opens it again. @return false when there is none, and then Problem() says why */
    virtual bool Open() = 0;

    /** Why it could not be opened, as a sentence without its full stop. */
    virtual std::wstring Problem() const = 0;

    /** Of all pieces until it is opened again. */
    virtual DeviceFormat Format() const = 0;

    /** Takes the next piece, without waiting for one. */
    virtual Read Next(SoundPiece& piece) = 0;
};

} // namespace kxvcr
