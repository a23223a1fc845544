// Several devices become one sound.
#include "worker/sound/soundmixer.h"

#include "worker/log.h"
#include "worker/sound/soundencoder.h"
#include "worker/ticks.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

namespace kxvcr {

namespace {

using std::chrono::milliseconds;

constexpr MediaTime kRetry = milliseconds(1000);

// A device that gives sound is waited for long, since a busy system hands it on late. One that gives none, as the
// machine's sound when nothing is played, is not: a viewer would wait for it.
constexpr MediaTime kSoundTimeout = milliseconds(500);
constexpr MediaTime kIdleSoundTimeout = milliseconds(100);
constexpr MediaTime kIdleAfter = milliseconds(300);

// A time that lies further from the present is no measurement.
constexpr MediaTime kOldest = std::chrono::seconds(2);
constexpr MediaTime kNewest = milliseconds(100); // a piece may come while the devices are looked at

} // namespace

SoundMixer::SoundMixer(std::vector<std::unique_ptr<SoundSource>> sources) {
    for (std::unique_ptr<SoundSource>& source : sources) {
        m_devices.emplace_back().source = std::move(source);
    }
}

bool SoundMixer::Open() {
    for (Device& device : m_devices) {
        if (!device.source->Open()) {
            KXVCR_LOG_ERROR(L"Cannot record " << device.source->Name() << L": " << device.source->Problem());
            return false;
        }
        device.line.Begin(device.source->Format());
        device.isOpen = true;
    }
    return true;
}

void SoundMixer::Start(SoundClock clock) {
    m_clock = std::move(clock);
}

void SoundMixer::Listen(std::int64_t now) {
    for (Device& device : m_devices) {
        if (device.isOpen) {
            Listen(device, now);
        } else {
            TryAgain(device, now);
        }
    }
}

void SoundMixer::Listen(Device& device, std::int64_t now) {
    SoundPiece piece;
    SoundSource::Read read = SoundSource::Read::Given;
    while ((read = device.source->Next(piece)) == SoundSource::Read::Given) {
        Take(device, piece, now);
    }
    if (read == SoundSource::Read::Lost) {
        KXVCR_LOG_WARN(L"Lost " << device.source->Name() << L": it is silent until it comes back");
        ++device.losses;
        device.isOpen = false;
        device.triedAt = now - TicksPerSecond(); // at once: it may only have changed its format
    }
}

void SoundMixer::Take(Device& device, const SoundPiece& piece, std::int64_t now) {
    device.heardAt = now;
    if (m_clock == nullptr) {
        return;
    }
    const MediaTime present = m_clock(now);
    const MediaTime length(std::int64_t{piece.frames} * MediaTime::period::den /
                           device.source->Format().samplesPerSecond);
    const MediaTime told = m_clock(piece.ticks);
    const bool isPlausible = told <= present + kNewest && told >= present - kOldest;
    device.line.Add(piece, isPlausible ? told : present - length);
}

void SoundMixer::TryAgain(Device& device, std::int64_t now) {
    if (TimeOf(now - device.triedAt) < kRetry) {
        return;
    }
    device.triedAt = now;
    if (device.source->Open()) {
        device.line.Begin(device.source->Format());
        device.isOpen = true;
        KXVCR_LOG_INFO(L"Recording " << device.source->Name() << L" again");
    }
}

std::int64_t SoundMixer::Ready(std::int64_t now) const {
    const MediaTime present = m_clock(now);
    std::int64_t ready = std::numeric_limits<std::int64_t>::max();
    for (const Device& device : m_devices) {
        const bool isIdle = !device.isOpen || !device.heardAt || TimeOf(now - *device.heardAt) > kIdleAfter;
        const MediaTime latest = present - (isIdle ? kIdleSoundTimeout : kSoundTimeout);
        ready = std::min(ready, std::max(device.line.End(), FrameAt(latest)));
    }
    return ready;
}

void SoundMixer::Mix(std::span<float> target) {
    std::ranges::fill(target, 0.0F);
    for (Device& device : m_devices) {
        device.line.MixInto(target, m_position);
    }
    m_position += static_cast<std::int64_t>(target.size() / kSoundChannels);
}

void SoundMixer::LogSummary() const {
    for (const Device& device : m_devices) {
        KXVCR_LOG_INFO(L"Sound finished: " << device.source->Name() << L" was lost " << device.losses
                                           << L" times and at the end ran " << device.line.Stretch()
                                           << L" millionths slower than the recording");
    }
}

} // namespace kxvcr
