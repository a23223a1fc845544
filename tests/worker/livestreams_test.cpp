// The live server's streams: what viewers get, and what viewers that misbehave do to others.
#include "livecase.h"

#include "sdk/vcr/workerprotocol.h"

#include <algorithm>
#include <numeric>
#include <span>
#include <thread>

namespace kxtest {

namespace {

using namespace kxvcr;
using namespace std::chrono_literals;

constexpr auto kStopLimit = 1s; // what the worker promises
constexpr auto kKeyInterval = 1s;

class LiveStreams : public LiveCase {
protected:
    // Starts a server and does something with it, and once more with another one until both took less than the second
    // that a server's figures are of.
    template <class Round>
    void WithinASecond(const LiveSettings& settings, Round round) {
        Clock::time_point before;
        do {
            UsePatience({});
            before = Clock::now();
            Start(settings);
            round();
        } while (Clock::now() - before >= 1s && !HasFailure());
    }
};

std::vector<int> From1To(int last) {
    std::vector<int> numbers(static_cast<std::size_t>(last));
    std::iota(numbers.begin(), numbers.end(), 1);
    return numbers;
}

TEST_F(LiveStreams, Video_IsAHeadAndAFragmentAPicture) {
    Start();
    VideoViewer viewer(m_port);
    ASSERT_TRUE(WaitClients(1));

    for (int number = 1; number <= 20; ++number) {
        Publish(number, number == 1);
        ASSERT_TRUE(viewer.WaitShown(number));
    }

    EXPECT_EQ(ReadResponse(viewer.Head()).Field("content-type"), "video/mp4; codecs=\"avc1.42c01f\"");
    EXPECT_EQ(viewer.Complaint(), "");
    EXPECT_EQ(viewer.Numbers(), From1To(20));
    ASSERT_GE(viewer.Others().size(), 2u);
    EXPECT_EQ(viewer.Others()[0], "ftyp");
    EXPECT_EQ(viewer.Others()[1], "moov");
}

TEST_F(LiveStreams, VideoWithSound_NamesBothCodecs) {
    SoundFormat sound;
    sound.decoderConfig = {std::byte{0x11}, std::byte{0x90}};
    m_source.SetSound(sound);
    Start();

    EXPECT_EQ(ReadResponse(Ask(Request("HEAD", "/stream.mp4"))).Field("content-type"),
              "video/mp4; codecs=\"avc1.42c01f,mp4a.40.2\"");
    EXPECT_EQ(Status()["sound"], "aac");
}

// An encoder's first packet of sound lies before the first picture, by the decoder's delay, and comes after it.
TEST_F(LiveStreams, SoundFromBeforeTheFirstPicture_IsNotSent) {
    m_source.SetSound({});
    Start();
    VideoViewer viewer(m_port);
    ASSERT_TRUE(WaitClients(1));
    const auto publishSound = [this](int number, MediaTime time) {
        auto packet = std::make_shared<Packet>();
        packet->stream = Stream::Sound;
        packet->isKey = true;
        packet->time = time;
        const std::string bytes = PictureOf(number, 1000);
        packet->bytes.assign(std::as_bytes(std::span(bytes)).begin(), std::as_bytes(std::span(bytes)).end());
        m_server->Add(packet);
    };
    Publish(1, true, 1000);

    publishSound(2, -21ms);
    publishSound(3, 0ms);

    ASSERT_TRUE(viewer.WaitShown(3));
    EXPECT_EQ(viewer.Numbers(), (std::vector<int>{1, 3}));
}

TEST_F(LiveStreams, VideoViewerInTheMiddle_BeginsWithAKeyPictureThatWasAskedFor) {
    Start();
    Publish(1);
    ASSERT_EQ(m_source.KeyRequests(), 0);

    VideoViewer viewer(m_port);
    ASSERT_TRUE(WaitFor([this] { return m_source.KeyRequests() >= 1; }));
    Publish(2, false);
    Publish(3, true);
    Publish(4, false);

    ASSERT_TRUE(viewer.WaitShown(4));
    EXPECT_EQ(viewer.Numbers(), (std::vector<int>{3, 4}));
}

TEST_F(LiveStreams, ManyNewViewers_AskForAKeyPictureOnceASecond) {
    Start();
    const Clock::time_point before = Clock::now();
    int viewers = 0;
    while (viewers <= 2 || Clock::now() - before < 3 * kKeyInterval / 2) {
        const VideoViewer viewer(m_port);
        ASSERT_TRUE(WaitClients(1));
        ++viewers;
    }
    const auto seconds = static_cast<int>(std::chrono::ceil<std::chrono::seconds>(Clock::now() - before).count());

    EXPECT_GE(m_source.KeyRequests(), 1);
    EXPECT_LE(m_source.KeyRequests(), seconds + 1);
}

TEST_F(LiveStreams, KeyPictureThatDoesNotCome_IsAskedForAgain) {
    Start();
    VideoViewer viewer(m_port);

    EXPECT_TRUE(WaitFor([this] { return m_source.KeyRequests() >= 2; }));
}

TEST_F(LiveStreams, SilentVideo_SendsAnEmptyBoxASecond) {
    Start();
    VideoViewer viewer(m_port);
    ASSERT_TRUE(WaitClients(1));
    Publish(1);
    ASSERT_TRUE(viewer.WaitShown(1));

    EXPECT_TRUE(WaitFor([&viewer] { return std::ranges::count(viewer.Others(), "free") >= 2; }));
    EXPECT_EQ(viewer.Numbers(), From1To(1));
}

TEST_F(LiveStreams, VideoOfAnotherCodec_IsNotThere) {
    m_source.SetCodec(Codec::Vp9);
    Start();

    EXPECT_EQ(Fetch("/stream.mp4").status, 404);
}

TEST_F(LiveStreams, SlowVideoViewer_LosesGroupsAndGoesOnWithAKeyPicture) {
    UsePatience({2000ms, 60000ms});
    Start();
    RawClient slow(m_port);
    slow.Send(Get("/stream.mp4"));
    ASSERT_TRUE(WaitClients(1));
    int number = 0;
    ASSERT_TRUE(WaitFor([&] {
        ++number;
        Publish(number, number == 1);
        return Status()["lostGroups"] == 1;
    }));
    const int lost = number;
    const int asked = m_source.KeyRequests();

    // When it has read what is under way, the server asks for a key picture on its behalf.
    std::string received;
    ASSERT_TRUE(WaitFor([&] {
        received += slow.Receive();
        return m_source.KeyRequests() > asked;
    }));
    Publish(++number, true);
    ASSERT_TRUE(WaitFor([&] {
        received += slow.Receive();
        return received.find(PictureOf(number)) != std::string::npos;
    }));

    EXPECT_EQ(received.find(PictureOf(lost)), std::string::npos);
}

TEST_F(LiveStreams, Pictures_AreWellFormedPartsInOrder) {
    Start();
    Publish(1);
    JpegViewer viewer(m_port);
    ASSERT_TRUE(viewer.WaitShown(1));

    for (int number = 2; number <= 20; ++number) {
        Publish(number, true, kPictureSize + static_cast<std::size_t>(number));
        ASSERT_TRUE(viewer.WaitShown(number));
    }

    EXPECT_EQ(ReadResponse(viewer.Head()).Field("content-type"), "multipart/x-mixed-replace; boundary=kxframe");
    EXPECT_EQ(viewer.Complaint(), "");
    EXPECT_EQ(viewer.Numbers(), From1To(20));
}

TEST_F(LiveStreams, Pictures_AreMadeOnlyWhileSomebodyReads) {
    nlohmann::json status;
    WithinASecond({}, [&] {
        for (int number = 1; number <= 10; ++number) {
            Publish(number);
        }
        status = Status();
    });
    EXPECT_EQ(status["framesPerSecond"], 10);
    EXPECT_EQ(m_source.JpegsMade(), 0);

    {
        JpegViewer viewer(m_port);
        ASSERT_TRUE(viewer.WaitShown(10));
    }
    ASSERT_TRUE(WaitClients(0));
    Publish(11);
    EXPECT_TRUE(WaitFor([this] { return Status()["delayMilliseconds"] == 5.0; }));

    EXPECT_EQ(m_source.JpegsMade(), 1);
}

TEST_F(LiveStreams, SlowEncoding_DelaysNoOtherRequest) {
    Start();
    m_source.HoldJpegs(true);
    Publish(1);
    JpegViewer viewer(m_port);
    ASSERT_TRUE(WaitClients(1));

    EXPECT_EQ(Fetch("/").status, 200);
    EXPECT_EQ(viewer.Numbers(), std::vector<int>());

    m_source.HoldJpegs(false);
    EXPECT_TRUE(viewer.WaitShown(1));
}

TEST_F(LiveStreams, SamePicture_IsSentAgainOnlyOnceASecond) {
    Start();
    const Clock::time_point published = Clock::now();
    Publish(1);
    JpegViewer viewer(m_port);

    ASSERT_TRUE(WaitFor([&viewer] { return viewer.Numbers().size() >= 3; }));

    EXPECT_EQ(m_source.JpegsMade(), 1);
    EXPECT_GE(viewer.Times()[2] - published, 1s);
}

TEST_F(LiveStreams, Snapshot_IsTheNewestPicture) {
    Start();
    for (int number = 1; number <= 3; ++number) {
        Publish(number);

        const Response answer = Fetch("/snapshot.jpg");

        EXPECT_EQ(answer.Field("content-type"), "image/jpeg");
        EXPECT_EQ(NumberOf(answer.body), number);
    }
}

TEST_F(LiveStreams, SnapshotBeforeTheFirstPicture_WaitsForIt) {
    Start();
    RawClient client(m_port);
    client.Send(Get("/snapshot.jpg"));

    Publish(1);

    EXPECT_EQ(StatusOf(client.ReceiveAll()), 200);
}

TEST_F(LiveStreams, SnapshotWithoutAnyPicture_IsUnavailable) {
    Start();

    EXPECT_EQ(Fetch("/snapshot.jpg").status, 503);
}

TEST_F(LiveStreams, StopFromSeveralThreads_EndsTheServerOnce) {
    for (int round = 0; round < 20; ++round) {
        UsePatience({});
        Start();
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([this] { m_server->Stop(); });
        }
        threads.clear();
        ASSERT_FALSE(RawClient(m_port).Connected());
    }
}

TEST_F(LiveStreams, Status_TellsEverything) {
    LiveSettings settings;
    settings.maxClients = 3;
    Response before;
    Response answer;
    WithinASecond(settings, [&] {
        before = Fetch("/status");
        VideoViewer viewer(m_port);
        ASSERT_TRUE(WaitClients(1));
        Publish(1, true, 1000);
        Publish(2, false, 500);
        ASSERT_TRUE(viewer.WaitShown(2));
        answer = Fetch("/status");
    });

    EXPECT_EQ(before.body,
              "{\"clients\":0,\"maxClients\":3,\"framesServed\":0,\"framesPerSecond\":0,\"width\":1280,\"height\":720,"
              "\"uptimeSeconds\":0,\"bitsPerSecond\":0,\"lostGroups\":0,\"codec\":\"h264\",\"sound\":null,"
              "\"delayMilliseconds\":null}\n");
    EXPECT_EQ(answer.Field("content-type"), "application/json");
    const nlohmann::json status = nlohmann::json::parse(answer.body);
    EXPECT_EQ(status["framesServed"], 2);
    EXPECT_EQ(status["framesPerSecond"], 2);
    EXPECT_EQ(status["bitsPerSecond"], 12000);
    EXPECT_EQ(status["delayMilliseconds"], 5.0);
}

TEST_F(LiveStreams, ViewerAboveTheLimit_IsTurnedAwayUntilOneLeaves) {
    LiveSettings settings;
    settings.maxClients = 2;
    Start(settings);
    Publish(1);
    JpegViewer first(m_port);
    auto second = std::make_unique<VideoViewer>(m_port);
    ASSERT_TRUE(WaitClients(2));

    EXPECT_EQ(Fetch("/stream").status, 503);
    EXPECT_EQ(Fetch("/stream.mp4").Field("retry-after"), "2");
    EXPECT_EQ(Fetch("/snapshot.jpg").status, 200);
    second.reset();

    ASSERT_TRUE(WaitClients(1));
    JpegViewer third(m_port);
    EXPECT_TRUE(third.WaitShown(1));
}

TEST_F(LiveStreams, MostViewersThatAreAllowed_AreAllServedBesideOtherRequests) {
    LiveSettings settings;
    settings.maxClients = kMaxLiveClients;
    Start(settings);
    std::vector<std::unique_ptr<VideoViewer>> viewers;
    for (std::uint32_t i = 0; i < kMaxLiveClients; ++i) {
        viewers.push_back(std::make_unique<VideoViewer>(m_port));
    }
    ASSERT_TRUE(WaitClients(static_cast<int>(kMaxLiveClients)));

    Publish(1, true, 1000);
    Publish(2, false, 1000);

    for (const auto& viewer : viewers) {
        EXPECT_TRUE(viewer->WaitShown(2));
    }
    EXPECT_EQ(Fetch("/stream").status, 503);
}

// The server waits a minute for the viewers that never read. If that kept anybody else waiting, a picture would be
// missing at the other viewers when the limit is over.
TEST_F(LiveStreams, ViewersThatDoNotRead_DelayNobody) {
    constexpr int kPictures = 300;
    UsePatience({2000ms, 60000ms});
    Start();
    RawClient stuckPictures(m_port);
    stuckPictures.Send(Get("/stream"));
    RawClient stuckVideo(m_port);
    stuckVideo.Send(Get("/stream.mp4"));
    VideoViewer video(m_port);
    JpegViewer pictures(m_port);
    ASSERT_TRUE(WaitClients(4));

    for (int number = 1; number <= kPictures; ++number) {
        Publish(number, number == 1);
        ASSERT_TRUE(video.WaitShown(number)) << number;
        ASSERT_TRUE(pictures.WaitShown(number)) << number;
    }

    EXPECT_EQ(video.Numbers(), From1To(kPictures));
    EXPECT_EQ(pictures.Complaint(), "");
    EXPECT_EQ(Status()["clients"], 4);
}

TEST_F(LiveStreams, LateViewerOfPictures_IsShownTheNewest) {
    UsePatience({2000ms, 60000ms});
    Start();
    RawClient late(m_port);
    late.Send(Get("/stream"));
    ASSERT_TRUE(WaitClients(1));
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

TEST_F(LiveStreams, ViewerThatDoesNotRead_IsDroppedInTime) {
    UsePatience({2000ms, 300ms});
    Start();
    RawClient stuck(m_port);
    stuck.Send(Get("/stream.mp4"));
    ASSERT_TRUE(WaitClients(1));

    int number = 0;
    EXPECT_TRUE(WaitFor([&] {
        Publish(++number, true, 2'000'000);
        return Status()["clients"] == 0;
    }));
}

TEST_F(LiveStreams, ViewerThatLeavesWhileNothingChanges_FreesItsPlace) {
    Start();
    Publish(1);
    {
        JpegViewer viewer(m_port);
        ASSERT_TRUE(viewer.WaitShown(1));
        VideoViewer video(m_port);
        ASSERT_TRUE(WaitClients(2));
    }

    EXPECT_TRUE(WaitClients(0));
}

TEST_F(LiveStreams, Stop_EndsViewersAtOnceHoweverTheyBehave) {
    Start();
    Publish(1, true, 400'000);
    RawClient stuck(m_port);
    stuck.Send(Get("/stream"));
    RawClient silent(m_port);
    VideoViewer video(m_port);
    JpegViewer pictures(m_port);
    ASSERT_TRUE(pictures.WaitShown(1));
    ASSERT_TRUE(WaitClients(3));

    const Clock::time_point before = Clock::now();
    m_server->Stop();
    const Clock::duration stopping = Clock::now() - before;

    EXPECT_LT(stopping, kStopLimit);
    EXPECT_TRUE(video.WaitEnded());
    EXPECT_TRUE(pictures.WaitEnded());
    EXPECT_EQ(silent.ReceiveAll(), "");
    EXPECT_FALSE(RawClient(m_port).Connected());
}

TEST_F(LiveStreams, StopBeforeStartAndTwice_DoesNothing) {
    m_server->Stop();
    UsePatience({});
    Start();
    m_server->Stop();
    m_server->Finish({});
    Publish(1);
    m_server->Stop();
}

} // namespace

} // namespace kxtest
