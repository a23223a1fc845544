/**
 * @file
 * The interface of what takes pictures of the screen.
 */
#pragma once

#include "worker/capture/picturepool.h"

namespace kxvcr {

enum class Grab {
    Failed,    ///< the screen could not be read
    Unchanged, ///< no pixel differs from the picture before
    Changed,   ///< there is a new picture
};

/** Takes pictures of one size. Says whether something changed, so that nobody has to find it out again. */
class PictureSource {
public:
    virtual ~PictureSource() = default;

    /**
     * Takes a picture of the screen as it is now. To be called by one thread at a time.
     * @param target filled when the answer is Changed, all but its number; else its content is not defined
     * @param before the picture that this one is compared with: the newest that was kept; null when there is none, and
     *        the answer is never Unchanged then
     */
    virtual Grab Take(Picture& target, const Picture* before) noexcept = 0;
};

} // namespace kxvcr
