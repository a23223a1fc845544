/**
 * @file
 * The interface of the containers: packets become a file.
 */
#pragma once

#include "worker/packet.h"

#include <cstdint>

namespace kxvcr {

/**
 * Writes one file. It plays up to the last Flush() whatever happens afterwards. When a write fails, the file is cut
 * behind its last whole packet and finished, so that it plays; later packets are refused. To be used by one thread at
 * a time.
 *
 * A writer is made for an OutputFile, a StreamFormat and a start: the moment that is the file's time 0. Packets of
 * pictures before it, from a key picture on, are only there to be decoded; they are not shown.
 */
class MediaWriter : public PacketSink {
public:
    /**
     * Hands everything so far to the file, the newest picture too, which is shown until @p until at least: a file that
     * ends here is so long. Nothing is written while there is no picture.
     * @param until no packet of a picture before this moment is missing; grows from call to call
     * @return false when writing failed
     */
    virtual bool Flush(MediaTime until) = 0;

    /** Bytes in the file. */
    virtual std::uint64_t Size() const noexcept = 0;
};

} // namespace kxvcr
