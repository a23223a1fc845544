// The live server: which path is answered with what. Three threads: the HTTP server's, on which everything here runs
// unless it says otherwise; one that makes JPEG pictures; and whoever adds packets, which only puts them into the
// inbox.
#include "worker/live/liveserver.h"

#include "sdk/vcr/workerprotocol.h"
#include "worker/live/jpegfeed.h"
#include "worker/live/lastsecond.h"
#include "worker/live/livepage.h"
#include "worker/live/liverules.h"
#include "worker/live/livetick.h"
#include "worker/live/packetinbox.h"
#include "worker/live/videofeed.h"
#include "worker/log.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace kxvcr {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;
using Exchange = std::shared_ptr<HttpExchange>;

enum class Status : unsigned {
    Ok = 200,
    BadRequest = 400,
    Forbidden = 403,
    NotFound = 404,
    MethodNotAllowed = 405,
    Unavailable = 503,
};

// Allows the page what the page itself brings, and nothing else.
std::vector<HttpField> FieldsOfEveryAnswer() {
    return {
        {"Cache-Control", "no-store"},
        {"X-Content-Type-Options", "nosniff"},
        {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                                    "media-src blob:; connect-src 'self'; base-uri 'none'; form-action 'none'; "
                                    "frame-ancestors 'none'"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Referrer-Policy", "no-referrer"},
    };
}

HttpAnswer AnswerWith(std::string type, std::string_view text) {
    return {static_cast<unsigned>(Status::Ok), std::move(type), BytesOf(text), {}};
}

void Refuse(HttpExchange& exchange, Status status, std::string_view sentence, std::vector<HttpField> fields = {}) {
    exchange.Answer(
        {static_cast<unsigned>(status), "text/plain", BytesOf(std::string(sentence) + "\n"), std::move(fields)});
}

// Says nothing about what there is.
void RefuseUnknown(HttpExchange& exchange) {
    Refuse(exchange, Status::NotFound, "There is nothing here.");
}

const char* NameOf(Codec codec) noexcept {
    switch (codec) {
    case Codec::Jpeg:
        return "jpeg";
    case Codec::H264:
        return "h264";
    case Codec::Vp9:
        return "vp9";
    case Codec::AacLc:
        return "aac";
    case Codec::Opus:
        return "opus";
    }
    return "";
}

double MillisecondsOf(MediaTime time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

} // namespace

class LiveServer::Impl {
public:
    Impl(LiveSource& source, const LivePatience& patience)
        : m_source(source),
          m_video(source, m_http),
          m_jpeg(source, m_http),
          m_http(patience, FieldsOfEveryAnswer(),
                 [this](const HttpRequest& request, const Exchange& exchange) { Answer(request, exchange); }) {}
    ~Impl() { Stop(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    LiveStart Start(const LiveSettings& settings) {
        m_settings = settings;
        m_started = Clock::now();
        m_keyPath = KeyPath(settings.key);
        if (settings.allInterfaces) {
            m_hosts = HostRule::AllInterfaces();
        }
        m_http.Post([this] { Tick(); });
        m_jpeg.Start();
        const HttpServer::Listening listening = m_http.Start(settings.allInterfaces, settings.port);
        if (listening.port == 0) {
            KXVCR_LOG_ERROR(L"Cannot listen on port " << settings.port << L": error " << listening.error);
            return {Result::CannotListen};
        }
        KXVCR_LOG_INFO(L"Live server on port "
                       << listening.port << L", " << (settings.allInterfaces ? L"all interfaces" : L"loopback")
                       << (settings.key ? L", with a key" : L", without a key") << L", up to " << settings.maxClients
                       << L" viewers");
        return {Result::Accepted, listening.port};
    }

    // On the recorder's thread.
    void Add(const SharedPacket& packet) {
        if (m_inbox.Put(packet)) {
            m_http.Post([this] { TakePackets(); });
        }
    }

    void Stop() noexcept {
        const std::lock_guard lock(m_stopping);
        m_http.Stop();
        m_jpeg.Stop();
    }

    std::uint64_t Served() const noexcept { return m_video.PicturesSent() + m_jpeg.PicturesSent(); }

private:
    // A viewer's place among the clients that are allowed.
    class Seat {
    public:
        explicit Seat(std::uint32_t& taken) noexcept : m_taken(taken) { ++m_taken; }
        ~Seat() { --m_taken; }
        Seat(const Seat&) = delete;
        Seat& operator=(const Seat&) = delete;

    private:
        std::uint32_t& m_taken;
    };

    struct Route {
        std::string_view path;
        void (Impl::*answer)(const HttpRequest&, const Exchange&);
    };
    static const std::array<Route, 8> kRoutes;

    void TakePackets() {
        const PacketInbox::Content content = m_inbox.Take();
        if (content.hasGap) {
            m_video.NoteGap();
        }
        for (const SharedPacket& packet : content.packets) {
            m_lastSecond.Add(*packet, Clock::now());
            m_video.Add(*packet);
            if (packet->stream == Stream::Picture) {
                m_delay = m_source.Now() - packet->captured;
                m_jpeg.NotePicture();
            }
        }
        m_http.WakeBodies();
    }

    void Tick() {
        m_http.After(kLiveTick, [this] { Tick(); });
        m_video.Tick();
        m_jpeg.Tick();
        TakePackets(); // also those whose coming could not be told for want of memory
    }

    void Answer(const HttpRequest& request, const Exchange& exchange) {
        const std::optional<LiveTarget> target = ReadTarget(request);
        if (!target) {
            return Refuse(*exchange, Status::BadRequest, "A request names one path and one host.");
        }
        const std::optional<std::string_view> path = BehindKey(m_keyPath, target->path);
        if (!path) {
            return RefuseUnknown(*exchange);
        }
        if (!m_settings.key && !m_hosts.Allows(target->authority)) {
            return Refuse(*exchange, Status::Forbidden, "This server does not answer to this name.");
        }
        if (request.method != "GET" && !request.IsHead()) {
            return Refuse(*exchange, Status::MethodNotAllowed, "Only GET and HEAD are allowed.",
                          {{"Allow", "GET, HEAD"}});
        }
        const auto route = std::ranges::find(kRoutes, *path, &Route::path);
        if (route == kRoutes.end()) {
            return RefuseUnknown(*exchange);
        }
        (this->*route->answer)(request, exchange);
    }

    void AnswerPage(const HttpRequest&, const Exchange& exchange) {
        exchange->Answer(AnswerWith("text/html; charset=utf-8", kLivePageHtml));
    }
    void AnswerScript(const HttpRequest&, const Exchange& exchange) {
        exchange->Answer(AnswerWith("text/javascript; charset=utf-8", kLivePageScript));
    }
    void AnswerStyle(const HttpRequest&, const Exchange& exchange) {
        exchange->Answer(AnswerWith("text/css; charset=utf-8", kLivePageStyle));
    }
    void AnswerIcon(const HttpRequest&, const Exchange& exchange) {
        exchange->Answer(AnswerWith("image/svg+xml", kLivePageIcon));
    }

    void AnswerStatus(const HttpRequest&, const Exchange& exchange) {
        const StreamFormat format = m_source.Format();
        const Clock::time_point now = Clock::now();
        nlohmann::ordered_json status = {
            {"clients", m_viewers},
            {"maxClients", m_settings.maxClients},
            {"framesServed", Served()},
            {"framesPerSecond", m_lastSecond.Pictures(now)},
            {"width", format.picture.width},
            {"height", format.picture.height},
            {"uptimeSeconds", std::chrono::duration_cast<std::chrono::seconds>(now - m_started).count()},
            {"bitsPerSecond", m_lastSecond.BitsPerSecond(now)},
            {"lostGroups", m_video.LostGroups()},
            {"codec", NameOf(format.picture.codec)},
            {"sound", nullptr},
            {"delayMilliseconds", nullptr},
        };
        if (format.sound) {
            status["sound"] = NameOf(format.sound->codec);
        }
        if (m_delay) {
            status["delayMilliseconds"] = MillisecondsOf(*m_delay);
        }
        exchange->Answer(AnswerWith("application/json", status.dump() + "\n"));
    }

    void AnswerSnapshot(const HttpRequest&, const Exchange& exchange) {
        m_jpeg.TakeOne([exchange](const SharedPacket& picture) {
            if (picture == nullptr) {
                return Refuse(*exchange, Status::Unavailable, "There is no picture yet.");
            }
            exchange->Answer({static_cast<unsigned>(Status::Ok), "image/jpeg", {picture, &picture->bytes}, {}});
        });
    }

    void AnswerPictures(const HttpRequest& request, const Exchange& exchange) {
        const std::string type = std::string("multipart/x-mixed-replace; boundary=") + kPartBoundary;
        Show(request, *exchange, type,
             [this](std::shared_ptr<void> seat) { return m_jpeg.AddViewer(std::move(seat)); });
    }

    void AnswerVideo(const HttpRequest& request, const Exchange& exchange) {
        StreamFormat format = m_source.Format();
        if (format.picture.codec != Codec::H264) {
            return RefuseUnknown(*exchange);
        }
        Show(request, *exchange, VideoType(format), [this, &format](std::shared_ptr<void> seat) {
            return m_video.AddViewer(std::move(format), std::move(seat));
        });
    }

    template <class AddViewer>
    void Show(const HttpRequest& request, HttpExchange& exchange, const std::string& type, AddViewer addViewer) {
        const HttpAnswer answer{static_cast<unsigned>(Status::Ok), type, nullptr, {}};
        if (request.IsHead()) {
            return exchange.Stream(answer, nullptr);
        }
        if (m_viewers >= m_settings.maxClients) {
            return Refuse(exchange, Status::Unavailable, "All viewers' places are taken.", {{"Retry-After", "2"}});
        }
        exchange.Stream(answer, addViewer(std::make_shared<Seat>(m_viewers)));
    }

    LiveSource& m_source;
    LiveSettings m_settings;
    Clock::time_point m_started;
    std::string m_keyPath;
    HostRule m_hosts = HostRule::Loopback();
    PacketInbox m_inbox;
    LastSecond m_lastSecond;
    std::optional<MediaTime> m_delay; // of the newest picture, from its capture to here
    std::uint32_t m_viewers = 0;
    std::mutex m_stopping;
    VideoFeed m_video;
    JpegFeed m_jpeg;
    HttpServer m_http; // frees the viewers, before the feeds that they know
};

const std::array<LiveServer::Impl::Route, 8> LiveServer::Impl::kRoutes = {{
    {"/", &Impl::AnswerPage},
    {"/live.js", &Impl::AnswerScript},
    {"/live.css", &Impl::AnswerStyle},
    {"/icon.svg", &Impl::AnswerIcon},
    {"/status", &Impl::AnswerStatus},
    {"/snapshot.jpg", &Impl::AnswerSnapshot},
    {"/stream", &Impl::AnswerPictures},
    {"/stream.mp4", &Impl::AnswerVideo},
}};

LiveServer::LiveServer(LiveSource& source, const LivePatience& patience)
    : m_impl(std::make_unique<Impl>(source, patience)) {}

LiveServer::~LiveServer() = default;

LiveStart LiveServer::Start(const LiveSettings& settings) noexcept {
    try {
        return m_impl->Start(settings);
    } catch (const std::exception&) {
        m_impl->Stop();
        return {Result::OutOfResources};
    }
}

bool LiveServer::Add(const SharedPacket& packet) {
    m_impl->Add(packet);
    return true;
}

void LiveServer::Finish(MediaTime) {
    Stop();
    KXVCR_LOG_INFO(L"Live server finished: " << PicturesServed() << L" pictures sent to viewers");
}

void LiveServer::Stop() noexcept {
    m_impl->Stop();
}

std::uint64_t LiveServer::PicturesServed() const noexcept {
    return m_impl->Served();
}

} // namespace kxvcr
