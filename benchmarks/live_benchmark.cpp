// What a picture costs the live server for each of many viewers, beside bare sockets that are sent the same bytes one
// after the other. A picture comes when the one before has reached everybody, as it does where nobody is too slow.
#include <winsock2.h>
// The worker's headers bring windows.h, which comes after winsock2.h.
#include "benchmarks/pairs.h"
#include "worker/file/mp4fragment.h"
#include "worker/live/liveserver.h"

#include <ws2tcpip.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace kxvcr {

namespace {

using bench::Goal;
using bench::Require;
using bench::Timed;

constexpr std::uint32_t kFramesPerSecond = 30;
constexpr std::size_t kPacketBytes = 32 * 1024;
constexpr std::size_t kPackets = 10; // of a round
constexpr std::size_t kManyViewers = 16;
constexpr int kSendBuffer = 64 * 1024; // as the server's, which shows slow viewers no old pictures

class Socket {
public:
    explicit Socket(SOCKET socket) : m_socket(socket) { Require(socket != INVALID_SOCKET, "no socket"); }
    Socket(Socket&& other) noexcept : m_socket(std::exchange(other.m_socket, INVALID_SOCKET)) {}
    Socket& operator=(Socket&&) = delete;
    ~Socket() {
        if (m_socket != INVALID_SOCKET) {
            closesocket(m_socket);
        }
    }

    static Socket ConnectTo(std::uint16_t port) {
        Socket made(::socket(AF_INET, SOCK_STREAM, 0));
        const sockaddr_in address = Loopback(port);
        Require(connect(made.m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
                "no connection");
        return made;
    }
    static sockaddr_in Loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    SOCKET Get() const noexcept { return m_socket; }

    void Send(const char* bytes, std::size_t size) const {
        while (size != 0) {
            const int sent = send(m_socket, bytes, static_cast<int>(size), 0);
            Require(sent > 0, "a send fails");
            bytes += sent;
            size -= static_cast<std::size_t>(sent);
        }
    }

private:
    SOCKET m_socket;
};

/** Reads what comes and counts it, on a thread of its own. */
class Reader {
public:
    explicit Reader(Socket socket) : m_socket(std::move(socket)), m_thread([this] { ReadAll(); }) {}
    ~Reader() {
        shutdown(m_socket.Get(), SD_BOTH);
        m_thread.join();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /** Waits until so many bytes have come. */
    void WaitFor(std::uint64_t bytes) {
        std::unique_lock lock(m_mutex);
        m_wanted = bytes;
        m_came.wait(lock, [&] { return m_count >= bytes; });
    }
    std::uint64_t Count() {
        const std::lock_guard lock(m_mutex);
        return m_count;
    }

private:
    void ReadAll() {
        std::vector<char> block(256 * 1024);
        for (;;) {
            const int received = recv(m_socket.Get(), block.data(), static_cast<int>(block.size()), 0);
            if (received <= 0) {
                return;
            }
            const std::lock_guard lock(m_mutex);
            m_count += static_cast<std::uint64_t>(received);
            if (m_count >= m_wanted) {
                m_came.notify_one();
            }
        }
    }

    Socket m_socket;
    std::mutex m_mutex;
    std::condition_variable m_came;
    std::uint64_t m_count = 0;
    std::uint64_t m_wanted = 0;
    std::thread m_thread;
};

using Readers = std::vector<std::unique_ptr<Reader>>;

std::vector<std::uint64_t> CountsOf(const Readers& readers) {
    std::vector<std::uint64_t> counts;
    for (const auto& reader : readers) {
        counts.push_back(reader->Count());
    }
    return counts;
}

/** Waits until everybody has so many bytes more than @p before. */
void WaitForAll(const Readers& readers, const std::vector<std::uint64_t>& before, std::uint64_t bytes) {
    for (std::size_t i = 0; i < readers.size(); ++i) {
        readers[i]->WaitFor(before[i] + bytes);
    }
}

class Source final : public LiveSource {
public:
    StreamFormat Format() const override {
        return {{Codec::H264,
                 1280,
                 720,
                 kFramesPerSecond,
                 ColorMatrix::Bt709,
                 {std::byte{1}, std::byte{0x42}, std::byte{0xC0}, std::byte{0x1F}, std::byte{0xFF}, std::byte{0xE0},
                  std::byte{0}}},
                {}};
    }
    MediaTime Now() const noexcept override { return {}; }
    void RequestKey() noexcept override {}
    SharedPacket NewestJpeg() noexcept override { return nullptr; }
};

/** A live server with so many viewers of its stream. */
class Show {
public:
    explicit Show(std::size_t viewers) : m_server(m_source) {
        constexpr std::string_view kRequest = "GET /stream.mp4 HTTP/1.1\r\nHost: localhost\r\n\r\n";
        LiveSettings settings;
        settings.maxClients = static_cast<std::uint32_t>(viewers);
        const LiveStart start = m_server.Start(settings);
        Require(start.result == Result::Accepted, "the server does not start");
        for (std::size_t i = 0; i < viewers; ++i) {
            Socket socket = Socket::ConnectTo(start.port);
            socket.Send(kRequest.data(), kRequest.size());
            m_viewers.push_back(std::make_unique<Reader>(std::move(socket)));
        }
        const std::size_t head = FragmentedMp4Head(m_source.Format()).size();
        for (const auto& viewer : m_viewers) {
            viewer->WaitFor(head); // the answer's own head is as small as this one at least
        }
        Play(); // everybody is in place when everybody has had a picture
    }

