// A source, clients and a fixture for the tests of the live server.
#include "livecase.h"

#include <winsock2.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <span>
#include <stdexcept>
#include <utility>

namespace kxtest {

namespace {

using namespace kxvcr;

constexpr std::string_view kBlankLine = "\r\n\r\n";

std::vector<std::byte> BytesOfText(std::string_view text) {
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

std::size_t BigEndian(std::string_view bytes) {
    std::size_t number = 0;
    for (const char byte : bytes.substr(0, 4)) {
        number = number << 8 | static_cast<unsigned char>(byte);
    }
    return number;
}

} // namespace

std::string PictureOf(int number, std::size_t size) {
    std::string picture = std::to_string(number) + "\n";
    picture.resize(size, static_cast<char>('a' + number % 26));
    return picture;
}

int NumberOf(const std::string& picture) {
    const int number = std::atoi(picture.c_str());
    return picture == PictureOf(number, picture.size()) ? number : 0;
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

FakeSource::FakeSource() {
    m_format.picture.codec = Codec::H264;
    m_format.picture.width = kWidth;
    m_format.picture.height = kHeight;
    m_format.picture.framesPerSecond = kFramesPerSecond;
    // A record without parameter sets: nobody decodes these pictures.
    m_format.picture.decoderConfig = BytesOfText(std::string_view("\x01\x42\xc0\x1f\xff\xe0\x00", 7));
}

StreamFormat FakeSource::Format() const {
    const std::lock_guard lock(m_mutex);
    return m_format;
}

MediaTime FakeSource::Now() const noexcept {
    return std::chrono::seconds(100);
}

void FakeSource::RequestKey() noexcept {
    const std::lock_guard lock(m_mutex);
    ++m_keyRequests;
}

SharedPacket FakeSource::NewestJpeg() noexcept {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, kLimit, [this] { return !m_isHeld; });
    if (m_newest != nullptr && !std::exchange(m_isAsked, true)) {
        ++m_jpegsMade;
    }
    return m_newest;
}

void FakeSource::SetCodec(Codec codec) {
    const std::lock_guard lock(m_mutex);
    m_format.picture.codec = codec;
}

void FakeSource::SetSound(const SoundFormat& sound) {
    const std::lock_guard lock(m_mutex);
    m_format.sound = sound;
}

void FakeSource::SetJpeg(const std::string& picture) {
    auto packet = std::make_shared<Packet>();
    packet->bytes = BytesOfText(picture);
    const std::lock_guard lock(m_mutex);
    m_newest = std::move(packet);
    m_isAsked = false;
}

int FakeSource::KeyRequests() const {
    const std::lock_guard lock(m_mutex);
    return m_keyRequests;
}

int FakeSource::JpegsMade() const {
    const std::lock_guard lock(m_mutex);
    return m_jpegsMade;
}

void FakeSource::HoldJpegs(bool hold) {
    {
        const std::lock_guard lock(m_mutex);
        m_isHeld = hold;
    }
    m_changed.notify_all();
}

std::string Response::Field(const std::string& name) const {
    const auto found = fields.find(name);
    return found == fields.end() ? "" : found->second;
}

Response ReadResponse(std::string_view answer) {
    constexpr std::string_view kVersion = "HTTP/1.1 ";
    const std::size_t end = answer.find(kBlankLine);
    if (!answer.starts_with(kVersion) || end == std::string_view::npos) {
        throw std::runtime_error("no answer: " + std::string(answer.substr(0, 100)));
    }
    Response response;
    response.status = StatusOf(std::string(answer));
    response.body = answer.substr(end + kBlankLine.size());
    std::string_view lines = answer.substr(0, end + 2);
    lines.remove_prefix(lines.find("\r\n") + 2);
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find("\r\n"));
        const std::size_t colon = line.find(": ");
        std::string name(line.substr(0, colon));
        std::ranges::transform(name, name.begin(),
                               [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
        response.fields[name] = line.substr(colon + 2);
        lines.remove_prefix(line.size() + 2);
    }
    return response;
}

RawClient::RawClient(int port, int receiveBuffer) : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&receiveBuffer), sizeof(receiveBuffer));
    const auto patience = static_cast<DWORD>(std::chrono::milliseconds(kLimit).count());
    setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&patience), sizeof(patience));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u_short>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr generic;
    std::memcpy(&generic, &address, sizeof(generic));
    m_connected = connect(m_socket, &generic, sizeof(generic)) == 0;
}

RawClient::~RawClient() {
    closesocket(m_socket);
}

