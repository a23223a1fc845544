/**
 * @file
 * Where the recorder's encoded pictures go.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kxvcr {

/** Takes one encoded picture for each slot of the frame clock. Called from the recorder's thread alone. */
class FrameSink {
public:
    virtual ~FrameSink() = default;

    /**
     * Takes the picture of @p slot. Slots grow from call to call; one that is left out shows the picture before it.
     * @param jpeg borrowed for the call
     * @return false when the picture could not be kept; no more pictures are wanted then
     */
    virtual bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) = 0;

    /** The last picture was given, and the recording ends with slot @p endSlot (not included). */
    virtual void Finish(std::uint64_t endSlot) = 0;
};

} // namespace kxvcr