    /** Seconds until every viewer has a packet. */
    double Play() {
        const std::vector<std::uint64_t> before = CountsOf(m_viewers);
        std::uint64_t sent = 0;
        return Timed(kPackets, [&] {
            m_server.Add(NextPacket());
            sent += FragmentBytes();
            WaitForAll(m_viewers, before, sent);
        });
    }

    static std::size_t FragmentBytes() {
        Packet packet;
        packet.isKey = true;
        packet.bytes.resize(kPacketBytes);
        FragmentTiming timing;
        timing.duration = SlotTime(1, kFramesPerSecond);
        return FragmentOfPacket(Source().Format(), packet, timing).size();
    }

private:
    SharedPacket NextPacket() {
        auto packet = std::make_shared<Packet>();
        packet->isKey = true; // any picture will do for a viewer that begins
        packet->time = SlotTime(++m_slot, kFramesPerSecond);
        packet->bytes.resize(kPacketBytes);
        return packet;
    }

    Source m_source;
    std::uint64_t m_slot = 0;
    LiveServer m_server;
    Readers m_viewers;
};

/** As many connections within this process, without a server. */
class BareConnections {
public:
    explicit BareConnections(std::size_t count) {
        const Socket listener(::socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address = Socket::Loopback(0);
        int size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        Require(bind(listener.Get(), generic, sizeof address) == 0 && listen(listener.Get(), 1) == 0 &&
                    getsockname(listener.Get(), generic, &size) == 0,
                "nobody listens");
        for (std::size_t i = 0; i < count; ++i) {
            m_senders.push_back(Socket::ConnectTo(ntohs(address.sin_port)));
            setsockopt(m_senders.back().Get(), SOL_SOCKET, SO_SNDBUF, reinterpret_cast<const char*>(&kSendBuffer),
                       sizeof kSendBuffer);
            m_readers.push_back(std::make_unique<Reader>(Socket(accept(listener.Get(), nullptr, nullptr))));
        }
    }

    ~BareConnections() {
        {
            const std::lock_guard lock(m_mutex);
            m_isEnding = true;
        }
        m_told.notify_one();
        m_thread.join();
    }
    BareConnections(const BareConnections&) = delete;
    BareConnections& operator=(const BareConnections&) = delete;

    /** Seconds until everybody has a packet that this thread sends. */
    double Send() {
        return Deliver([this] { SendToAll(); });
    }

    /** The same, sent by a thread that waits for packets: whoever makes them must not wait for viewers. */
    double HandOver() {
        return Deliver([this] {
            {
                const std::lock_guard lock(m_mutex);
                ++m_waiting;
            }
            m_told.notify_one();
        });
    }

private:
    double Deliver(const std::function<void()>& send) {
        const std::vector<std::uint64_t> before = CountsOf(m_readers);
        std::uint64_t sent = 0;
        return Timed(kPackets, [&] {
            send();
            sent += m_fragment.size();
            WaitForAll(m_readers, before, sent);
        });
    }

    void SendToAll() const {
        for (const Socket& sender : m_senders) {
            sender.Send(m_fragment.data(), m_fragment.size());
        }
    }

    void SendWhatIsHandedOver() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_told.wait(lock, [this] { return m_isEnding || m_waiting != 0; });
            if (m_isEnding) {
                return;
            }
            --m_waiting;
            lock.unlock();
            SendToAll();
            lock.lock();
        }
    }

    const std::vector<char> m_fragment = std::vector<char>(Show::FragmentBytes());
    Readers m_readers;
    std::vector<Socket> m_senders; // closed before the readers end, which ends them
    std::mutex m_mutex;
    std::condition_variable m_told;
    std::size_t m_waiting = 0;
    bool m_isEnding = false;
    std::thread m_thread{[this] { SendWhatIsHandedOver(); }};
};

void MeasureViewers(bench::Runner& runner) {
    Show show(kManyViewers);
    BareConnections bare(kManyViewers);
    runner.Measure({"live: one more viewer, of 16", "the same bytes on one more bare socket", Goal::Times(1.2),
                    [&] { return show.Play() / kManyViewers; }, [&] { return bare.Send() / kManyViewers; }});
    runner.Measure({"live: one more viewer, of 16, handed over", "the same, sent by a thread that is handed the bytes",
                    Goal::None(), [&] { return show.Play() / kManyViewers; },
                    [&] { return bare.HandOver() / kManyViewers; }});
}

} // namespace

} // namespace kxvcr

int main(int argc, char** argv) {
    WSADATA data;
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) {
        return 1;
    }
    return bench::Run(argc, argv, [](bench::Runner& runner) {
        if (!runner.WantsGrowth()) {
            return kxvcr::MeasureViewers(runner);
        }
        runner.Grow("Live packets by viewers", "viewers", {1, 8, 16, 24, 32, 40, 48, 56, 64}, [](double viewers) {
            kxvcr::Show show(static_cast<std::size_t>(viewers));
            return show.Play();
        });
    });
}
