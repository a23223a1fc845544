// The HTTP server on Boost.Asio and Boost.Beast, which no other file knows. Beast reads and checks requests and counts
// the time; this file bounds what a connection may cost.
//
// One request a connection: a viewer's answer ends with the connection anyway. Ways a connection ends: the answer was
// sent and the client has taken it (Farewell); the time is over or the client is gone (Beast closes the socket); it is
// the oldest of too many (MakeRoom); the server stops (Close).
#include "worker/live/httpserver.h"

#include "worker/log.h"

// Sockets that do not block, instead of operations that the system carries out by itself: those end with their socket
// only when the system says so, and the server must be able to end at once, whatever a client leaves unread.
#define BOOST_ASIO_DISABLE_IOCP
#include <boost/asio/buffer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/container/static_vector.hpp>

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <list>
#include <mutex>
#include <new>
#include <span>
#include <thread>
#include <utility>

namespace kxvcr {

namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using Tcp = asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;

constexpr std::uint32_t kMostHeadBytes = 16 * 1024;
constexpr std::size_t kMostUnreadBytes = std::size_t{256} * 1024; // of a request's body, dropped after the answer
constexpr std::size_t kMostAnswers = 256;                         // under way, besides the streams

// Each turn of the thread costs a look at every connection, and clients that finish no head would have all of them
// looked at for nothing. A client is read from several times before those that come behind it can push it out.
constexpr std::size_t kMostHeads = 64;
constexpr std::size_t kClientsATurn = 16;
constexpr int kSendBuffer = 64 * 1024; // small, so that a slow viewer is not shown old pictures
constexpr milliseconds kFarewell(500);
constexpr milliseconds kAcceptAgain(10);

// A socket option that Asio does not name: without it, another program could take the port over on Windows.
struct ExclusiveAddress {
    template <class Protocol>
    int level(const Protocol&) const noexcept {
        return SOL_SOCKET;
    }
    template <class Protocol>
    int name(const Protocol&) const noexcept {
        return SO_EXCLUSIVEADDRUSE;
    }
    template <class Protocol>
    const void* data(const Protocol&) const noexcept {
        return &value;
    }
    template <class Protocol>
    std::size_t size(const Protocol&) const noexcept {
        return sizeof(value);
    }
    int value = 1;
};

HttpRequest RequestOf(const http::request<http::empty_body>& parsed) {
    HttpRequest request;
    request.method = parsed.method_string();
    request.target = parsed.target();
    request.hostIsRequired = parsed.version() >= 11;
    const auto [first, last] = parsed.equal_range(http::field::host);
    std::transform(first, last, std::back_inserter(request.hosts),
                   [](const auto& field) { return std::string(field.value()); });
    return request;
}

HttpAnswer Refusal(error_code why) {
    if (why == http::error::header_limit || why == http::error::buffer_overflow) {
        return {431, "text/plain", BytesOf("The head of the request is too long.\n"), {}};
    }
    return {400, "text/plain", BytesOf("This is no HTTP request.\n"), {}};
}

bool IsMistakeOfTheClient(error_code error) {
    return error.category() == make_error_code(http::error::bad_value).category() &&
           error != http::error::end_of_stream;
}

} // namespace

SharedBytes BytesOf(std::string_view text) {
    const auto bytes = std::as_bytes(std::span(text));
    return std::make_shared<const std::vector<std::byte>>(bytes.begin(), bytes.end());
}

class HttpServer::Impl {
public:
    Impl(const HttpPatience& patience, std::vector<HttpField> fields, Handler handler)
        : m_patience(patience),
          m_fields(std::move(fields)),
          m_handler(std::move(handler)),
          m_acceptor(m_io) {}

