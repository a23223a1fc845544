// The sound's thread. It looks at the devices often and waits for none of them; their own buffers hold a second, so
// that nothing is lost while another device is opened.
#include "worker/sound/soundcapture.h"

#include "common/win/com.h"
#include "worker/log.h"
#include "worker/ticks.h"

#include <avrt.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

namespace kxvcr {

namespace {

constexpr DWORD kLookEveryMs = 10; // as often as the system hands on sound

// What is made before the devices are looked at again. More is due only behind a sleep of the machine.
constexpr std::int64_t kMostAtOnce = 10 * std::int64_t{kSoundRate};

// Raises the thread to the system's class for capturing while it lives; a system without the service leaves it.
class CaptureThreadPriority {
public:
    CaptureThreadPriority() noexcept {
        DWORD index = 0;
        m_task = AvSetMmThreadCharacteristicsW(L"Capture", &index);
    }
    ~CaptureThreadPriority() {
        if (m_task != nullptr) {
            AvRevertMmThreadCharacteristics(m_task);
        }
    }
    CaptureThreadPriority(const CaptureThreadPriority&) = delete;
    CaptureThreadPriority& operator=(const CaptureThreadPriority&) = delete;

private:
    HANDLE m_task = nullptr;
};

} // namespace

SoundCapture::SoundCapture(std::vector<std::unique_ptr<SoundSource>> sources)
    : m_mixer(std::move(sources)),
      m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_openingEnded(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (!m_stop || !m_openingEnded) {
        throw std::bad_alloc();
    }
    m_thread = std::thread([this] { Run(); });
}

SoundCapture::~SoundCapture() {
    Finish({}, true);
}

bool SoundCapture::IsOpen() const noexcept {
    WaitForSingleObject(m_openingEnded.Get(), INFINITE);
    return m_isOpen;
}

void SoundCapture::Start(SoundClock clock, SoundEncoder& encoder, PacketSink& sink) {
    const SoundFormat& format = encoder.Format();
    std::vector<float> block(std::size_t{format.samplesPerPacket} * format.channels);
    const std::lock_guard lock(m_mutex);
    m_mixer.Start(std::move(clock));
    m_output = Output{&encoder, &sink, std::move(block)};
}

void SoundCapture::Finish(MediaTime end, bool dropWaiting) noexcept {
    if (!m_thread.joinable()) {
        return;
    }
    if (!dropWaiting) {
        const std::lock_guard lock(m_mutex);
        m_end = end;
    }
    SetEvent(m_stop.Get());
    m_thread.join();
}

void SoundCapture::Run() noexcept {
    const kx::ComApartment apartment;
    const CaptureThreadPriority priority;
    m_isOpen = OpenDevices();
    SetEvent(m_openingEnded.Get());
    while (WaitForSingleObject(m_stop.Get(), kLookEveryMs) == WAIT_TIMEOUT) {
        Step();
    }
    MakeLast();
    if (m_isOpen) {
        m_mixer.LogSummary();
    }
    m_mixer.Close(); // before the apartment ends
}

bool SoundCapture::OpenDevices() noexcept {
    try {
        return m_mixer.Open();
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"Cannot record sound: no memory");
        return false;
    }
}

// Behind a sleep the last sound from before it is made first: a line that has none left need not keep the silence.
void SoundCapture::Step() noexcept {
    try {
        const std::lock_guard lock(m_mutex);
        const std::int64_t now = NowTicks();
        if (m_output && m_mixer.Ready(now) - m_mixer.Position() > kMostAtOnce) {
            Make(m_mixer.Position() + kMostAtOnce);
        }
        m_mixer.Listen(now);
        if (m_output) {
            Make(std::min(m_mixer.Ready(now), m_mixer.Position() + kMostAtOnce));
        }
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"A piece of sound is lost: no memory");
    }
}

void SoundCapture::Make(std::int64_t until) {
    const std::int64_t frames = m_output->encoder->Format().samplesPerPacket;
    while (m_mixer.Position() + frames <= until) {
        const std::int64_t first = m_mixer.Position();
        m_mixer.Mix(m_output->block);
        if (const SharedPacket packet = m_output->encoder->Encode(m_output->block, first); packet != nullptr) {
            m_output->sink->Add(packet);
        }
    }
}

// The last packets are made when the sound is there that they hold; the decoder gives their sound later than its time.
void SoundCapture::MakeLast() noexcept {
    if (!m_end || !m_output) {
        return;
    }
    const SoundFormat& format = m_output->encoder->Format();
    const std::int64_t end = FrameAt(*m_end);
    while (m_mixer.Ready(NowTicks()) < end) {
        Sleep(kLookEveryMs);
        Step();
    }
    try {
        Make(end + format.delaySamples + format.samplesPerPacket - 1);
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"The last sound is lost: no memory");
    }
}

} // namespace kxvcr
