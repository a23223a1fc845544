// The live server, asked by the HTTP library's client and by raw connections that a well-behaved client never makes.
#include "worker/live/liveserver.h"

#include "sdk/vcr/workerprotocol.h"
#include "support/importpatch.h"

#include <httplib.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kxvcr;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char kHost[] = "127.0.0.1";
constexpr std::uint32_t kWidth = 1280;
constexpr std::uint32_t kHeight = 720;
constexpr auto kLimit = 10s;    // for something that happens at once on an idle machine
constexpr auto kStopLimit = 1s; // what the worker promises
constexpr std::size_t kPictureSize = 100'000;

// A stand-in for a JPEG: the server never looks into one. The number can be read back, and every byte is checked.
std::string PictureOf(int number, std::size_t size = kPictureSize) {
    std::string picture = std::to_string(number) + "\n";
    picture.resize(size, static_cast<char>('a' + number % 26));
    return picture;
}

// 0 when a byte of the picture is not as it was published.
int NumberOf(const std::string& picture) {
    const int number = std::atoi(picture.c_str());
    return picture == PictureOf(number, picture.size()) ? number : 0;
}

double Milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

bool WaitFor(const std::function<bool()>& condition) {
    const Clock::time_point deadline = Clock::now() + kLimit;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

// A connection that sends and reads whatever the test says.
class RawClient {
public:
    explicit RawClient(int port) : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
        const int receiveBuffer = 4096;
        setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&receiveBuffer), sizeof(int));
        const DWORD patience = static_cast<DWORD>(std::chrono::milliseconds(kLimit).count());
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&patience), sizeof(patience));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<u_short>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        sockaddr generic;
        std::memcpy(&generic, &address, sizeof(generic));
        m_connected = connect(m_socket, &generic, sizeof(generic)) == 0;
    }
    ~RawClient() { closesocket(m_socket); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool Connected() const { return m_connected; }

    void Send(std::string_view bytes) {
        while (!bytes.empty()) {
            const int sent = send(m_socket, bytes.data(), static_cast<int>(bytes.size()), 0);
            if (sent <= 0) {
                return;
            }
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    void EndSending() { shutdown(m_socket, SD_SEND); }

    // One piece; empty when the server closed the connection or said nothing in time.
    std::string Receive() {
        std::string piece(64 * 1024, '\0');
        const int received = recv(m_socket, piece.data(), static_cast<int>(piece.size()), 0);
        piece.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
        return piece;
    }

    std::string ReceiveAll() {
        std::string all;
        for (std::string piece = Receive(); !piece.empty(); piece = Receive()) {
            all += piece;
        }
        return all;
    }

private:
    SOCKET m_socket;
    bool m_connected = false;
};

std::string Get(const std::string& path) {
    return "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n";
}

int StatusOf(const std::string& answer) {
    constexpr std::string_view kVersion = "HTTP/1.1 ";
    return answer.starts_with(kVersion) ? std::stoi(answer.substr(kVersion.size())) : 0;
}

// A viewer that takes the stream apart as its bytes come.
class Viewer {
public:
    explicit Viewer(int port) : m_client(kHost, port) {
        m_client.set_read_timeout(kLimit);
        m_thread = std::thread([this] {
            const auto result = m_client.Get(
                "/stream",
                [this](const httplib::Response& response) {
                    const std::lock_guard lock(m_mutex);
                    m_status = response.status;
                    m_type = response.get_header_value("Content-Type");
                    m_changed.notify_all();
                    return true;
                },
                [this](const char* bytes, std::size_t size) {
                    return Take({bytes, size});
                });
            const std::lock_guard lock(m_mutex);
            m_ended = true;
            m_changed.notify_all();
        });
    }
    ~Viewer() {
        m_client.stop();
        m_thread.join();
    }
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    template <class Condition>
    bool Wait(Condition condition) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, kLimit, condition);
    }
    bool WaitAnswered() {
        return Wait([this] { return m_status != 0; });
    }
    bool WaitShown(int number) {
        return Wait([this, number] { return !m_numbers.empty() && m_numbers.back() >= number; });
    }
    bool WaitEnded() {
        return Wait([this] { return m_ended; });
    }

    int Status() {
        const std::lock_guard lock(m_mutex);
        return m_status;
    }
    std::string Type() {
        const std::lock_guard lock(m_mutex);
        return m_type;
    }
    std::vector<int> Numbers() {
        const std::lock_guard lock(m_mutex);
        return m_numbers;
    }
    std::vector<Clock::time_point> Times() {
        const std::lock_guard lock(m_mutex);
        return m_times;
    }
    std::string Complaint() {
        const std::lock_guard lock(m_mutex);
        return m_complaint;
    }

private:
    bool Take(std::string_view bytes) {
        const std::lock_guard lock(m_mutex);
        m_held += bytes;
        while (TakePart()) {
            continue;
        }
        return m_complaint.empty();
    }

    // A part is complete only with the boundary behind it; anything but exactly such parts is a complaint.
    bool TakePart() {
        static const std::string kOpening = "--kxframe\r\nContent-Type: image/jpeg\r\nContent-Length: ";
        const std::size_t headEnd = m_held.find("\r\n\r\n");
        if (headEnd == std::string::npos) {
            return false;
        }
        if (!m_held.starts_with(kOpening)) {
            m_complaint = "bad part: " + m_held.substr(0, headEnd);
            return false;
        }
        const std::size_t size = std::stoul(m_held.substr(kOpening.size()));
        const std::size_t end = headEnd + 4 + size;
        static const std::string kNext = "\r\n--kxframe\r\n";
        if (m_held.size() < end + kNext.size()) {
            return false;
        }
        if (m_held.compare(end, kNext.size(), kNext) != 0) {
            m_complaint = "no boundary behind the picture";
            return false;
        }
        m_times.push_back(Clock::now());
        m_numbers.push_back(NumberOf(m_held.substr(headEnd + 4, size)));
        if (m_numbers.back() == 0) {
            m_complaint = "damaged picture";
        }
        m_held.erase(0, end + 2);
        m_changed.notify_all();
        return true;
    }

    httplib::Client m_client;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_status = 0;
    std::string m_type;
    std::string m_held;
    std::string m_complaint;
    std::vector<int> m_numbers;
    std::vector<Clock::time_point> m_times;
    bool m_ended = false;
    std::thread m_thread;
};

