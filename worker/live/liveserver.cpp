// The live server. The HTTP library reads requests and writes answers; this file says what is answered, and gives the
// library connections whose waits have an end (connection.h), because the library itself would read a head of any
// length and wait for a client that does not read.
//
// One request a connection: a viewer's answer ends with the connection anyway, and a thread that waits for another
// request would be missing for a viewer.
#include "worker/live/liveserver.h"

#include "sdk/vcr/workerprotocol.h"
#include "worker/live/connection.h"
#include "worker/live/livepage.h"
#include "worker/live/livepictures.h"

#include "sdk/util/logtool.h"

#include <httplib.h>
#include <log4cplus/loggingmacros.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

namespace kxvcr {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr char kLoopback[] = "127.0.0.1";
constexpr char kAllInterfaces[] = "0.0.0.0";

constexpr std::size_t kThreadsForShortRequests = 16; // beside one for each viewer
constexpr std::size_t kMaxHead = std::size_t{16} * 1024;
constexpr std::size_t kMaxUnread = std::size_t{64} * 1024;
constexpr milliseconds kFarewell(500);
constexpr milliseconds kFirstPicture(2000);
constexpr milliseconds kGoneViewerCheck(100);
constexpr milliseconds kLongestSilence(1000); // then an unchanged picture is sent again
constexpr DWORD kAcceptAgainMs = 10;

constexpr int kOk = 200;
constexpr int kForbidden = 403;
constexpr int kNotFound = 404;
constexpr int kMethodNotAllowed = 405;
constexpr int kServerError = 500;
constexpr int kUnavailable = 503;

char Lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool StartsWithLower(std::string_view text, std::string_view lowerCasePrefix) {
    return text.size() >= lowerCasePrefix.size() &&
           std::ranges::equal(text.substr(0, lowerCasePrefix.size()), lowerCasePrefix, {}, Lower);
}

// A server may ignore ranges. This one must: the library reads the field with a recursion as deep as it is long.
std::string WithoutRange(std::string_view head) {
    std::string kept;
    while (!head.empty()) {
        const std::size_t size = std::min(head.find('\n'), head.size() - 1) + 1;
        if (!StartsWithLower(head, "range")) {
            kept += head.substr(0, size);
        }
        head.remove_prefix(size);
    }
    return kept;
}

// A page of another site can make its name point to this machine, and would then pass for this server's own page;
// the name that the browser believes in gives it away.
bool NamesLoopback(const httplib::Request& request) {
    if (request.get_header_value_count("Host") != 1) {
        return false;
    }
    std::string host = request.get_header_value("Host");
    std::ranges::transform(host, host.begin(), Lower);
    const std::size_t colon = host.find(':', host.starts_with('[') ? host.find(']') : 0);
    if (colon != std::string::npos) {
        const std::string_view port = std::string_view(host).substr(colon + 1);
        if (!std::ranges::all_of(port, [](char digit) { return digit >= '0' && digit <= '9'; })) {
            return false;
        }
        host.resize(colon);
    }
    return host == "localhost" || host == kLoopback || host == "[::1]";
}

// Allows the page what the page itself brings, and nothing else.
httplib::Headers HeadersOfEveryAnswer() {
    return {
        {"Cache-Control", "no-store"},
        {"X-Content-Type-Options", "nosniff"},
        {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                                    "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Referrer-Policy", "no-referrer"},
    };
}

void Refuse(httplib::Response& response, int status, const char* sentence) {
    response.status = status;
    response.set_content(std::string(sentence) + "\n", "text/plain");
}

// What the library sees of a connection: the request's head to read, and the way to answer.
class RequestStream final : public httplib::Stream {
public:
    RequestStream(Connection& connection, std::string head, milliseconds patience)
        : m_connection(connection),
          m_head(std::move(head)),
          m_patience(patience) {}