void RawClient::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const int sent = send(m_socket, bytes.data(), static_cast<int>(bytes.size()), 0);
        if (sent <= 0) {
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

void RawClient::HangUp() {
    shutdown(m_socket, SD_BOTH);
}

std::string RawClient::Receive() {
    std::string piece(64 * 1024, '\0');
    const int received = recv(m_socket, piece.data(), static_cast<int>(piece.size()), 0);
    piece.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
    return piece;
}

std::string RawClient::ReceiveAll() {
    std::string all;
    for (std::string piece = Receive(); !piece.empty(); piece = Receive()) {
        all += piece;
    }
    return all;
}

bool RawClient::WaitClosed() {
    std::array<char, 4096> dropped;
    int received = 0;
    do {
        received = recv(m_socket, dropped.data(), static_cast<int>(dropped.size()), 0);
    } while (received > 0);
    return received == 0 || WSAGetLastError() != WSAETIMEDOUT;
}

std::string Request(const std::string& method, const std::string& path, const std::string& host) {
    return method + " " + path + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n";
}

std::string Get(const std::string& path) {
    return Request("GET", path);
}

int StatusOf(const std::string& answer) {
    constexpr std::string_view kVersion = "HTTP/1.1 ";
    return answer.starts_with(kVersion) ? std::atoi(answer.c_str() + kVersion.size()) : 0;
}

Viewer::Viewer(int port, const std::string& path) : m_client(port, 256 * 1024), m_path(path) {}

Viewer::~Viewer() = default;

void Viewer::Begin() {
    m_thread = std::thread(&Viewer::Read, this);
}

void Viewer::Leave() {
    m_client.HangUp();
    m_thread.join();
}

void Viewer::Read() {
    m_client.Send(Get(m_path));
    for (std::string piece = m_client.Receive(); !piece.empty(); piece = m_client.Receive()) {
        const std::lock_guard lock(m_mutex);
        m_held += piece;
        if (m_head.empty()) {
            const std::size_t end = m_held.find(kBlankLine);
            if (end == std::string::npos) {
                continue;
            }
            m_head = m_held.substr(0, end + kBlankLine.size());
            m_held.erase(0, m_head.size());
        }
        while (m_complaint.empty() && TakePiece(m_held)) {
            continue;
        }
        m_changed.notify_all();
    }
    const std::lock_guard lock(m_mutex);
    m_ended = true;
    m_changed.notify_all();
}

void Viewer::Note(int number) {
    if (number == 0) {
        Complain("damaged picture");
    }
    m_times.push_back(Clock::now());
    m_numbers.push_back(number);
}

bool Viewer::Wait(const std::function<bool()>& condition) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, kLimit, condition);
}

bool Viewer::WaitShown(int number) {
    return Wait([this, number] { return !m_numbers.empty() && m_numbers.back() >= number; });
}

bool Viewer::WaitEnded() {
    return Wait([this] { return m_ended; });
}

std::string Viewer::Head() {
    const std::lock_guard lock(m_mutex);
    return m_head;
}

std::vector<int> Viewer::Numbers() {
    const std::lock_guard lock(m_mutex);
    return m_numbers;
}

std::vector<Clock::time_point> Viewer::Times() {
    const std::lock_guard lock(m_mutex);
    return m_times;
}

std::string Viewer::Complaint() {
    const std::lock_guard lock(m_mutex);
    return m_complaint;
}

JpegViewer::JpegViewer(int port) : Viewer(port, "/stream") {
    Begin();
}

// A part is complete only with the boundary behind it; anything but exactly such parts is a complaint.
bool JpegViewer::TakePiece(std::string& held) {
    static const std::string kOpening = "--kxframe\r\nContent-Type: image/jpeg\r\nContent-Length: ";
    const std::size_t headEnd = held.find(kBlankLine);
    if (headEnd == std::string::npos) {
        return false;
    }
    if (!held.starts_with(kOpening)) {
        Complain("bad part: " + held.substr(0, headEnd));
        return false;
    }
    const std::size_t size = std::stoul(held.substr(kOpening.size()));
    const std::size_t end = headEnd + kBlankLine.size() + size;
    static const std::string kNext = "\r\n--kxframe\r\n";
    if (held.size() < end + kNext.size()) {
        return false;
    }
    if (held.compare(end, kNext.size(), kNext) != 0) {
        Complain("no boundary behind the picture");
        return false;
    }
    Note(NumberOf(held.substr(headEnd + kBlankLine.size(), size)));
    held.erase(0, end + 2);
    return true;
}

VideoViewer::VideoViewer(int port) : Viewer(port, "/stream.mp4") {
    Begin();
}

bool VideoViewer::TakePiece(std::string& held) {
    constexpr std::size_t kBoxHead = 8;
    if (held.size() < kBoxHead) {
        return false;
    }
    const std::size_t size = BigEndian(held);
    if (size < kBoxHead) {
        Complain("a box of " + std::to_string(size) + " bytes");
        return false;
    }
    if (held.size() < size) {
        return false;
    }
    const std::string type = held.substr(4, 4);
    if (type == "mdat") {
        Note(NumberOf(held.substr(kBoxHead, size - kBoxHead)));
    } else if (type != "moof") {
        const std::lock_guard lock(m_othersMutex);
        m_others.push_back(type);
    }
    held.erase(0, size);
    return true;
}

std::vector<std::string> VideoViewer::Others() {
    const std::lock_guard lock(m_othersMutex);
    return m_others;
}

void LiveCase::Start(const LiveSettings& settings) {
    const LiveStart start = m_server->Start(settings);
    ASSERT_EQ(start.result, Result::Accepted);
    m_port = start.port;
}

void LiveCase::UsePatience(const LivePatience& patience) {
    m_server = std::make_unique<LiveServer>(m_source, patience);
}

void LiveCase::Publish(int number, bool isKey, std::size_t size) {
    const std::string picture = PictureOf(number, size);
    m_source.SetJpeg(picture);
    auto packet = std::make_shared<Packet>();
    packet->isKey = isKey;
    packet->time = m_time;
    packet->captured = m_source.Now() - std::chrono::milliseconds(5);
    packet->bytes = BytesOfText(picture);
    m_time += SlotTime(1, kFramesPerSecond);
    EXPECT_TRUE(m_server->Add(packet));
}

std::string LiveCase::Ask(std::string_view request) {
    RawClient client(m_port);
    client.Send(request);
    return client.ReceiveAll();
}

bool LiveCase::WaitClients(int clients) {
    return WaitFor([this, clients] { return Status()["clients"] == clients; });
}

void LiveCase::ExpectStillServes() {
    Publish(1'000'000);
    EXPECT_EQ(NumberOf(Fetch("/snapshot.jpg").body), 1'000'000);
}

} // namespace kxtest