class Live : public testing::Test {
protected:
    void Start(const LiveSettings& settings = {}) {
        m_port = m_server->Start(settings);
        ASSERT_GT(m_port, 0);
    }

    void Publish(int number, std::size_t size = kPictureSize) {
        const std::string picture = PictureOf(number, size);
        EXPECT_TRUE(m_server->AddFrame(m_slot++, std::as_bytes(std::span(picture))));
    }

    httplib::Result Fetch(const std::string& path, const httplib::Headers& headers = {}) {
        httplib::Client client(kHost, m_port);
        client.set_read_timeout(kLimit);
        return client.Get(path, headers);
    }

    int FetchStatus(const std::string& path, const httplib::Headers& headers = {}) {
        const httplib::Result result = Fetch(path, headers);
        return result ? result->status : 0;
    }

    nlohmann::json Status() { return nlohmann::json::parse(Fetch("/status")->body); }

    // The whole answer to raw bytes.
    std::string Ask(std::string_view request) {
        RawClient client(m_port);
        client.Send(request);
        return client.ReceiveAll();
    }

    void ExpectStillServes() {
        Publish(1'000'000);
        const httplib::Result result = Fetch("/snapshot.jpg");
        ASSERT_TRUE(result);
        EXPECT_EQ(NumberOf(result->body), 1'000'000);
    }

    void UsePatience(const LivePatience& patience) {
        m_server = std::make_unique<LiveServer>(kWidth, kHeight, patience);
    }

