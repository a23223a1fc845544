/**
 * @file
 * One connection of a network client whose waits end in time: at a deadline, or as soon as the server stops.
 */
#pragma once

#include "common/win/handle.h"

#include <winsock2.h>

#include <chrono>
#include <cstddef>
#include <span>
#include <string>

namespace kxvcr {

using Socket = kx::Owner<kx::FreedBy<SOCKET, &closesocket, -1>>;

/** An accepted connection; closed when it goes out of scope. To be used by one thread at a time. */
class Connection {
public:
    using Milliseconds = std::chrono::milliseconds;

    /**
     * @param socket connected; owned from now on
     * @param stop an event that ends every wait; borrowed, it must outlive the connection
     */
    Connection(SOCKET socket, HANDLE stop) noexcept;

    /**
     * Reads a request's head: everything up to its blank line. What stands behind it is dropped.
     * @return the head; without its blank line when the client sent none within @p limit bytes and @p patience
     * @throws std::bad_alloc
     */
    std::string ReadHead(std::size_t limit, Milliseconds patience);

    /** Sends all of @p bytes. @return false when the client is gone or did not take them within @p patience */
    bool Write(std::span<const char> bytes, Milliseconds patience) noexcept;

    /** Whether the client still holds its end open, as far as is known without waiting. */
    bool IsOpen() const noexcept;

    /**
     * Says that nothing more is sent and lets the client take the rest: closing at once would throw away what is
     * under way when the client sent more than was read.
     */
    void FinishSending(std::size_t limit, Milliseconds patience) noexcept;

private:
    bool WaitForSocket(std::chrono::steady_clock::time_point deadline) noexcept;
    int Receive(std::span<char> buffer, std::chrono::steady_clock::time_point deadline) noexcept;

    Socket m_socket;
    HANDLE m_stop;
    kx::KernelHandle m_event;
};

} // namespace kxvcr