    bool is_readable() const override { return m_offset < m_head.size(); }
    bool is_writable() const override { return m_connection.IsOpen(); }
    ssize_t read(char* buffer, std::size_t size) override {
        const std::size_t copied = m_head.copy(buffer, size, m_offset);
        m_offset += copied;
        return static_cast<ssize_t>(copied);
    }
    ssize_t write(const char* bytes, std::size_t size) override {
        return m_connection.Write({bytes, size}, m_patience) ? static_cast<ssize_t>(size) : -1;
    }
    void get_remote_ip_and_port(std::string&, int&) const override {}
    void get_local_ip_and_port(std::string&, int&) const override {}
    socket_t socket() const override { return INVALID_SOCKET; }

private:
    Connection& m_connection;
    std::string m_head;
    milliseconds m_patience;
    std::size_t m_offset = 0;
};

// The library's threads. They are told to end on every way out; those that serve a viewer end with the stop event.
class Threads {
public:
    explicit Threads(std::size_t count) : m_pool(count) {}
    ~Threads() { m_pool.shutdown(); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    void Run(std::function<void()> task) { m_pool.enqueue(std::move(task)); }

private:
    httplib::ThreadPool m_pool;
};

// The library's server on such connections. It accepts them itself: the library stops listening for good when a
// client goes away while it is accepted, and looks for its end only now and then.
class HttpServer final : public httplib::Server {
public:
    HttpServer(HANDLE stop, const LivePatience& patience)
        : m_stop(stop),
          m_patience(patience),
          m_acceptable(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (!m_acceptable) {
            throw std::bad_alloc();
        }
        // Without this, another program could take the port over on Windows.
        set_socket_options([](socket_t socket) {
            const int yes = 1;
            setsockopt(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&yes), sizeof(yes));
        });
        set_address_family(AF_INET);
        set_default_headers(HeadersOfEveryAnswer());
    }
    ~HttpServer() override { CloseListener(); }

    /** @return the port, or 0 with the reason in WSAGetLastError() */
    int Bind(const char* address, int port) {
        const int bound = port == 0 ? bind_to_any_port(address) : (bind_to_port(address, port) ? port : 0);
        if (bound <= 0 || WSAEventSelect(svr_sock_, m_acceptable.Get(), FD_ACCEPT) != 0) {
            return 0;
        }
        return bound;
    }

    /** Serves until the stop event; then every connection has ended. */
    void Serve(std::size_t threads) {
        Threads pool(threads);
        while (WaitForClient()) {
            const SOCKET client = accept(svr_sock_, nullptr, nullptr);
            if (client != INVALID_SOCKET) {
                pool.Run([this, client] { process_and_close_socket(client); });
            } else if (WSAGetLastError() != WSAEWOULDBLOCK) {
                WaitForSingleObject(m_stop, kAcceptAgainMs);
            }
        }
        CloseListener();
    }

private:
    bool process_and_close_socket(socket_t socket) noexcept override {
        Connection connection(socket, m_stop);
        try {
            const std::string head = connection.ReadHead(kMaxHead, m_patience.request);
            if (head.empty()) {
                return false;
            }
            RequestStream stream(connection, WithoutRange(head), m_patience.picture);
            bool closed = false;
            if (!process_request(stream, true, closed, nullptr)) {
                return false;
            }
        } catch (const std::exception& failure) {
            LOG4CPLUS_ERROR(GetLogger(), L"The live server dropped a request: " << failure.what());
            return false;
        }
        connection.FinishSending(kMaxUnread, kFarewell);
        return true;
    }

    bool WaitForClient() noexcept {
        const HANDLE events[] = {m_stop, m_acceptable.Get()};
        if (WaitForMultipleObjects(2, events, FALSE, INFINITE) != WAIT_OBJECT_0 + 1) {
            return false;
        }
        WSANETWORKEVENTS seen;
        WSAEnumNetworkEvents(svr_sock_, m_acceptable.Get(), &seen);
        return true;
    }

    void CloseListener() noexcept { const Socket closing(svr_sock_.exchange(INVALID_SOCKET)); }

    HANDLE m_stop;
    LivePatience m_patience;
    kx::KernelHandle m_acceptable;
};

} // namespace