    std::unique_ptr<LiveServer> m_server = std::make_unique<LiveServer>(kWidth, kHeight);
    std::int32_t m_port = 0;
    std::uint64_t m_slot = 0;
};

TEST_F(Live, Stream_IsWellFormedPartsInOrder) {
    Start();
    Publish(1);
    Viewer viewer(m_port);
    ASSERT_TRUE(viewer.WaitShown(1));

    for (int number = 2; number <= 20; ++number) {
        Publish(number, kPictureSize + static_cast<std::size_t>(number));
        ASSERT_TRUE(viewer.WaitShown(number));
    }

    EXPECT_EQ(viewer.Status(), 200);
    EXPECT_EQ(viewer.Type(), "multipart/x-mixed-replace; boundary=kxframe");
    EXPECT_EQ(viewer.Complaint(), "");
    std::vector<int> every(20);
    for (int i = 0; i < 20; ++i) {
        every[static_cast<std::size_t>(i)] = i + 1;
    }
    EXPECT_EQ(viewer.Numbers(), every);
}

TEST_F(Live, Snapshot_IsTheNewestPicture) {
    Start();
    for (int number = 1; number <= 3; ++number) {
        Publish(number);

        const httplib::Result result = Fetch("/snapshot.jpg");

        ASSERT_TRUE(result);
        EXPECT_EQ(result->get_header_value("Content-Type"), "image/jpeg");
        EXPECT_EQ(NumberOf(result->body), number);
    }
}

TEST_F(Live, SnapshotBeforeTheFirstPicture_WaitsForIt) {
    Start();
    RawClient client(m_port);
    client.Send(Get("/snapshot.jpg"));

    Publish(1);

    EXPECT_EQ(StatusOf(client.ReceiveAll()), 200);
}

TEST_F(Live, SnapshotWithoutAnyPicture_IsUnavailable) {
    Start();

    EXPECT_EQ(FetchStatus("/snapshot.jpg"), 503);
}

TEST_F(Live, Status_CountsViewersAndFrames) {
    LiveSettings settings;
    settings.maxClients = 3;
    Start(settings);
    Publish(1);
    Viewer viewer(m_port);
    ASSERT_TRUE(viewer.WaitShown(1));
    Publish(2);
    ASSERT_TRUE(viewer.WaitShown(2));
    ASSERT_TRUE(WaitFor([this] { return m_server->PicturesServed() == 2; }));

    const httplib::Result result = Fetch("/status");

    ASSERT_TRUE(result);
    EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
    EXPECT_EQ(result->body, "{\"clients\":1,\"maxClients\":3,\"framesServed\":2,\"framesPerSecond\":2,"
                            "\"width\":1280,\"height\":720,\"uptimeSeconds\":0}\n");
}

TEST_F(Live, SamePicture_IsSentAgainOnlyOnceASecond) {
    Start();
    Viewer viewer(m_port);
    const Clock::time_point published = Clock::now();
    Publish(1);
    ASSERT_TRUE(viewer.WaitShown(1));
    for (int i = 0; i < 1000; ++i) {
        Publish(1);
    }

    ASSERT_TRUE(WaitFor([&viewer] { return viewer.Numbers().size() >= 3; }));

    EXPECT_EQ(Status()["framesPerSecond"], 0);
    const std::vector<Clock::time_point> times = viewer.Times();
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_GE(times[i] - published, std::chrono::seconds(i));
    }
}

TEST_F(Live, ViewerAboveTheLimit_IsTurnedAwayUntilOneLeaves) {
    LiveSettings settings;
    settings.maxClients = 2;
    Start(settings);
    Publish(1);
    Viewer first(m_port);
    auto second = std::make_unique<Viewer>(m_port);
    ASSERT_TRUE(first.WaitShown(1));
    ASSERT_TRUE(second->WaitShown(1));

    EXPECT_EQ(FetchStatus("/stream"), 503);
    EXPECT_EQ(FetchStatus("/snapshot.jpg"), 200);
    EXPECT_EQ(Status()["clients"], 2);
    second.reset();

    ASSERT_TRUE(WaitFor([this] { return Status()["clients"] == 1; }));
    Viewer third(m_port);
    EXPECT_TRUE(third.WaitShown(1));
    EXPECT_EQ(third.Status(), 200);
}

