/**
 * @file
 * Where a picture changed, and where it changed since an older one.
 */
#pragma once

#include "worker/video/videoencoder.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kxvcr {

/** Rectangles of a picture that cover everything that changed. They may overlap. */
class ChangedArea {
public:
    /** With one more, what encloses them all takes their place. */
    static constexpr std::size_t kMost = 64;

    /** Adds a rectangle, unless one that is there has all of it. */
    void Add(const PictureRect& rect) noexcept;

    void Add(const ChangedArea& other) noexcept;
    void Clear() noexcept { m_count = 0; }
    bool IsEmpty() const noexcept { return m_count == 0; }
    std::span<const PictureRect> Rects() const noexcept { return {m_rects.data(), m_count}; }

private:
    std::array<PictureRect, kMost> m_rects;
    std::size_t m_count = 0;
};

/**
 * What changed from picture to picture, so that an older one can be brought up to date. Pictures are told apart by
 * versions, which count from 1.
 */
class ChangeHistory {
public:
    /** @return the version of the picture that @p change made */
    std::uint64_t Add(const ChangedArea& change) noexcept;

    /** How the next picture follows from those before is not known. */
    void Forget() noexcept { m_first = m_newest + 1; }

    /**
     * Adds to @p changed where the newest picture differs from the one of @p version.
     * @return false, and nothing is added, when that is not known any more
     */
    bool Since(std::uint64_t version, ChangedArea& changed) const noexcept;

private:
    static constexpr std::size_t kKept = 8; // more than there are pictures to bring up to date

    std::array<ChangedArea, kKept> m_changes; // that of version n at n % kKept
    std::uint64_t m_first = 1;                // the oldest version from which all changes are known
    std::uint64_t m_newest = 0;
};

} // namespace kxvcr
