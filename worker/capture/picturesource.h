/**
 * @file
 * The interface of what takes pictures of the screen.
 */
#pragma once

#include "worker/capture/picturepool.h"

#include <cstdint>

namespace kxvcr {

enum class Grab {
    Failed,    ///< the screen could not be read
    Unchanged, ///< no pixel differs from the picture before
    Changed,   ///< there is a new picture
};

enum class Change {
    Came,       ///< a look is worth while
    NotYet,     ///< nothing has changed
    CannotTell, ///< only a look can tell
};

/**
 * Takes pictures of one size. Says whether something changed, so that nobody has to find it out again. To be used by
 * one thread at a time.
 */
class PictureSource {
public:
    virtual ~PictureSource() = default;

    /**
     * Waits until something has changed since the picture before, where the source can tell; does not wait otherwise.
     * The wait cannot be broken off; it may be over early.
     */
    virtual Change AwaitChange(std::uint32_t milliseconds) noexcept {
        static_cast<void>(milliseconds);
        return Change::CannotTell;
    }

    /** Whether pictures say when the screen showed them first (presentedTicks), as far as that is known. */
    virtual bool TellsPresentation() const noexcept { return false; }

    /**
     * Takes a picture of the screen as it is now.
     * @param target filled when the answer is Changed, all but its number; else its content is not defined
     * @param before the picture that this one is compared with: the newest that was kept; null when there is none, and
     *        the answer is never Unchanged then
     */
    virtual Grab Take(Picture& target, const Picture* before) noexcept = 0;
};

} // namespace kxvcr
