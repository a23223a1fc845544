/**
 * @file
 * The video stream: the recording's own packets as a fragmented MP4, for any number of viewers.
 */
#pragma once

#include "worker/live/fragmentqueue.h"
#include "worker/live/httpserver.h"
#include "worker/live/livesource.h"
#include "worker/packet.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>

namespace kxvcr {

/** The type of a stream of these formats, with its codecs' parameters (RFC 6381). */
std::string VideoType(const StreamFormat& format);

/** All members are used on the server's thread; viewers must not outlive the feed. */
class VideoFeed {
public:
    /** @param source borrowed */
    VideoFeed(LiveSource& source, HttpServer& server) noexcept : m_source(source), m_server(server) {}

    /**
     * A new viewer's body: the head of the file, and everything from the next key picture on, which is asked for.
     * @param whileItLasts freed with the body
     */
    std::unique_ptr<HttpBody> AddViewer(StreamFormat format, std::shared_ptr<void> whileItLasts);

    /** Gives the packet to every viewer. */
    void Add(const Packet& packet);

    /** Says that packets are missing between those before and those after. */
    void NoteGap();

    /** To be called every second: lets a viewer to whom nothing was sent know that the connection stands. */
    void Tick();

    /** May be called from any thread. */
    std::uint64_t PicturesSent() const noexcept { return m_picturesSent; }
    std::uint64_t LostGroups() const noexcept;

private:
    class Viewer;

    void WantKey();

    LiveSource& m_source;
    HttpServer& m_server;
    StreamFormat m_format;
    std::list<Viewer*> m_viewers; // they take themselves out
    std::chrono::steady_clock::time_point m_keyRequested{};
    bool m_isKeyTimerSet = false;
    std::uint32_t m_sequence = 0;
    std::atomic<std::uint64_t> m_picturesSent = 0;
    std::uint64_t m_lostGroups = 0; // of viewers that are gone
};

} // namespace kxvcr
