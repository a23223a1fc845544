// The few pictures that a recording needs at a time.
#include "worker/capture/picturepool.h"

namespace kxvcr {

namespace {

constexpr std::size_t kMostRectangles = 64; // a source with more of them gives what encloses them

} // namespace

std::unique_ptr<PicturePool> PicturePool::Create(std::size_t count, std::uint32_t width, std::uint32_t height) {
    std::unique_ptr<PicturePool> pool(new PicturePool(count));
    for (Picture& picture : pool->m_pictures) {
        picture.buffer = PictureBuffer::Create(width, height);
        if (!picture.buffer) {
            return nullptr;
        }
        picture.changed.reserve(kMostRectangles);
    }
    return pool;
}

SharedPicture PicturePool::TakeFree() noexcept {
    for (Picture& picture : m_pictures) {
        int nobody = 0;
        if (picture.holders.compare_exchange_strong(nobody, 1, std::memory_order_acquire)) {
            return SharedPicture(picture);
        }
    }
    return {};
}

} // namespace kxvcr
