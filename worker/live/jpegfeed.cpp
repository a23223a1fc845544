// Pictures as JPEG. Nothing is made before it is wanted: a viewer that is ready and a picture that is newer than its
// last one, or somebody who takes a single picture. So a slow viewer loses pictures, and costs none that it does not
// see.
#include "worker/live/jpegfeed.h"

#include "worker/live/livetick.h"
#include "worker/log.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <exception>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace kxvcr {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned kMostTicks = 3; // that somebody waits for a single picture: two seconds at least

void Append(std::vector<std::byte>& bytes, std::string_view text) {
    std::ranges::copy(std::as_bytes(std::span(text)), std::back_inserter(bytes));
}

// The boundary follows its picture at once, so that a reader knows that the picture is complete.
SharedBytes PartOf(const Packet& picture) {
    std::vector<std::byte> part;
    const std::string head =
        "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(picture.bytes.size()) + "\r\n\r\n";
    const std::string tail = std::string("\r\n--") + kPartBoundary + "\r\n";
    part.reserve(head.size() + picture.bytes.size() + tail.size());
    Append(part, head);
    part.insert(part.end(), picture.bytes.begin(), picture.bytes.end());
    Append(part, tail);
    return std::make_shared<const std::vector<std::byte>>(std::move(part));
}

} // namespace

class JpegFeed::Viewer final : public HttpBody {
public:
    Viewer(JpegFeed& feed, std::shared_ptr<void> whileItLasts)
        : m_feed(feed),
          m_opening(BytesOf(std::string("--") + kPartBoundary + "\r\n")),
          m_whileItLasts(std::move(whileItLasts)),
          m_place(feed.m_viewers.insert(feed.m_viewers.end(), this)) {}
    ~Viewer() override { m_feed.m_viewers.erase(m_place); }
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    SharedBytes Next() override {
        if (m_opening != nullptr) {
            return std::exchange(m_opening, nullptr);
        }
        const bool isNewer = m_last != m_feed.m_newest && (m_isOffered || !m_feed.m_hasChanged);
        if (isNewer || (m_isSilenceOver && m_last != nullptr)) {
            return Send();
        }
        m_isWaiting = true;
        if (m_feed.m_hasChanged) {
            m_feed.Ask();
        }
        return nullptr;
    }

    bool IsWaiting() const noexcept { return m_isWaiting; }

    /** The newest picture was made while the viewer waited, so it is what the viewer gets, even if there is a newer. */
    void Offer() noexcept { m_isOffered = m_isWaiting; }

    void Tick() { m_isSilenceOver = Clock::now() - m_sent >= kLiveSilence; }

private:
    SharedBytes Send() {
        m_last = m_feed.m_newest;
        m_sent = Clock::now();
        m_isOffered = false;
        m_isWaiting = false;
        m_isSilenceOver = false;
        ++m_feed.m_picturesSent;
        return m_feed.NewestPart();
    }

    JpegFeed& m_feed;
    SharedBytes m_opening;
    std::shared_ptr<void> m_whileItLasts;
    std::list<Viewer*>::iterator m_place;
    SharedPacket m_last;
    Clock::time_point m_sent{};
    bool m_isWaiting = false;
    bool m_isOffered = false;
    bool m_isSilenceOver = false;
};

JpegFeed::~JpegFeed() {
    Stop();
}

void JpegFeed::Start() {
    m_thread = std::thread(&JpegFeed::MakeWhenAsked, this);
}

void JpegFeed::Stop() noexcept {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopped = true;
    }
    m_told.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

std::unique_ptr<HttpBody> JpegFeed::AddViewer(std::shared_ptr<void> whileItLasts) {
    return std::make_unique<Viewer>(*this, std::move(whileItLasts));
}

void JpegFeed::TakeOne(Receiver receiver) {
    m_waiting.push_back({std::move(receiver), kMostTicks});
    Ask();
}

void JpegFeed::NotePicture() {
    m_hasChanged = true;
    if (!m_waiting.empty() || std::ranges::any_of(m_viewers, &Viewer::IsWaiting)) {
        Ask();
    }
}

void JpegFeed::Tick() {
    for (Viewer* viewer : m_viewers) {
        viewer->Tick();
    }
    for (auto waiting = m_waiting.begin(); waiting != m_waiting.end();) {
        if (--waiting->ticksLeft != 0) {
            ++waiting;
            continue;
        }
        const Receiver receiver = std::move(waiting->receiver);
        waiting = m_waiting.erase(waiting);
        receiver(nullptr);
    }
}

void JpegFeed::Ask() {
    if (m_isMaking.exchange(true)) {
        return;
    }
    m_hasChanged = false;
    {
        const std::lock_guard lock(m_mutex);
        m_isAsked = true;
    }
    m_told.notify_all();
}

void JpegFeed::MakeWhenAsked() noexcept {
    for (;;) {
        {
            std::unique_lock lock(m_mutex);
            m_told.wait(lock, [this] { return m_isAsked || m_isStopped; });
            if (m_isStopped) {
                return;
            }
            m_isAsked = false;
        }
        try {
            Make();
        } catch (const std::exception& failure) {
            KXVCR_LOG_ERROR(L"The live server lost a JPEG picture: " << failure.what());
            m_isMaking = false;
        }
    }
}

void JpegFeed::Make() {
    m_server.Post([this, picture = m_source.NewestJpeg()] { Deliver(picture); });
}

void JpegFeed::Deliver(const SharedPacket& picture) {
    m_isMaking = false;
    if (picture == nullptr) {
        return;
    }
    if (picture != m_newest) {
        m_newest = picture;
        m_newestPart.reset();
        std::ranges::for_each(m_viewers, &Viewer::Offer);
    }
    for (const Waiting& waiting : std::exchange(m_waiting, {})) {
        waiting.receiver(picture);
    }
    m_server.WakeBodies();
}

const SharedBytes& JpegFeed::NewestPart() {
    if (m_newestPart == nullptr) {
        m_newestPart = PartOf(*m_newest);
    }
    return m_newestPart;
}

} // namespace kxvcr