TEST_F(Live, MostViewersThatAreAllowed_AreAllServedBesideOtherRequests) {
    constexpr int kViewers = 64;
    LiveSettings settings;
    settings.maxClients = kViewers;
    Start(settings);
    Publish(1, 1000);
    std::vector<std::unique_ptr<Viewer>> viewers;
    for (int i = 0; i < kViewers; ++i) {
        viewers.push_back(std::make_unique<Viewer>(m_port));
    }
    for (const auto& viewer : viewers) {
        ASSERT_TRUE(viewer->WaitShown(1));
    }

    Publish(2, 1000);

    for (const auto& viewer : viewers) {
        EXPECT_TRUE(viewer->WaitShown(2));
    }
    EXPECT_EQ(Status()["clients"], kViewers);
    EXPECT_EQ(FetchStatus("/stream"), 503);
    m_server->Stop();
}

// The server waits a minute for the viewer that never reads. If that kept anybody else waiting, a picture would be
// missing at the other viewer when the limit is over.
TEST_F(Live, ViewerThatDoesNotRead_DelaysNobody) {
    constexpr int kPictures = 300;
    UsePatience({2000ms, 60000ms});
    Start();
    RawClient stuck(m_port);
    stuck.Send(Get("/stream"));
    Viewer viewer(m_port);
    ASSERT_TRUE(WaitFor([this] { return Status()["clients"] == 2; }));

    std::vector<double> delays;
    double longestPublish = 0;
    for (int number = 1; number <= kPictures; ++number) {
        const Clock::time_point before = Clock::now();
        Publish(number);
        longestPublish = std::max(longestPublish, Milliseconds(Clock::now() - before));
        ASSERT_TRUE(viewer.WaitShown(number)) << number;
        delays.push_back(Milliseconds(viewer.Times().back() - before));
    }

    std::ranges::sort(delays);
    std::printf("delay from publishing to the viewer: median %.2f ms, 95%% %.2f ms, longest %.2f ms; publishing: "
                "longest %.2f ms\n",
                delays[delays.size() / 2], delays[delays.size() * 95 / 100], delays.back(), longestPublish);
    EXPECT_EQ(viewer.Complaint(), "");
    EXPECT_EQ(viewer.Numbers().size(), static_cast<std::size_t>(kPictures));
    EXPECT_EQ(Status()["clients"], 2);
    EXPECT_LT(m_server->PicturesServed(), static_cast<std::uint64_t>(kPictures) * 3 / 2);
}

TEST_F(Live, ViewerThatIsLate_IsShownTheNewestPicture) {
    UsePatience({2000ms, 60000ms});
    Start();
    RawClient late(m_port);
    late.Send(Get("/stream"));
    ASSERT_TRUE(WaitFor([this] { return Status()["clients"] == 1; }));
    constexpr int kPictures = 300;
    for (int number = 1; number <= kPictures; ++number) {
        Publish(number);
    }
    const std::string newest = PictureOf(kPictures);

    std::string received;
    ASSERT_TRUE(WaitFor([&] {
        received += late.Receive();
        return received.find(newest) != std::string::npos;
    }));

    EXPECT_LT(received.size(), kPictureSize * kPictures / 10);
}

TEST_F(Live, ViewerThatDoesNotRead_IsDroppedInTime) {
    UsePatience({2000ms, 300ms});
    Start();
    RawClient stuck(m_port);
    stuck.Send(Get("/stream"));
    int number = 0;
    ASSERT_TRUE(WaitFor([&] {
        Publish(++number, 4'000'000);
        return Status()["clients"] == 1;
    }));

    EXPECT_TRUE(WaitFor([&] {
        Publish(++number, 4'000'000);
        return Status()["clients"] == 0;
    }));
}

