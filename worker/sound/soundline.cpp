// One device's sound, laid on the recording's time. All positions are frames at kSoundRate.
#include "worker/sound/soundline.h"

#include "worker/sound/soundencoder.h"

#include <algorithm>
#include <cmath>

namespace kxvcr {

namespace {

constexpr double Frames(double seconds) noexcept {
    return seconds * kSoundRate;
}

constexpr double kLateAtOnce = Frames(0.2);   // no system is so slow without a break
constexpr double kEarlyAtOnce = Frames(0.04); // a time can be told too late, hardly too early
constexpr double kLateInAWindow = Frames(0.025);
constexpr double kWindow = Frames(0.25);
constexpr double kSettling = Frames(1);
constexpr double kEarlyWhileSettling = Frames(0.005);
constexpr double kSmoothing = 0.25;      // the share of the newest window
constexpr double kSecondsToCatchUp = 10; // a clock that is off by 100 millionths leaves the sound off by 1 ms
constexpr std::int32_t kMostStretch = 2000;

double FrameOf(MediaTime time) noexcept {
    return static_cast<double>(time.count()) * kSoundRate / MediaTime::period::den;
}

} // namespace

void SoundLine::Begin(const DeviceFormat& format) {
    m_mixdown.emplace(format);
    m_resampler.emplace(format.samplesPerSecond);
    m_rate = format.samplesPerSecond;
    m_toDrop = 0;
    m_stretch = 0;
    m_mustBePlaced = true;
}

void SoundLine::Add(const SoundPiece& piece, MediaTime time) {
    const double frames = static_cast<double>(piece.frames) * kSoundRate / m_rate;
    const double next = static_cast<double>(m_end - m_toDrop) + m_resampler->Waiting();
    const double error = FrameOf(time) - next;
    m_framesInWindow += frames;
    m_leastError = std::min(m_leastError, error);
    m_framesToSettle -= frames;
    const bool isLate = error > kLateAtOnce;
    const bool isEarly = error < (m_framesToSettle > 0 ? -kEarlyWhileSettling : -kEarlyAtOnce);
    if (m_mustBePlaced || piece.followsABreak || isLate || isEarly) {
        Place(FrameOf(time));
    } else if (m_framesInWindow >= kWindow) {
        if (m_leastError > kLateInAWindow) {
            Place(next + m_leastError);
        } else {
            Follow(m_leastError);
        }
    }
    m_mustBePlaced = false;

    m_stereo.clear();
    m_mixdown->Append(piece, m_stereo);
    m_resampled.clear();
    m_resampler->Append(m_stereo, m_resampled);
    TakeResampled();
}

void SoundLine::BeginWindow() noexcept {
    m_framesInWindow = 0;
    m_leastError = kLateAtOnce;
}

// The sound goes on at @p frame: with silence before it, or without its part that comes too late.
void SoundLine::Place(double frame) {
    const std::int64_t first = std::llround(frame);
    m_resampler->Restart();
    m_toDrop = std::max<std::int64_t>(m_end - first, 0);
    if (first > m_end) {
        if (!m_kept.empty()) { // else nothing is kept of the silence either: a machine may have slept for hours
            m_kept.resize(m_kept.size() + static_cast<std::size_t>(first - m_end) * kSoundChannels);
        }
        m_end = first;
    }
    m_error = 0;
    m_framesToSettle = kSettling;
    BeginWindow();
}

// The least error of a window is the one that the system's slowness has part in least.
void SoundLine::Follow(double error) noexcept {
    m_error += (error - m_error) * kSmoothing;
    const double wanted = m_error / Frames(kSecondsToCatchUp) * 1e6;
    m_stretch = std::clamp(static_cast<std::int32_t>(std::lround(wanted)), -kMostStretch, kMostStretch);
    m_resampler->Stretch(m_stretch);
    BeginWindow();
}

void SoundLine::TakeResampled() {
    const auto frames = static_cast<std::int64_t>(m_resampled.size() / kSoundChannels);
    const std::int64_t dropped = std::min(frames, m_toDrop);
    m_toDrop -= dropped;
    m_kept.insert(m_kept.end(), m_resampled.begin() + dropped * kSoundChannels, m_resampled.end());
    m_end += frames - dropped;
}

void SoundLine::MixInto(std::span<float> target, std::int64_t first) {
    const auto frames = static_cast<std::int64_t>(target.size() / kSoundChannels);
    const std::int64_t begin = m_end - static_cast<std::int64_t>(m_kept.size() / kSoundChannels);
    const std::int64_t from = std::max(begin, first);
    const std::int64_t until = std::clamp(m_end, from, std::max(first + frames, from));
    for (std::int64_t i = from * kSoundChannels; i < until * kSoundChannels; ++i) {
        target[static_cast<std::size_t>(i - first * kSoundChannels)] +=
            m_kept[static_cast<std::size_t>(i - begin * kSoundChannels)];
    }
    const std::int64_t forgotten = std::clamp<std::int64_t>(first + frames - begin, 0, m_end - begin);
    m_kept.erase(m_kept.begin(), m_kept.begin() + forgotten * kSoundChannels);
    if (m_end < first + frames) {
        m_end = first + frames;
        m_mustBePlaced = true;
    }
}

} // namespace kxvcr
