/**
 * @file
 * The short queue between the capture and the encoder.
 */
#pragma once

#include "worker/capture/picturepool.h"
#include "worker/packet.h"

#include <array>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>

namespace kxvcr {

/** A picture on its way to the encoder. */
struct QueuedPicture {
    SharedPicture picture;
    MediaTime time{};     ///< when it is shown
    MediaTime captured{}; ///< when it was presented, where that is known, else when it was grabbed
    bool isKey = false;   ///< a key picture is wanted
};

/** A bounded queue from one thread that captures to one that encodes. Other members may be called from any thread. */
class PictureQueue {
public:
    /** Pictures that wait; one more is being encoded. */
    static constexpr std::size_t kMost = 2;

    /** For the capture: whether a picture can be added. */
    bool HasRoom() const noexcept;

    /** For the capture: adds a picture; there must be room. Times grow from call to call. */
    void Add(QueuedPicture picture) noexcept;

    /** For the capture: no picture before @p until comes any more. */
    void LookedUntil(MediaTime until) noexcept;

    /**
     * For the encoder: waits for a picture; the one taken before is done with.
     * @return none when the queue is closed and empty
     */
    std::optional<QueuedPicture> Take();

    /**
     * The moment up to which everything that was captured has gone through the encoder: it gives no packet before it
     * any more.
     */
    MediaTime Settled() const noexcept;

    /** Nothing is added any more; the encoder takes what waits, unless it is dropped. */
    void Close(bool dropWaiting) noexcept;

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::array<QueuedPicture, kMost> m_waiting; // the first m_count of them, the oldest first
    std::size_t m_count = 0;
    std::optional<MediaTime> m_inEncoder; // the time of the picture that was taken last
    MediaTime m_lookedUntil{};
    bool m_closed = false;
};

} // namespace kxvcr
