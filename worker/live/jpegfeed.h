/**
 * @file
 * Pictures as JPEG, made while somebody wants them: the motion-JPEG stream and single pictures.
 */
#pragma once

#include "worker/live/httpserver.h"
#include "worker/live/livesource.h"
#include "worker/packet.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kxvcr {

/** The boundary of the stream's parts. */
inline constexpr char kPartBoundary[] = "kxframe";

/**
 * Makes a picture at a time, on a thread of its own, because an encoding would hold up everybody else. A viewer of the
 * stream is given the newest picture whenever it has taken the one before. Unless told otherwise, members are used on
 * the server's thread; viewers must not outlive the feed.
 */
class JpegFeed {
public:
    /** @param source borrowed */
    JpegFeed(LiveSource& source, HttpServer& server) noexcept : m_source(source), m_server(server) {}
    ~JpegFeed();

    /** Starts the thread; to be called once. @throws std::system_error */
    void Start();

    /** Ends the thread; may be called from any thread but the server's. */
    void Stop() noexcept;

    /** A new viewer's body. @param whileItLasts freed with the body */
    std::unique_ptr<HttpBody> AddViewer(std::shared_ptr<void> whileItLasts);

    /** Called with the newest picture as soon as there is one, or with null when there is none in time. */
    using Receiver = std::function<void(const SharedPacket&)>;
    void TakeOne(Receiver receiver);

    /** Says that the screen has changed. */
    void NotePicture();

    /** To be called every second: sends viewers their last picture again when there was none since. */
    void Tick();

    /** May be called from any thread. */
    std::uint64_t PicturesSent() const noexcept { return m_picturesSent; }

private:
    class Viewer;
    struct Waiting {
        Receiver receiver;
        unsigned ticksLeft = 0;
    };

    void Ask();
    void MakeWhenAsked() noexcept;
    void Make();
    void Deliver(const SharedPacket& picture);
    const SharedBytes& NewestPart();

    LiveSource& m_source;
    HttpServer& m_server;
    std::list<Viewer*> m_viewers; // they take themselves out
    std::list<Waiting> m_waiting;
    SharedPacket m_newest;
    SharedBytes m_newestPart; // m_newest as a part of the stream; made when it is first sent
    bool m_hasChanged = true; // the screen, since the newest picture was asked for
    std::atomic<std::uint64_t> m_picturesSent = 0;
    std::atomic<bool> m_isMaking = false;

    std::mutex m_mutex; // guards what the threads tell each other
    std::condition_variable m_told;
    bool m_isAsked = false;
    bool m_isStopped = false;
    std::thread m_thread;
};

} // namespace kxvcr