    Listening Start(bool allInterfaces, std::uint16_t port) {
        error_code error;
        const Tcp::endpoint wanted(
            allInterfaces ? asio::ip::address(asio::ip::address_v4::any()) : asio::ip::address_v4::loopback(), port);
        if (m_acceptor.open(wanted.protocol(), error) || m_acceptor.set_option(ExclusiveAddress(), error) ||
            m_acceptor.non_blocking(true, error) || m_acceptor.bind(wanted, error) ||
            m_acceptor.listen(asio::socket_base::max_listen_connections, error)) {
            return {0, error.value()};
        }
        const std::uint16_t bound = m_acceptor.local_endpoint().port();
        Accept();
        m_thread = std::thread(&Impl::Run, this);
        return {bound, 0};
    }

    void Stop() noexcept {
        const std::lock_guard lock(m_stopping);
        if (!m_thread.joinable()) {
            return;
        }
        try {
            asio::post(m_io, [this] { CloseEverything(); }); // behind what waits to be done
        } catch (const std::bad_alloc&) {
            m_io.stop();
        }
        m_thread.join();
    }

    void Post(std::function<void()> task) { asio::post(m_io, std::move(task)); }

    void After(milliseconds delay, std::function<void()> task) {
        if (m_isClosed) {
            return;
        }
        const auto timer = m_timers.emplace(m_timers.end(), m_io, delay);
        timer->async_wait([this, timer, task = std::move(task)](error_code error) {
            m_timers.erase(timer);
            if (!error && !m_isClosed) {
                task();
            }
        });
    }

    void WakeBodies();

private:
    class Connection;
    using Connections = std::list<Connection*>;

    void Run() noexcept {
        RunTasks();
        if (!m_isClosed) { // stopped, without the memory for a task
            CloseEverything();
            m_io.restart();
            RunTasks();
        }
    }

    void RunTasks() noexcept {
        for (;;) {
            try {
                m_io.run();
                return;
            } catch (const std::exception& failure) {
                KXVCR_LOG_ERROR(L"The live server dropped a request: " << failure.what());
            }
        }
    }

    void Accept() {
        m_acceptor.async_wait(Tcp::acceptor::wait_read, [this](error_code) {
            if (!m_isClosed) {
                TakeClients();
            }
        });
    }

    // Listens again before anything that may find no memory: a server that does not listen is deaf for good.
    void TakeClients() {
        boost::container::static_vector<Tcp::socket, kClientsATurn> clients;
        error_code error;
        while (!error && clients.size() < kClientsATurn) {
            clients.emplace_back(m_io);
            m_acceptor.accept(clients.back(), error);
        }
        if (!error || error == asio::error::would_block) {
            Accept();
        } else { // a client is gone again, or there is no memory for it
            AcceptLater();
        }
        if (error) {
            clients.pop_back();
        }
        for (Tcp::socket& client : clients) {
            Serve(std::move(client));
        }
    }

    void AcceptLater() {
        m_acceptPause.expires_after(kAcceptAgain);
        m_acceptPause.async_wait([this](error_code) {
            if (!m_isClosed) {
                Accept();
            }
        });
    }

    void Serve(Tcp::socket socket);
    void MakeRoom(Connections& connections, std::size_t most);
    void CloseEverything() noexcept;

    HttpPatience m_patience;
    std::vector<HttpField> m_fields;
    Handler m_handler;
    // Each connection is in one of them and takes itself out. The oldest is the first.
    Connections m_heads; // that are waited for
    Connections m_answers;
    Connections m_streams;
    Connections m_closed;     // that still wait to hear so
    asio::io_context m_io{1}; // destroys tasks that were not run, before the lists that they know
    asio::executor_work_guard<asio::io_context::executor_type> m_work{m_io.get_executor()};
    Tcp::acceptor m_acceptor;
    asio::steady_timer m_acceptPause{m_io};
    std::list<asio::steady_timer> m_timers;
    bool m_isClosed = false;
    std::mutex m_stopping;
    std::thread m_thread;
};

