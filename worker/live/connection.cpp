// One connection of a network client. The socket does not block; one event tells that it can go on.
#include "worker/live/connection.h"

#include <algorithm>
#include <array>
#include <climits>
#include <string_view>

namespace kxvcr {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr int kSendBuffer = 64 * 1024; // small, so that a slow viewer is not shown old pictures

DWORD MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<DWORD>(std::clamp<long long>(left, 0, INT_MAX));
}

void SetOption(SOCKET socket, int level, int name, int value) {
    setsockopt(socket, level, name, reinterpret_cast<const char*>(&value), sizeof(value));
}

} // namespace

Connection::Connection(SOCKET socket, HANDLE stop) noexcept
    : m_socket(socket),
      m_stop(stop),
      m_event(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(socket, SOL_SOCKET, SO_SNDBUF, kSendBuffer);
    if (!m_event || WSAEventSelect(socket, m_event.Get(), FD_READ | FD_WRITE | FD_CLOSE) != 0) {
        m_socket.Reset();
    }
}

bool Connection::WaitForSocket(Clock::time_point deadline) noexcept {
    const HANDLE events[] = {m_stop, m_event.Get()};
    if (WaitForMultipleObjects(2, events, FALSE, MillisecondsUntil(deadline)) != WAIT_OBJECT_0 + 1) {
        return false;
    }
    WSANETWORKEVENTS seen;
    return WSAEnumNetworkEvents(m_socket.Get(), m_event.Get(), &seen) == 0;
}

// The number of bytes, 0 when the client closed its end, negative on failure.
int Connection::Receive(std::span<char> buffer, Clock::time_point deadline) noexcept {
    for (;;) {
        const int received = recv(m_socket.Get(), buffer.data(), static_cast<int>(buffer.size()), 0);
        if (received >= 0 || WSAGetLastError() != WSAEWOULDBLOCK) {
            return received;
        }
        if (!WaitForSocket(deadline)) {
            return SOCKET_ERROR;
        }
    }
}

std::string Connection::ReadHead(std::size_t limit, Milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + patience;
    std::string head;
    std::array<char, 4096> buffer;
    while (head.size() < limit) {
        const int received = Receive(buffer, deadline);
        if (received <= 0) {
            break;
        }
        const std::size_t searchFrom = head.size() - std::min(head.size(), kBlankLine.size() - 1);
        head.append(buffer.data(), static_cast<std::size_t>(received));
        const std::size_t end = head.find(kBlankLine, searchFrom);
        if (end != std::string::npos) {
            head.resize(end + kBlankLine.size());
            break;
        }
    }
    return head;
}

bool Connection::Write(std::span<const char> bytes, Milliseconds patience) noexcept {
    const Clock::time_point deadline = Clock::now() + patience;
    while (!bytes.empty()) {
        const int size = static_cast<int>(std::min<std::size_t>(bytes.size(), INT_MAX));
        const int sent = send(m_socket.Get(), bytes.data(), size, 0);
        if (sent >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(sent));
        } else if (WSAGetLastError() != WSAEWOULDBLOCK || !WaitForSocket(deadline)) {
            return false;
        }
        // A client that takes a little at a time would never let a wait time out.
        if (!bytes.empty() && Clock::now() > deadline) {
            return false;
        }
    }
    return true;
}

bool Connection::IsOpen() const noexcept {
    char byte = 0;
    const int received = recv(m_socket.Get(), &byte, 1, MSG_PEEK);
    return received > 0 || (received < 0 && WSAGetLastError() == WSAEWOULDBLOCK);
}

void Connection::FinishSending(std::size_t limit, Milliseconds patience) noexcept {
    const Clock::time_point deadline = Clock::now() + patience;
    shutdown(m_socket.Get(), SD_SEND);
    std::array<char, 4096> buffer;
    for (std::size_t dropped = 0; dropped < limit;) {
        const int received = Receive(buffer, deadline);
        if (received <= 0) {
            return;
        }
        dropped += static_cast<std::size_t>(received);
    }
}

} // namespace kxvcr
