/**
 * @file
 * The few pictures that a recording needs at a time: their memory is taken once and used again and again.
 */
#pragma once

#include "worker/capture/picturebuffer.h"
#include "worker/video/videoencoder.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace kxvcr {

/** A picture of the screen. Written by its source; constant from the moment on that others hold it too. */
struct Picture {
    PictureBuffer buffer;
    std::vector<PictureRect> changed;           ///< where it differs from the one before; empty when that is not known
    std::optional<std::int64_t> presentedTicks; ///< when the screen showed it first, where its source can tell
    std::uint64_t number = 0;                   ///< another one for each picture of a source
    std::uint64_t drawn = 0;                    ///< its source's own note of what it drew here last
    std::atomic<int> holders = 0;               ///< SharedPicture's
};

/** Holds a picture of a pool; nobody writes it while it is held by more than its source. Null when it holds none. */
class SharedPicture {
public:
    SharedPicture() noexcept = default;
    SharedPicture(const SharedPicture& other) noexcept : m_picture(other.m_picture) {
        if (m_picture != nullptr) {
            m_picture->holders.fetch_add(1, std::memory_order_relaxed);
        }
    }
    SharedPicture(SharedPicture&& other) noexcept : m_picture(std::exchange(other.m_picture, nullptr)) {}
    SharedPicture& operator=(SharedPicture other) noexcept {
        std::swap(m_picture, other.m_picture);
        return *this;
    }
    ~SharedPicture() {
        if (m_picture != nullptr) {
            m_picture->holders.fetch_sub(1, std::memory_order_release);
        }
    }

    explicit operator bool() const noexcept { return m_picture != nullptr; }
    Picture& operator*() const noexcept { return *m_picture; }
    Picture* operator->() const noexcept { return m_picture; }
    Picture* Get() const noexcept { return m_picture; }

private:
    friend class PicturePool;
    explicit SharedPicture(Picture& taken) noexcept : m_picture(&taken) {}

    Picture* m_picture = nullptr;
};

/** Pictures of one size. It must outlive everything that holds one of its pictures. */
class PicturePool {
public:
    /** @return null when the system refuses the memory. @throws std::bad_alloc */
    static std::unique_ptr<PicturePool> Create(std::size_t count, std::uint32_t width, std::uint32_t height);

    /** A picture that nobody holds; null when all are held. May be called from any thread. */
    SharedPicture TakeFree() noexcept;

private:
    explicit PicturePool(std::size_t count) : m_pictures(count) {}

    std::vector<Picture> m_pictures;
};

} // namespace kxvcr
