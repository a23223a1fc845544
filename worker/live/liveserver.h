/**
 * @file
 * The live server: shows what is recorded to viewers over HTTP. docs/worker-protocol.md is its manual.
 */
#pragma once

#include "worker/live/httpserver.h"
#include "worker/live/livesource.h"
#include "worker/packet.h"
#include "worker/settings.h"

#include <cstdint>
#include <memory>

namespace kxvcr {

/** How long the server waits for a client. */
using LivePatience = HttpPatience;

/**
 * Serves the recording's packets as they come, and JPEG pictures made on demand. A viewer that is slow loses pictures
 * and delays nobody. All members may be called from any thread.
 */
class LiveServer final : public PacketSink {
public:
    /** @param source borrowed; asked from threads of the server until Stop() has returned. @throws std::bad_alloc */
    explicit LiveServer(LiveSource& source, const LivePatience& patience = {});

    /** Stops. */
    ~LiveServer() override;

    /** Begins to listen; to be called once. */
    LiveStart Start(const LiveSettings& settings) noexcept;

    /** Gives the packet to every viewer. Never waits. @return true */
    bool Add(const SharedPacket& packet) override;

    /** Stops. */
    void Finish(MediaTime end) override;

    /** Disconnects every client and closes the port; returns when all of the server's threads have ended. */
    void Stop() noexcept;

    /** Pictures that were sent, to all viewers together. */
    std::uint64_t PicturesServed() const noexcept;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kxvcr