TEST_F(Live, ViewerThatLeavesWhileNothingChanges_FreesItsPlace) {
    Start();
    Publish(1);
    {
        Viewer viewer(m_port);
        ASSERT_TRUE(viewer.WaitShown(1));
    }

    EXPECT_TRUE(WaitFor([this] { return Status()["clients"] == 0; }));
}

TEST_F(Live, Page_IsAllowedItselfAlone) {
    Start();

    const httplib::Result page = Fetch("/");

    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(page->get_header_value("Content-Security-Policy"),
              "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
              "base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    EXPECT_EQ(page->body.find("http"), std::string::npos);
    for (const auto& [path, type] : std::map<std::string, std::string>{{"/live.js", "text/javascript; charset=utf-8"},
                                                                       {"/live.css", "text/css; charset=utf-8"},
                                                                       {"/icon.svg", "image/svg+xml"}}) {
        EXPECT_NE(page->body.find('"' + path + '"'), std::string::npos) << path;
        const httplib::Result part = Fetch(path);
        ASSERT_TRUE(part);
        EXPECT_EQ(part->status, 200) << path;
        EXPECT_EQ(part->get_header_value("Content-Type"), type);
    }
}

TEST_F(Live, EveryAnswer_HasTheHeadersThatProtectIt) {
    Start();
    Publish(1);
    for (const char* path : {"/", "/status", "/snapshot.jpg", "/missing"}) {
        const httplib::Result result = Fetch(path);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->get_header_value("Cache-Control"), "no-store") << path;
        EXPECT_EQ(result->get_header_value("X-Content-Type-Options"), "nosniff") << path;
        EXPECT_EQ(result->get_header_value("Cross-Origin-Resource-Policy"), "same-origin") << path;
        EXPECT_TRUE(result->has_header("Content-Security-Policy")) << path;
        EXPECT_FALSE(result->has_header("Access-Control-Allow-Origin")) << path;
    }
    RawClient viewer(m_port);
    viewer.Send(Get("/stream"));
    EXPECT_NE(viewer.Receive().find("Cache-Control: no-store\r\n"), std::string::npos);
}

TEST_F(Live, Head_HasNoBodyAndTakesNoPlace) {
    Start();
    Publish(1);
    httplib::Client client(kHost, m_port);
    for (const char* path : {"/", "/status", "/snapshot.jpg", "/stream"}) {
        const httplib::Result result = client.Head(path);
        ASSERT_TRUE(result) << path;
        EXPECT_EQ(result->status, 200) << path;
        EXPECT_EQ(result->body, "") << path;
    }
    EXPECT_EQ(Status()["clients"], 0);
}

