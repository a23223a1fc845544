// The few pictures that a recording needs at a time.
#include "worker/capture/picturepool.h"

#include "worker/capture/changedarea.h"

namespace kxvcr {

std::unique_ptr<PicturePool> PicturePool::Create(std::size_t count, std::uint32_t width, std::uint32_t height) {
    std::unique_ptr<PicturePool> pool(new PicturePool(count));
    for (Picture& picture : pool->m_pictures) {
        picture.buffer = PictureBuffer::Create(width, height);
        if (!picture.buffer) {
            return nullptr;
        }
        picture.changed.reserve(ChangedArea::kMost);
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
