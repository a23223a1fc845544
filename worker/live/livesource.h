/**
 * @file
 * What the live server asks of the recorder that feeds it.
 */
#pragma once

#include "worker/packet.h"

namespace kxvcr {

/** Implemented by the recorder; all members may be called from any thread. Packets come through the server's sink. */
class LiveSource {
public:
    virtual ~LiveSource() = default;

    /** The streams whose packets the server is given. */
    virtual StreamFormat Format() const = 0;

    /** The present moment on the packets' clock. */
    virtual MediaTime Now() const noexcept = 0;

    /** Asks for a key picture as soon as possible, also while nothing changes on the screen. Never waits. */
    virtual void RequestKey() noexcept = 0;

    /**
     * The newest picture as JPEG; encoded when it is asked for, once for each picture. May take as long as an encoding.
     * @return null when there is none yet, or it cannot be encoded
     */
    virtual SharedPacket NewestJpeg() noexcept = 0;
};

} // namespace kxvcr