class LiveServer::Impl {
public:
    Impl(std::uint32_t width, std::uint32_t height, const LivePatience& patience)
        : m_width(width),
          m_height(height),
          m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_http(m_stop.Get(), patience) {
        if (!m_stop) {
            throw std::bad_alloc();
        }
        m_http.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
            Answer(request, response);
            return httplib::Server::HandlerResponse::Handled;
        });
        m_http.set_exception_handler(
            [](const httplib::Request&, httplib::Response& response, const std::exception_ptr&) {
                Refuse(response, kServerError, "The server has no memory left.");
            });
    }

    std::int32_t Start(const LiveSettings& settings) {
        m_settings = settings;
        m_started = Clock::now();
        const int port = m_http.Bind(settings.allInterfaces ? kAllInterfaces : kLoopback, settings.port);
        if (port == 0) {
            LOG4CPLUS_ERROR(GetLogger(),
                            L"Cannot listen on port " << settings.port << L": error " << WSAGetLastError());
            return static_cast<std::int32_t>(Result::CannotListen);
        }
        try {
            m_thread = std::thread(&Impl::Serve, this);
        } catch (const std::system_error&) {
            return static_cast<std::int32_t>(Result::OutOfResources);
        }
        LOG4CPLUS_INFO(GetLogger(), L"Live server on port "
                                        << port << L", " << (settings.allInterfaces ? L"all interfaces" : L"loopback")
                                        << L", up to " << settings.maxClients << L" viewers");
        return port;
    }

    void Stop() noexcept {
        m_pictures.End();
        SetEvent(m_stop.Get());
        const std::lock_guard lock(m_joining);
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    LivePictures& Pictures() noexcept { return m_pictures; }
    std::uint64_t Served() const noexcept { return m_served; }

private:
    // A viewer's place among the clients that are allowed.
    class Seat {
    public:
        static std::shared_ptr<Seat> Take(std::atomic<std::uint32_t>& taken, std::uint32_t seats) {
            std::shared_ptr<Seat> seat(new Seat(taken));
            return taken.fetch_add(1) < seats ? std::move(seat) : nullptr;
        }
        ~Seat() { --m_taken; }
        Seat(const Seat&) = delete;
        Seat& operator=(const Seat&) = delete;

    private:
        explicit Seat(std::atomic<std::uint32_t>& taken) noexcept : m_taken(taken) {}
        std::atomic<std::uint32_t>& m_taken;
    };

    struct Route {
        std::string_view path;
        void (Impl::*answer)(const httplib::Request&, httplib::Response&);
    };
    static const std::array<Route, 7> kRoutes;

    void Serve() noexcept {
        try {
            m_http.Serve(m_settings.maxClients + kThreadsForShortRequests);
        } catch (const std::exception& failure) {
            LOG4CPLUS_ERROR(GetLogger(), L"The live server ended early: " << failure.what());
        }
    }

    void Answer(const httplib::Request& request, httplib::Response& response) {
        if (!m_settings.allInterfaces && !NamesLoopback(request)) {
            return Refuse(response, kForbidden, "This server answers only to localhost.");
        }
        if (request.method != "GET" && request.method != "HEAD") {
            response.set_header("Allow", "GET, HEAD");
            return Refuse(response, kMethodNotAllowed, "Only GET and HEAD are allowed.");
        }
        const auto route = std::ranges::find(kRoutes, std::string_view(request.path), &Route::path);
        if (route == kRoutes.end()) {
            return Refuse(response, kNotFound, "There is nothing here. The live picture is at /.");
        }
        response.status = kOk;
        (this->*route->answer)(request, response);
    }

    void AnswerPage(const httplib::Request&, httplib::Response& response) {
        response.set_content(kLivePageHtml, "text/html; charset=utf-8");
    }
    void AnswerScript(const httplib::Request&, httplib::Response& response) {
        response.set_content(kLivePageScript, "text/javascript; charset=utf-8");
    }
    void AnswerStyle(const httplib::Request&, httplib::Response& response) {
        response.set_content(kLivePageStyle, "text/css; charset=utf-8");
    }
    void AnswerIcon(const httplib::Request&, httplib::Response& response) {
        response.set_content(kLivePageIcon, "image/svg+xml");
    }

    void AnswerStatus(const httplib::Request&, httplib::Response& response) {
        const auto uptime = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_started);
        const nlohmann::ordered_json status = {
            {"clients", m_viewers.load()},
            {"maxClients", m_settings.maxClients},
            {"framesServed", m_served.load()},
            {"framesPerSecond", m_pictures.Rate()},
            {"width", m_width},
            {"height", m_height},
            {"uptimeSeconds", uptime.count()},
        };
        response.set_content(status.dump() + "\n", "application/json");
    }

    void AnswerSnapshot(const httplib::Request&, httplib::Response& response) {
        const LivePictures::Picture picture = m_pictures.WaitNewer(0, kFirstPicture);
        if (picture == nullptr) {
            return Refuse(response, kUnavailable, "There is no picture yet.");
        }
        response.set_content(picture->Jpeg().data(), picture->Jpeg().size(), "image/jpeg");
    }

    void AnswerStream(const httplib::Request& request, httplib::Response& response) {
        const std::string type = std::string("multipart/x-mixed-replace; boundary=") + kPartBoundary;
        if (request.method == "HEAD") {
            return response.set_header("Content-Type", type);
        }
        const std::shared_ptr<Seat> seat = Seat::Take(m_viewers, m_settings.maxClients);
        if (seat == nullptr) {
            response.set_header("Retry-After", "2");
            return Refuse(response, kUnavailable, "All viewers' places are taken.");
        }
        response.set_content_provider(
            type, [this, seat, viewer = Viewer()](std::size_t offset, httplib::DataSink& sink) mutable {
                return Show(viewer, offset == 0, sink);
            });
    }

    struct Viewer {
        LivePictures::Picture last;
        Clock::time_point lastSent;
    };

    // One step of a viewer's stream; false when the viewer is gone.
    bool Show(Viewer& viewer, bool first, httplib::DataSink& sink) {
        if (m_pictures.Ended()) {
            sink.done();
            return true;
        }
        const std::string opening = std::string("--") + kPartBoundary + "\r\n";
        if (first && !sink.write(opening.data(), opening.size())) {
            return false;
        }
        const LivePictures::Picture next =
            m_pictures.WaitNewer(viewer.last == nullptr ? 0 : viewer.last->Number(), kGoneViewerCheck);
        if (next != nullptr) {
            viewer.last = next;
        } else if (viewer.last == nullptr || Clock::now() - viewer.lastSent < kLongestSilence) {
            return sink.is_writable();
        }
        viewer.lastSent = Clock::now();
        if (!sink.write(viewer.last->Part().data(), viewer.last->Part().size())) {
            return false;
        }
        ++m_served;
        return true;
    }

    std::uint32_t m_width;
    std::uint32_t m_height;
    LiveSettings m_settings;
    Clock::time_point m_started;
    kx::KernelHandle m_stop;
    LivePictures m_pictures;
    std::atomic<std::uint32_t> m_viewers = 0;
    std::atomic<std::uint64_t> m_served = 0;
    HttpServer m_http;
    std::mutex m_joining;
    std::thread m_thread;
};