TEST_F(Live, OtherMethods_AreNotAllowed) {
    Start();
    httplib::Client client(kHost, m_port);
    for (const char* path : {"/", "/stream", "/missing"}) {
        const httplib::Result post = client.Post(path, std::string(100'000, 'x'), "text/plain");
        ASSERT_TRUE(post) << path;
        EXPECT_EQ(post->status, 405) << path;
        EXPECT_EQ(post->get_header_value("Allow"), "GET, HEAD");
        EXPECT_EQ(client.Put(path, "x", "text/plain")->status, 405) << path;
        EXPECT_EQ(client.Delete(path)->status, 405) << path;
        EXPECT_EQ(client.Options(path)->status, 405) << path;
    }
    ExpectStillServes();
}

TEST_F(Live, UnknownPaths_AreNotFound) {
    Start();
    for (const char* path :
         {"/missing", "/stream/", "/Stream", "//", "/../status", "/%2e%2e/status", "/status%00", "/?"}) {
        EXPECT_EQ(StatusOf(Ask(Get(path))), path == std::string("/?") ? 200 : 404) << path;
    }
}

TEST_F(Live, HostThatIsNotThisMachine_IsForbidden) {
    Start();
    Publish(1);
    const auto statusFor = [this](const std::string& host) { return FetchStatus("/snapshot.jpg", {{"Host", host}}); };

    for (const char* host : {"localhost", "LOCALHOST:80", "127.0.0.1", "127.0.0.1:65535", "[::1]", "[::1]:8080"}) {
        EXPECT_EQ(statusFor(host), 200) << host;
    }
    for (const char* host : {"example.org", "example.org:80", "localhost.example.org", "127.0.0.1.example.org", "[::2]",
                             "127.0.0.2", "localhost:80:80", "localhost:x", "[::1", "::1", ":80", "127.0.0.1@a"}) {
        EXPECT_EQ(statusFor(host), 403) << host;
    }
    EXPECT_EQ(StatusOf(Ask("GET /status HTTP/1.0\r\n\r\n")), 403);
    EXPECT_EQ(StatusOf(Ask("GET /status HTTP/1.1\r\nHost: localhost\r\nHost: example.org\r\n\r\n")), 403);
    EXPECT_EQ(StatusOf(Ask("GET /stream HTTP/1.1\r\nHost: example.org\r\n\r\n")), 403);
}

TEST_F(Live, AllInterfaces_AnswerToEveryName) {
    LiveSettings settings;
    settings.allInterfaces = true;
    Start(settings);

    EXPECT_EQ(FetchStatus("/status", {{"Host", "screen.example.org"}}), 200);
}

TEST_F(Live, BytesThatAreNoRequest_AreRefusedAndTheServerGoesOn) {
    Start();
    const std::string requests[] = {
        "\r\n\r\n",
        "hello\r\n\r\n",
        "GET\r\n\r\n",
        "GET /status\r\n\r\n",
        "GET /status HTTP/9.9\r\nHost: localhost\r\n\r\n",
        "GET /status HTTP/1.1 more\r\nHost: localhost\r\n\r\n",
        "PAINT /status HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET /?a?b?c HTTP/1.1\r\nHost: localhost\r\n\r\n",
        std::string("GET /sta\0tus HTTP/1.1\r\n\r\n", 25),
        std::string(1000, '\0') + "\r\n\r\n",
        std::string(1000, '\xFF') + "\r\n\r\n",
        "GET /" + std::string(12'000, 'a') + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET /status HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(12'000, 'a') + "\r\n\r\n",
        "GET /status HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(1'000'000, 'a'),
        std::string(1'000'000, 'a'),
    };
    for (const std::string& request : requests) {
        const int status = StatusOf(Ask(request));
        EXPECT_TRUE(status == 400 || status == 414) << status << " for " << request.substr(0, 60);
    }
    ExpectStillServes();
}

TEST_F(Live, ManyHeaderLines_AreRefusedBeyondTheLimit) {
    Start();
    std::string lines;
    for (int i = 0; i < 100; ++i) {
        lines += "X-Line-" + std::to_string(i) + ": " + std::string(100, 'a') + "\r\n";
    }

    EXPECT_EQ(StatusOf(Ask("GET /status HTTP/1.1\r\nHost: localhost\r\n" + lines + "\r\n")), 200);
    EXPECT_EQ(StatusOf(Ask("GET /status HTTP/1.1\r\nHost: localhost\r\n" + lines + lines + "\r\n")), 400);
}

// The library would read such a range with a recursion that its thread's stack does not hold.
TEST_F(Live, LongRange_IsIgnored) {
    Start();
    Publish(1);
    std::string ranges = "bytes=0-0";
    while (ranges.size() < 8000) {
        ranges += ",1-1";
    }
    for (const std::string name : {"Range", "range", "RANGE"}) {
        const std::string answer =
            Ask("GET /snapshot.jpg HTTP/1.1\r\nHost: localhost\r\n" + name + ": " + ranges + "\r\n\r\n");

        EXPECT_EQ(StatusOf(answer), 200) << name;
        EXPECT_TRUE(answer.ends_with(PictureOf(1))) << name;
    }
    ExpectStillServes();
}

TEST_F(Live, RequestThatStopsInTheMiddle_IsEndedInTime) {
    UsePatience({300ms, 5000ms});
    Start();
    RawClient silent(m_port);
    RawClient half(m_port);
    half.Send("GET /status HTTP/1.1\r\nHost: local");

    EXPECT_EQ(silent.ReceiveAll(), "");
    EXPECT_EQ(StatusOf(half.ReceiveAll()), 400);
    ExpectStillServes();
}

TEST_F(Live, ClientsThatHangUp_LeaveTheServerAsItWas) {
    Start();
    Publish(1);
    for (int i = 0; i < 50; ++i) {
        RawClient client(m_port);
        ASSERT_TRUE(client.Connected());
        if (i % 3 != 0) {
            client.Send(i % 3 == 1 ? Get("/stream") : Get("/snapshot.jpg"));
        }
    }

    EXPECT_TRUE(WaitFor([this] { return Status()["clients"] == 0; }));
    ExpectStillServes();
}

TEST_F(Live, ClientThatIsGoneWhenAccepted_IsTheOnlyOneLost) {
    using AcceptHook = kxtest::ImportHook<"WS2_32.dll", "accept", decltype(accept)>;
    std::atomic<bool> goesAway = false;
    const AcceptHook hook(
        [&goesAway](SOCKET listener, sockaddr* address, int* size) -> SOCKET {
            const SOCKET client = AcceptHook::Original(listener, address, size);
            if (!goesAway.exchange(false)) {
                return client;
            }
            closesocket(client);
            WSASetLastError(WSAECONNRESET);
            return INVALID_SOCKET;
        },
        GetModuleHandleW(nullptr));
    Start();
    Publish(1);
    Viewer viewer(m_port);
    ASSERT_TRUE(viewer.WaitShown(1));

    goesAway = true;
    EXPECT_EQ(Ask(Get("/status")), "");

    EXPECT_FALSE(goesAway);
    ExpectStillServes();
    EXPECT_TRUE(viewer.WaitShown(1'000'000));
    m_server->Stop();
}

TEST_F(Live, Stop_EndsViewersAtOnceHoweverTheyBehave) {
    Start();
    Publish(1, 400'000);
    RawClient stuck(m_port);
    stuck.Send(Get("/stream"));
    RawClient silent(m_port);
    Viewer viewer(m_port);
    ASSERT_TRUE(viewer.WaitShown(1));
    ASSERT_TRUE(WaitFor([this] { return Status()["clients"] == 2; }));

    const Clock::time_point before = Clock::now();
    m_server->Stop();
    const Clock::duration stopping = Clock::now() - before;

    EXPECT_LT(stopping, kStopLimit) << Milliseconds(stopping);
    EXPECT_TRUE(viewer.WaitEnded());
    EXPECT_EQ(silent.ReceiveAll(), "");
    EXPECT_FALSE(RawClient(m_port).Connected());
}

TEST_F(Live, StopBeforeStartAndTwice_DoesNothing) {
    m_server->Stop();
    UsePatience({});
    Start();
    m_server->Stop();
    m_server->Finish(0);
}

TEST_F(Live, PortInUse_IsRefusedAndFreeAfterwards) {
    Start();
    LiveSettings same;
    same.port = static_cast<std::uint16_t>(m_port);
    LiveServer second(kWidth, kHeight);

    EXPECT_EQ(second.Start(same), static_cast<std::int32_t>(Result::CannotListen));
    Publish(1);
    {
        Viewer viewer(m_port);
        ASSERT_TRUE(viewer.WaitShown(1));
        m_server->Stop();
    }

    LiveServer third(kWidth, kHeight);
    EXPECT_EQ(third.Start(same), m_port);
}

} // namespace
