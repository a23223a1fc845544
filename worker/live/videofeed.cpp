// The video stream. A fragment is made once and shared by all viewers; a viewer that comes or was too slow begins with
// a key picture, for which the encoder is asked once a second at most, however many viewers come and go.
#include "worker/live/videofeed.h"

#include "common/hex.h"
#include "worker/file/mp4fragment.h"
#include "worker/live/livetick.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace kxvcr {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kKeyInterval(1000);
constexpr std::string_view kEmptyBox("\0\0\0\x08"
                                     "free",
                                     8); // what a viewer skips

} // namespace

std::string VideoType(const StreamFormat& format) {
    std::string type = "video/mp4; codecs=\"avc1.";
    for (std::size_t i = 1; i < 4 && i < format.picture.decoderConfig.size(); ++i) {
        // Profile, its constraints and level.
        kx::AppendHex(type, std::to_integer<std::uint8_t>(format.picture.decoderConfig[i]));
    }
    if (format.sound) {
        type += format.sound->codec == Codec::Opus ? ",opus" : ",mp4a.40.2";
    }
    return type + '"';
}

class VideoFeed::Viewer final : public HttpBody {
public:
    Viewer(VideoFeed& feed, SharedBytes head, std::shared_ptr<void> whileItLasts)
        : m_feed(feed),
          m_head(std::move(head)),
          m_whileItLasts(std::move(whileItLasts)),
          m_place(feed.m_viewers.insert(feed.m_viewers.end(), this)) {}
    ~Viewer() override {
        m_feed.m_lostGroups += m_queue.LostGroups();
        m_feed.m_viewers.erase(m_place);
    }
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    SharedBytes Next() override {
        if (m_head != nullptr) {
            return Sent(std::exchange(m_head, nullptr));
        }
        if (Fragment fragment = m_queue.Take(); fragment.bytes != nullptr) {
            m_feed.m_picturesSent += fragment.stream == Stream::Picture ? 1 : 0;
            return Sent(std::move(fragment.bytes));
        }
        if (m_queue.WaitsForKey()) {
            m_feed.WantKey();
        }
        return std::exchange(m_isSilenceOver, false) ? Sent(BytesOf(kEmptyBox)) : nullptr;
    }

    void Tick() { m_isSilenceOver = Clock::now() - m_sent >= kLiveSilence; }

    FragmentQueue& Queue() noexcept { return m_queue; }

private:
    SharedBytes Sent(SharedBytes bytes) noexcept {
        m_sent = Clock::now();
        return bytes;
    }

    VideoFeed& m_feed;
    SharedBytes m_head;
    std::shared_ptr<void> m_whileItLasts;
    std::list<Viewer*>::iterator m_place;
    FragmentQueue m_queue;
    Clock::time_point m_sent{};
    bool m_isSilenceOver = false;
};

std::unique_ptr<HttpBody> VideoFeed::AddViewer(StreamFormat format, std::shared_ptr<void> whileItLasts) {
    m_format = std::move(format);
    auto head = std::make_shared<const std::vector<std::byte>>(FragmentedMp4Head(m_format));
    return std::make_unique<Viewer>(*this, std::move(head), std::move(whileItLasts));
}

// A viewer's time 0 is the recording's; the sound's first packet lies before it, by its decoder's delay.
void VideoFeed::Add(const Packet& packet) {
    if (m_viewers.empty() || packet.time < MediaTime(0)) {
        return;
    }
    FragmentTiming timing;
    timing.sequenceNumber = ++m_sequence;
    timing.duration = SlotTime(1, m_format.picture.framesPerSecond); // until when it is shown is not known yet
    const Fragment fragment{packet.stream, packet.isKey, packet.time,
                            std::make_shared<const std::vector<std::byte>>(FragmentOfPacket(m_format, packet, timing))};
    for (Viewer* viewer : m_viewers) {
        viewer->Queue().Add(fragment);
    }
}

void VideoFeed::NoteGap() {
    for (Viewer* viewer : m_viewers) {
        viewer->Queue().NoteGap();
    }
}

void VideoFeed::Tick() {
    for (Viewer* viewer : m_viewers) {
        viewer->Tick();
    }
}

std::uint64_t VideoFeed::LostGroups() const noexcept {
    std::uint64_t lost = m_lostGroups;
    for (Viewer* viewer : m_viewers) {
        lost += viewer->Queue().LostGroups();
    }
    return lost;
}

void VideoFeed::WantKey() {
    if (m_isKeyTimerSet) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now - m_keyRequested >= kKeyInterval) {
        m_keyRequested = now;
        return m_source.RequestKey();
    }
    m_isKeyTimerSet = true;
    m_server.After(std::chrono::ceil<milliseconds>(m_keyRequested + kKeyInterval - now), [this] {
        m_isKeyTimerSet = false;
        m_server.WakeBodies(); // a viewer that still reads and waits asks again
    });
}

} // namespace kxvcr