const std::array<LiveServer::Impl::Route, 7> LiveServer::Impl::kRoutes = {{
    {"/", &Impl::AnswerPage},
    {"/live.js", &Impl::AnswerScript},
    {"/live.css", &Impl::AnswerStyle},
    {"/icon.svg", &Impl::AnswerIcon},
    {"/status", &Impl::AnswerStatus},
    {"/snapshot.jpg", &Impl::AnswerSnapshot},
    {"/stream", &Impl::AnswerStream},
}};

LiveServer::LiveServer(std::uint32_t width, std::uint32_t height, const LivePatience& patience)
    : m_impl(std::make_unique<Impl>(width, height, patience)) {}

LiveServer::~LiveServer() {
    Stop();
}

std::int32_t LiveServer::Start(const LiveSettings& settings) noexcept {
    try {
        return m_impl->Start(settings);
    } catch (const std::exception&) {
        return static_cast<std::int32_t>(Result::OutOfResources);
    }
}

bool LiveServer::AddFrame(std::uint64_t, std::span<const std::byte> jpeg) {
    m_impl->Pictures().Publish(jpeg);
    return true;
}

void LiveServer::Finish(std::uint64_t) {
    Stop();
    LOG4CPLUS_INFO(GetLogger(), L"Live server finished: " << PicturesServed() << L" pictures sent to viewers");
}

void LiveServer::Stop() noexcept {
    m_impl->Stop();
}

std::uint64_t LiveServer::PicturesServed() const noexcept {
    return m_impl->Served();
}

} // namespace kxvcr
