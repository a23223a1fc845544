/**
 * @file
 * What the live server's tests have in common: a source without a screen, clients, and the fixture.
 */
#pragma once

#include "worker/live/liveserver.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kxtest {

using Clock = std::chrono::steady_clock;

inline constexpr std::uint32_t kWidth = 1280;
inline constexpr std::uint32_t kHeight = 720;
inline constexpr std::uint32_t kFramesPerSecond = 30;
inline constexpr std::chrono::seconds kLimit(10); // for something that happens at once on an idle machine
inline constexpr std::size_t kPictureSize = 100'000;

// A stand-in for a JPEG: the server never looks into one. The number can be read back, and every byte is checked.
std::string PictureOf(int number, std::size_t size = kPictureSize);

// 0 when a byte of the picture is not as it was published.
int NumberOf(const std::string& picture);

bool WaitFor(const std::function<bool()>& condition);

// The recorder's part, with pictures that a test makes.
class FakeSource final : public kxvcr::LiveSource {
public:
    FakeSource();

    kxvcr::StreamFormat Format() const override;
    kxvcr::MediaTime Now() const noexcept override;
    void RequestKey() noexcept override;
    kxvcr::SharedPacket NewestJpeg() noexcept override;

    void SetCodec(kxvcr::Codec codec);
    void SetSound(const kxvcr::SoundFormat& sound);
    void SetJpeg(const std::string& picture);

    int KeyRequests() const;
    int JpegsMade() const;

    // An encoding waits as long as it is held.
    void HoldJpegs(bool hold);

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    kxvcr::StreamFormat m_format;
    kxvcr::SharedPacket m_newest;
    bool m_isAsked = false; // m_newest has been
    bool m_isHeld = false;
    int m_keyRequests = 0;
    int m_jpegsMade = 0;
};

// The parts of a whole answer. @throws std::runtime_error when it is none
struct Response {
    int status = 0;
    std::map<std::string, std::string> fields; // names in lower case
    std::string body;

    std::string Field(const std::string& name) const;
};
Response ReadResponse(std::string_view answer);

// A connection that sends and reads whatever the test says.
class RawClient {
public:
    explicit RawClient(int port, int receiveBuffer = 4096);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool Connected() const { return m_connected; }
    void Send(std::string_view bytes);
    // Ends both directions; a Receive() under way returns.
    void HangUp();

    // One piece; empty when the server closed the connection or said nothing in time.
    std::string Receive();
    std::string ReceiveAll();

    // Reads until the connection is closed; false when the server says nothing in time.
    bool WaitClosed();

private:
    std::uintptr_t m_socket;
    bool m_connected = false;
};

std::string Get(const std::string& path);
std::string Request(const std::string& method, const std::string& path, const std::string& host = "localhost");
int StatusOf(const std::string& answer);

// A viewer that reads a stream as its bytes come.
class Viewer {
public:
    Viewer(int port, const std::string& path);
    virtual ~Viewer();
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

    bool Wait(const std::function<bool()>& condition);
    bool WaitShown(int number);
    bool WaitEnded();

    std::string Head();
    std::vector<int> Numbers();
    std::vector<Clock::time_point> Times();
    std::string Complaint();

protected:
    // Takes one whole piece off the beginning of what has come; false when there is none. Called with the lock held.
    virtual bool TakePiece(std::string& held) = 0;

    void Begin();
    void Leave();
    void Note(int number);
    void Complain(const std::string& complaint) { m_complaint = complaint; }

private:
    void Read();

    RawClient m_client;
    std::string m_path;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_head;
    std::string m_held;
    std::string m_complaint;
    std::vector<int> m_numbers;
    std::vector<Clock::time_point> m_times;
    bool m_ended = false;
    std::thread m_thread;
};

// A viewer of the JPEG stream; checks every part.
class JpegViewer final : public Viewer {
public:
    explicit JpegViewer(int port);
    ~JpegViewer() override { Leave(); }

private:
    bool TakePiece(std::string& held) override;
};

// A viewer of the video stream; takes its boxes apart. A picture's number is its bytes'.
class VideoViewer final : public Viewer {
public:
    explicit VideoViewer(int port);
    ~VideoViewer() override { Leave(); }

    // Types of the boxes that have come, but for fragments: "moof" and "mdat".
    std::vector<std::string> Others();

private:
    bool TakePiece(std::string& held) override;

    std::vector<std::string> m_others;
    std::mutex m_othersMutex;
};

class LiveCase : public testing::Test {
protected:
    void Start(const kxvcr::LiveSettings& settings = {});
    void UsePatience(const kxvcr::LivePatience& patience);

    // Gives the server a picture; its packet's bytes are PictureOf(number), and so is its JPEG.
    void Publish(int number, bool isKey = true, std::size_t size = kPictureSize);

    // The whole answer to raw bytes.
    std::string Ask(std::string_view request);
    Response Fetch(const std::string& path) { return ReadResponse(Ask(Get(path))); }
    nlohmann::json Status() { return nlohmann::json::parse(Fetch("/status").body); }
    bool WaitClients(int clients);
    void ExpectStillServes();

    FakeSource m_source;
    std::unique_ptr<kxvcr::LiveServer> m_server = std::make_unique<kxvcr::LiveServer>(m_source);
    int m_port = 0;
    kxvcr::MediaTime m_time{};
};

} // namespace kxtest
