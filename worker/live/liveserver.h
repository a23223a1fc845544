/**
 * @file
 * The live server: shows the recorder's pictures to viewers over HTTP. docs/worker-protocol.md is its manual.
 */
#pragma once

#include "worker/framesink.h"
#include "worker/parameters.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace kxvcr {

/** How long the server waits for a client. */
struct LivePatience {
    std::chrono::milliseconds request{2000}; ///< for the whole head of a request
    std::chrono::milliseconds picture{5000}; ///< for a viewer to take one picture, or a client one answer
};

/**
 * Serves motion JPEG over HTTP. A viewer is given the newest picture whenever it has taken the one before: a slow one
 * loses pictures and delays nobody. All members may be called from any thread.
 */
class LiveServer final : public FrameSink {
public:
    /**
     * @param width, height of the pictures, in pixels; only told to viewers
     * @throws std::bad_alloc
     */
    LiveServer(std::uint32_t width, std::uint32_t height, const LivePatience& patience = {});

    /** Stops. */
    ~LiveServer() override;

    /**
     * Begins to listen; to be called once.
     * @return the port, or a negative Result when the port cannot be had or a resource was refused
     */
    std::int32_t Start(const LiveSettings& settings) noexcept;

    /** Shows the picture to every viewer, unless it is the same as the one before. Never waits for a viewer. */
    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) override;

    /** Stops. */
    void Finish(std::uint64_t endSlot) override;

    /** Disconnects every client and closes the port; returns when all of the server's threads have ended. */
    void Stop() noexcept;

    /** Pictures that were sent, to all viewers together. */
    std::uint64_t PicturesServed() const noexcept;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kxvcr
