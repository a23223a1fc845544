// What the live server answers to requests, and to what is none.
#include "livecase.h"

#include "support/importpatch.h"
#include "support/logcapture.h"
#include "tests/worker/scarcememory.h"

#include <winsock2.h>

#include <atomic>
#include <deque>

namespace kxtest {

namespace {

using namespace kxvcr;
using namespace std::chrono_literals;

class LiveRequests : public LiveCase {};

constexpr LiveKey kKey = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 255};
const std::string kKeyed = "/000102030405060708090a0b0c0d0eff";

LiveSettings WithKey() {
    LiveSettings settings;
    settings.key = kKey;
    return settings;
}

TEST_F(LiveRequests, Page_IsAllowedItselfAlone) {
    Start();

    const Response page = Fetch("/");

    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.Field("content-type"), "text/html; charset=utf-8");
    EXPECT_EQ(page.Field("content-security-policy"),
              "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; media-src blob:; "
              "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    EXPECT_EQ(page.body.find("http"), std::string::npos);
    for (const auto& [path, type] : std::map<std::string, std::string>{{"live.js", "text/javascript; charset=utf-8"},
                                                                       {"live.css", "text/css; charset=utf-8"},
                                                                       {"icon.svg", "image/svg+xml"}}) {
        EXPECT_NE(page.body.find('"' + path + '"'), std::string::npos) << path;
        const Response part = Fetch("/" + path);
        EXPECT_EQ(part.status, 200) << path;
        EXPECT_EQ(part.Field("content-type"), type);
    }
}

TEST_F(LiveRequests, EveryAnswer_HasTheHeadersThatProtectIt) {
    Start();
    Publish(1);
    for (const char* path : {"/", "/status", "/snapshot.jpg", "/missing"}) {
        const Response answer = Fetch(path);
        EXPECT_EQ(answer.Field("cache-control"), "no-store") << path;
        EXPECT_EQ(answer.Field("x-content-type-options"), "nosniff") << path;
        EXPECT_EQ(answer.Field("cross-origin-resource-policy"), "same-origin") << path;
        EXPECT_EQ(answer.Field("referrer-policy"), "no-referrer") << path;
        EXPECT_EQ(answer.Field("content-security-policy").empty(), false) << path;
        EXPECT_EQ(answer.Field("access-control-allow-origin"), "") << path;
        EXPECT_EQ(answer.Field("connection"), "close") << path;
    }
    VideoViewer viewer(m_port);
    ASSERT_TRUE(WaitFor([&viewer] { return !viewer.Head().empty(); }));
    EXPECT_EQ(ReadResponse(viewer.Head()).Field("cache-control"), "no-store");
}

TEST_F(LiveRequests, Head_HasNoBodyAndTakesNoPlace) {
    Start();
    Publish(1);
    for (const char* path : {"/", "/status", "/snapshot.jpg", "/stream", "/stream.mp4"}) {
        const Response answer = ReadResponse(Ask(Request("HEAD", path)));
        EXPECT_EQ(answer.status, 200) << path;
        EXPECT_EQ(answer.body, "") << path;
    }
    EXPECT_EQ(Status()["clients"], 0);
}

TEST_F(LiveRequests, OtherMethods_AreNotAllowed) {
    Start();
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "PAINT", "get"}) {
        for (const char* path : {"/", "/stream", "/missing"}) {
            const Response answer = ReadResponse(Ask(Request(method, path)));
            EXPECT_EQ(answer.status, 405) << method << path;
            EXPECT_EQ(answer.Field("allow"), "GET, HEAD");
        }
    }
}

