/**
 * @file
 * An HTTP/1.1 server: reads requests' heads and sends answers. What is answered is its handler's matter.
 */
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kxvcr {

/** A block that several connections may send at the same time. */
using SharedBytes = std::shared_ptr<const std::vector<std::byte>>;

/** @throws std::bad_alloc */
SharedBytes BytesOf(std::string_view text);

/** What a request's head says, as far as it matters here. Its syntax has been checked; its body is never read. */
struct HttpRequest {
    std::string method;             ///< as sent, e.g. "GET"
    std::string target;             ///< as sent: a path with its query, or a whole address
    std::vector<std::string> hosts; ///< the values of all Host fields
    bool hostIsRequired = false;    ///< HTTP/1.1: a request without Host is wrong

    bool IsHead() const { return method == "HEAD"; }
};

struct HttpField {
    std::string name;
    std::string value;
};

struct HttpAnswer {
    unsigned status = 200;
    std::string type;              ///< of the body
    SharedBytes body;              ///< null when there is none, and for a stream
    std::vector<HttpField> fields; ///< besides Content-Type and Content-Length
};

/** A body without an end, piece by piece. Called on the server's thread, and destroyed there when its reader is gone.
 */
class HttpBody {
public:
    virtual ~HttpBody() = default;

    /**
     * The next piece, asked for when the one before has been taken over by the system.
     * @return null when there is none yet; HttpServer::WakeBodies() has it asked again
     */
    virtual SharedBytes Next() = 0;
};

/** One request's way to its answer; answered once. Used on the server's thread. */
class HttpExchange {
public:
    virtual ~HttpExchange() = default;

    virtual void Answer(const HttpAnswer& answer) = 0;

    /** Answers with a body that lasts until its reader or the server goes. @param body null sends the head alone */
    virtual void Stream(const HttpAnswer& answer, std::unique_ptr<HttpBody> body) = 0;
};

/** How long the server waits for a client. */
struct HttpPatience {
    std::chrono::milliseconds request{2000}; ///< for the whole head of a request
    std::chrono::milliseconds answer{5000};  ///< for a client to take an answer, or one piece of a stream
};

/**
 * One thread serves all connections, one request each. A connection that waits costs no thread; the oldest of those
 * whose head is waited for makes room when there are too many, and so does the oldest of those that are answered.
 * Post(), Start() and Stop() may be called from any thread, the other members from the server's.
 */
class HttpServer {
public:
    /** Called on the server's thread; what it throws ends the connection alone. */
    using Handler = std::function<void(const HttpRequest&, const std::shared_ptr<HttpExchange>&)>;

    /** @param fields of every answer. @throws std::bad_alloc, std::system_error */
    HttpServer(const HttpPatience& patience, std::vector<HttpField> fields, Handler handler);
    ~HttpServer();

    /** Where a server listens, or why it does not. */
    struct Listening {
        std::uint16_t port = 0; ///< 0: it does not listen
        int error = 0;          ///< the system's
    };

    /**
     * Begins to listen and to serve; to be called once.
     * @param port 0 lets the system choose. @throws std::bad_alloc, std::system_error when there is no thread
     */
    Listening Start(bool allInterfaces, std::uint16_t port);

    /** Ends every connection and the thread, whatever the clients do. */
    void Stop() noexcept;

    /** Runs @p task on the server's thread; drops it when the server has stopped. @throws std::bad_alloc */
    void Post(std::function<void()> task);

    /** Runs @p task on the server's thread after so long. @throws std::bad_alloc */
    void After(std::chrono::milliseconds delay, std::function<void()> task);

    /** Asks every body that had nothing to send again. */
    void WakeBodies();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kxvcr