// One client, from its request's head to the end of its answer.
class HttpServer::Impl::Connection final : public HttpExchange, public std::enable_shared_from_this<Connection> {
public:
    Connection(Impl& server, Tcp::socket socket)
        : m_server(server),
          m_list(&server.m_heads),
          m_stream(std::move(socket)) {
        error_code ignored; // all of these are a matter of speed
        m_stream.socket().non_blocking(true, ignored);
        m_stream.socket().set_option(Tcp::no_delay(true), ignored);
        m_stream.socket().set_option(asio::socket_base::send_buffer_size(kSendBuffer), ignored);
        m_parser.header_limit(kMostHeadBytes);
        m_parser.body_limit(boost::none);
        m_place = m_list->insert(m_list->end(), this);
    }
    ~Connection() override { m_list->erase(m_place); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void ReadHead() {
        m_stream.expires_after(m_server.m_patience.request);
        http::async_read_header(m_stream, m_buffer, m_parser,
                                [self = shared_from_this()](error_code error, std::size_t) { self->OnHead(error); });
    }

    void Answer(const HttpAnswer& answer) override {
        m_answerBody = m_isHead ? nullptr : answer.body;
        FillHead(answer);
        m_head.content_length(answer.body == nullptr ? 0 : answer.body->size());
        SendHead([this] { SendAnswerBody(); });
    }

    void Stream(const HttpAnswer& answer, std::unique_ptr<HttpBody> body) override {
        FillHead(answer);
        if (body == nullptr || m_isHead) {
            return SendHead([this] { Farewell(); });
        }
        MoveTo(m_server.m_streams);
        m_body = std::move(body);
        SendHead([this] {
            WatchReader();
            SendPiece();
        });
    }

    void Wake() {
        if (!m_isSending) {
            SendPiece();
        }
    }

    void Close() noexcept {
        MoveTo(m_server.m_closed);
        m_stream.close();
    }

private:
    void MoveTo(Connections& list) noexcept {
        list.splice(list.end(), *m_list, m_place);
        m_list = &list;
    }

    void OnHead(error_code error) {
        if (m_list == &m_server.m_closed) {
            return;
        }
        m_server.MakeRoom(m_server.m_answers, kMostAnswers);
        MoveTo(m_server.m_answers);
        if (IsMistakeOfTheClient(error)) {
            return Answer(Refusal(error));
        }
        if (error) {
            return;
        }
        const HttpRequest request = RequestOf(m_parser.get());
        m_isHead = request.IsHead();
        m_server.m_handler(request, shared_from_this());
    }

    void FillHead(const HttpAnswer& answer) {
        m_head.result(answer.status);
        AddFields(m_server.m_fields);
        AddFields(answer.fields);
        if (!answer.type.empty()) {
            m_head.set(http::field::content_type, answer.type);
        }
        m_head.set(http::field::connection, "close");
    }

    void AddFields(const std::vector<HttpField>& fields) {
        for (const HttpField& field : fields) {
            m_head.set(field.name, field.value);
        }
    }

    template <class Then>
    void SendHead(Then then) {
        m_isSending = true;
        m_stream.expires_after(m_server.m_patience.answer);
        http::async_write_header(m_stream, m_serializer,
                                 [self = shared_from_this(), then](error_code error, std::size_t) {
                                     self->m_isSending = false;
                                     if (!error) {
                                         then();
                                     }
                                 });
    }

    void SendAnswerBody() {
        if (m_answerBody == nullptr) {
            return Farewell();
        }
        Send(m_answerBody, 0, [this] { Farewell(); });
    }

    // A viewer that keeps up has room for the whole piece, and nothing has to be waited for.
    void SendPiece() {
        while (SharedBytes piece = m_body->Next()) {
            const std::size_t sent = SendAtOnce(*piece);
            if (sent < piece->size()) {
                return Send(std::move(piece), sent, [this] { SendPiece(); });
            }
        }
    }

    // The bytes that the system takes now. An error comes again when the rest is sent.
    std::size_t SendAtOnce(const std::vector<std::byte>& bytes) {
        if (!m_stream.socket().non_blocking()) {
            return 0;
        }
        error_code error;
        const std::size_t sent = m_stream.socket().write_some(asio::buffer(bytes), error);
        return error ? 0 : sent;
    }

    template <class Then>
    void Send(SharedBytes bytes, std::size_t from, Then then) {
        m_isSending = true;
        m_stream.expires_after(m_server.m_patience.answer);
        const asio::const_buffer buffer(bytes->data() + from, bytes->size() - from);
        asio::async_write(m_stream, buffer,
                          [self = shared_from_this(), bytes = std::move(bytes), then](error_code error, std::size_t) {
                              self->m_isSending = false;
                              if (!error) {
                                  then();
                              }
                          });
    }

    // Only a read tells that the reader of a stream is gone while there is nothing to send.
    void WatchReader() {
        m_stream.expires_never();
        DropInput([this] { Close(); });
    }

    // Says that nothing more is sent and lets the client take the rest: closing at once would throw away what is under
    // way when the client sent more than was read.
    void Farewell() {
        error_code ignored;
        m_stream.socket().shutdown(Tcp::socket::shutdown_send, ignored);
        m_stream.expires_after(kFarewell);
        DropInput([] {});
    }

    // Reads until the client has nothing more to say, or says too much.
    template <class Then>
    void DropInput(Then then) {
        m_stream.async_read_some(asio::buffer(m_dropped),
                                 [self = shared_from_this(), then](error_code error, std::size_t size) {
                                     self->m_droppedBytes += size;
                                     if (error || self->m_droppedBytes > kMostUnreadBytes) {
                                         return then();
                                     }
                                     self->DropInput(then);
                                 });
    }

    Impl& m_server;
    Connections* m_list;
    Connections::iterator m_place;
    boost::beast::tcp_stream m_stream;
    boost::beast::flat_buffer m_buffer{kMostHeadBytes};
    http::request_parser<http::empty_body> m_parser;
    http::response<http::empty_body> m_head;
    http::response_serializer<http::empty_body> m_serializer{m_head};
    SharedBytes m_answerBody;
    std::unique_ptr<HttpBody> m_body; // of a stream
    std::array<char, 4096> m_dropped;
    std::size_t m_droppedBytes = 0;
    bool m_isHead = false;
    bool m_isSending = false;
};

void HttpServer::Impl::Serve(Tcp::socket socket) {
    MakeRoom(m_heads, kMostHeads);
    std::make_shared<Connection>(*this, std::move(socket))->ReadHead();
}

void HttpServer::Impl::MakeRoom(Connections& connections, std::size_t most) {
    if (connections.size() >= most) {
        connections.front()->Close();
    }
}

void HttpServer::Impl::WakeBodies() {
    for (Connection* stream : m_streams) {
        stream->Wake();
    }
}

// Everything that waits ends now, with an error, and the thread with the last of it.
void HttpServer::Impl::CloseEverything() noexcept {
    m_isClosed = true;
    error_code ignored;
    m_acceptor.close(ignored);
    m_acceptPause.cancel();
    for (const Connections* connections : {&m_heads, &m_answers, &m_streams}) {
        while (!connections->empty()) {
            connections->front()->Close();
        }
    }
    for (asio::steady_timer& timer : m_timers) {
        timer.cancel();
    }
    m_work.reset();
}

HttpServer::HttpServer(const HttpPatience& patience, std::vector<HttpField> fields, Handler handler)
    : m_impl(std::make_unique<Impl>(patience, std::move(fields), std::move(handler))) {}

HttpServer::~HttpServer() {
    Stop();
}

HttpServer::Listening HttpServer::Start(bool allInterfaces, std::uint16_t port) {
    return m_impl->Start(allInterfaces, port);
}

void HttpServer::Stop() noexcept {
    m_impl->Stop();
}

void HttpServer::Post(std::function<void()> task) {
    m_impl->Post(std::move(task));
}

void HttpServer::After(milliseconds delay, std::function<void()> task) {
    m_impl->After(delay, std::move(task));
}

void HttpServer::WakeBodies() {
    m_impl->WakeBodies();
}

} // namespace kxvcr