TEST_F(LiveRequests, BodyOfARequest_IsDropped) {
    Start();

    const std::string answer =
        Ask("POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100000\r\n\r\n" + std::string(100'000, 'x'));

    EXPECT_EQ(StatusOf(answer), 405);
    ExpectStillServes();
}

TEST_F(LiveRequests, UnknownPaths_AreNotFound) {
    Start();
    for (const char* path : {"/missing", "/stream/", "/Stream", "//", "/../status", "/%2e%2e/status", "/status%00"}) {
        EXPECT_EQ(StatusOf(Ask(Get(path))), 404) << path;
    }
    EXPECT_EQ(StatusOf(Ask(Get("/?"))), 200);
    EXPECT_EQ(StatusOf(Ask(Get("/?a?b?c"))), 200);
}

TEST_F(LiveRequests, WholeAddress_IsAnswered) {
    Start();

    EXPECT_EQ(StatusOf(Ask(Get("http://localhost:80/status"))), 200);
    EXPECT_EQ(StatusOf(Ask(Get("http://example.org/status"))), 403);
}

TEST_F(LiveRequests, HostThatIsNotThisMachine_IsForbidden) {
    Start();
    EXPECT_EQ(StatusOf(Ask(Request("GET", "/status", "127.0.0.1:8080"))), 200);
    for (const char* path : {"/status", "/stream", "/missing"}) {
        EXPECT_EQ(StatusOf(Ask(Request("GET", path, "example.org"))), 403) << path;
    }
    EXPECT_EQ(StatusOf(Ask("GET /status HTTP/1.0\r\n\r\n")), 403);
}

TEST_F(LiveRequests, AllInterfaces_ForbidNamesOfOthers) {
    LiveSettings settings;
    settings.allInterfaces = true;
    Start(settings);

    EXPECT_EQ(StatusOf(Ask(Request("GET", "/status", "screen.example.org"))), 403);
    EXPECT_EQ(StatusOf(Ask(Request("GET", "/status", "192.168.7.7"))), 200);
}

TEST_F(LiveRequests, HostMissingOrTwice_IsABadRequest) {
    Start();

    EXPECT_EQ(StatusOf(Ask("GET /status HTTP/1.1\r\n\r\n")), 400);
    EXPECT_EQ(StatusOf(Ask("GET /status HTTP/1.1\r\nHost: localhost\r\nHost: example.org\r\n\r\n")), 400);
}

TEST_F(LiveRequests, Key_StandsBeforeEveryPath) {
    Start(WithKey());
    Publish(1);
    for (const char* path : {"/", "/live.js", "/live.css", "/icon.svg", "/status", "/snapshot.jpg"}) {
        EXPECT_EQ(StatusOf(Ask(Get(kKeyed + path))), 200) << path;
    }
    EXPECT_EQ(StatusOf(Ask(Request("GET", kKeyed + "/status", "screen.example.org"))), 200);
    EXPECT_EQ(StatusOf(Ask(Get(kKeyed + "/missing"))), 404);
}

TEST_F(LiveRequests, WithoutTheKey_NothingTellsWhatThereIs) {
    Start(WithKey());
    const std::string nothing = Ask(Get("/missing"));
    ASSERT_EQ(StatusOf(nothing), 404);
    std::string wrong = kKeyed;
    wrong.back() = 'e';
    for (const std::string& path : {std::string("/"), std::string("/status"), std::string("/stream"), kKeyed,
                                    wrong + "/", wrong + "/status", kKeyed.substr(1) + "/"}) {
        const std::string target = path.front() == '/' ? path : "/" + path.substr(1);
        EXPECT_EQ(Ask(Get(target)), nothing) << target;
    }
    EXPECT_EQ(Ask(Request("POST", "/status")), nothing);
    EXPECT_EQ(Ask(Request("GET", "/status", "example.org")), nothing);
}

TEST_F(LiveRequests, BytesThatAreNoRequest_AreRefusedAndTheServerGoesOn) {
    Start();
    const std::string requests[] = {
        "hello\r\n\r\n",
        "GET\r\n\r\n",
        "GET /status\r\n\r\n",
        "GET /status HTTP/9.9\r\nHost: localhost\r\n\r\n",
        "GET /status HTTP/1.1 more\r\nHost: localhost\r\n\r\n",
        "GET * HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET /status HTTP/1.1\r\nHost localhost\r\n\r\n",
        "GET /status HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n",
        std::string("GET /sta\0tus HTTP/1.1\r\n\r\n", 25),
        std::string(1000, '\0') + "\r\n\r\n",
        std::string(1000, '\xFF') + "\r\n\r\n",
    };
    for (const std::string& request : requests) {
        EXPECT_EQ(StatusOf(Ask(request)), 400) << request.substr(0, 60);
    }
    ExpectStillServes();
}

TEST_F(LiveRequests, HeadThatIsTooLong_IsRefused) {
    Start();
    const std::string opening = "GET /status HTTP/1.1\r\nHost: localhost\r\nX: ";
    for (const std::string& request :
         {"GET /" + std::string(20'000, 'a') + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
          opening + std::string(20'000, 'a') + "\r\n\r\n", opening + std::string(1'000'000, 'a')}) {
        EXPECT_EQ(StatusOf(Ask(request)), 431);
    }
    EXPECT_EQ(StatusOf(Ask(opening + std::string(15'000, 'a') + "\r\n\r\n")), 200);
    ExpectStillServes();
}

TEST_F(LiveRequests, RequestThatStopsInTheMiddle_IsEndedInTime) {
    UsePatience({300ms, 5000ms});
    Start();
    RawClient silent(m_port);
    RawClient half(m_port);
    half.Send("GET /status HTTP/1.1\r\nHost: local");

    EXPECT_TRUE(silent.WaitClosed());
    EXPECT_TRUE(half.WaitClosed());
    ExpectStillServes();
}

// More half-open requests than the server keeps: the oldest make room, whatever they still wait for.
TEST_F(LiveRequests, HalfOpenRequests_HoldUpNobody) {
    constexpr std::size_t kHalves = 300;
    constexpr std::size_t kKept = 60; // the server keeps some more
    constexpr std::size_t kClosed = 230;
    UsePatience({60000ms, 60000ms});
    Start();
    std::deque<RawClient> halves;
    for (std::size_t i = 0; i < kHalves; ++i) {
        halves.emplace_back(m_port).Send("GET /status HTTP/1.1\r\nHost: local");
    }

    EXPECT_EQ(StatusOf(Ask(Get("/status"))), 200);

    for (std::size_t i = 0; i < kClosed; ++i) {
        EXPECT_TRUE(halves[i].WaitClosed()) << i;
    }
    for (std::size_t i = kHalves - kKept; i < kHalves; ++i) {
        halves[i].Send("host\r\n\r\n");
        EXPECT_EQ(StatusOf(halves[i].ReceiveAll()), 200) << i;
    }
}

// Half-open requests come faster than the server looks at them; a head that is there is read before it has to make
// room.
TEST_F(LiveRequests, GoodRequestsAmongHalfOpenOnes_AreAllAnswered) {
    constexpr int kGoodRequests = 20;
    constexpr int kHalvesBetween = 15;
    UsePatience({60000ms, 60000ms});
    Start();
    std::deque<RawClient> halves;
    std::deque<RawClient> goods;
    for (int i = 0; i < kGoodRequests; ++i) {
        goods.emplace_back(m_port).Send(Get("/status"));
        for (int j = 0; j < kHalvesBetween; ++j) {
            halves.emplace_back(m_port).Send("GET /status HTTP/1.1\r\nHost: local");
        }
    }

    for (RawClient& good : goods) {
        EXPECT_EQ(StatusOf(good.ReceiveAll()), 200);
    }
}

TEST_F(LiveRequests, ClientsThatHangUp_LeaveTheServerAsItWas) {
    Start();
    Publish(1);
    for (int i = 0; i < 50; ++i) {
        RawClient client(m_port);
        ASSERT_TRUE(client.Connected());
        if (i % 3 != 0) {
            client.Send(i % 3 == 1 ? Get("/stream") : Get("/snapshot.jpg"));
        }
    }

    EXPECT_TRUE(WaitClients(0));
    ExpectStillServes();
}

TEST_F(LiveRequests, AcceptThatFails_IsTriedAgain) {
    using AcceptHook = ImportHook<"WS2_32.dll", "accept", decltype(accept)>;
    std::atomic<int> failures = 0;
    const AcceptHook hook(
        [&failures](SOCKET listener, sockaddr* address, int* size) -> SOCKET {
            if (failures.fetch_sub(1) <= 0) {
                return AcceptHook::Original(listener, address, size);
            }
            WSASetLastError(WSAENOBUFS);
            return INVALID_SOCKET;
        },
        GetModuleHandleW(nullptr));
    Start();
    failures = 3;

    ExpectStillServes();

    EXPECT_LT(failures, 0);
    m_server->Stop();
}

TEST_F(LiveRequests, MemoryRefusedToTheServersThreads_CostsAnswersAlone) {
    constexpr unsigned kEnoughRefusals = 50;
    Start();
    {
        const kxvcr::test::RefuseElsewhere scarce(7);
        const Clock::time_point limit = Clock::now() + kLimit;
        for (int i = 1; scarce.Refusals() < kEnoughRefusals && Clock::now() < limit; ++i) {
            Publish(i);
            Ask(Get("/status"));
        }
        EXPECT_GE(scarce.Refusals(), kEnoughRefusals);
    }

    ExpectStillServes();
}

TEST_F(LiveRequests, PortInUse_IsRefusedWithTheSystemsError) {
    Start();
    LiveSettings settings;
    settings.port = static_cast<std::uint16_t>(m_port);
    LiveServer second(m_source);
    const LogCapture log;

    const LiveStart start = second.Start(settings);

    EXPECT_EQ(start.result, Result::CannotListen);
    EXPECT_EQ(start.port, 0);
    ASSERT_EQ(log.Events().size(), 1u);
    EXPECT_EQ(log.Events().front().text,
              L"Cannot listen on port " + std::to_wstring(m_port) + L": error " + std::to_wstring(WSAEADDRINUSE));
}

} // namespace

} // namespace kxtest
