/**
 * @file
 * Packets for the writers' tests: bytes that can be told from those of other packets, not real pictures.
 */
#pragma once

#include "worker/file/mediawriter.h"
#include "worker/packet.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kxtest {

inline constexpr std::uint32_t kRate = 30;
inline constexpr std::uint32_t kKeyInterval = 60;

inline kxvcr::MediaTime Seconds(double seconds) {
    return kxvcr::MediaTime(static_cast<std::int64_t>(seconds * kxvcr::MediaTime::period::den + 0.5));
}

/** The picture of slot @p number; every 60th is a key picture. */
inline kxvcr::SharedPacket Picture(std::uint64_t number, kxvcr::MediaTime time) {
    auto packet = std::make_shared<kxvcr::Packet>();
    packet->isKey = number % kKeyInterval == 0;
    packet->time = time;
    packet->bytes.assign(200 + number % 7, static_cast<std::byte>(number % 251));
    return packet;
}
inline kxvcr::SharedPacket Picture(std::uint64_t number) {
    return Picture(number, kxvcr::SlotTime(number, kRate));
}

/** Adds the pictures from @p first to before @p end until one is refused; returns the number behind the last taken. */
inline std::uint64_t AddPictures(kxvcr::MediaWriter& writer, std::uint64_t first, std::uint64_t end) {
    for (std::uint64_t number = first; number < end; ++number) {
        if (!writer.Add(Picture(number))) {
            return number;
        }
    }
    return end;
}

inline kxvcr::SoundFormat Aac() {
    return {kxvcr::Codec::AacLc, 48'000, 2, 1024, 1024, {std::byte{0x11}, std::byte{0x90}}};
}
inline kxvcr::SoundFormat Opus() {
    return {kxvcr::Codec::Opus, 48'000, 2, 960, 312, std::vector<std::byte>(19, std::byte{7})};
}

/** The piece of sound number @p number of a stream that begins with its decoder's delay. */
inline kxvcr::SharedPacket Sound(const kxvcr::SoundFormat& format, std::int64_t number) {
    auto packet = std::make_shared<kxvcr::Packet>();
    packet->stream = kxvcr::Stream::Sound;
    packet->isKey = true;
    const std::int64_t sample = number * format.samplesPerPacket - format.delaySamples;
    packet->time = kxvcr::MediaTime(sample * kxvcr::MediaTime::period::den / format.samplesPerSecond);
    packet->bytes.assign(50 + static_cast<std::size_t>(number) % 5, static_cast<std::byte>(128 + number % 100));
    return packet;
}

inline kxvcr::StreamFormat H264(std::optional<kxvcr::SoundFormat> sound = {}) {
    return {{kxvcr::Codec::H264, 640, 360, kRate, kxvcr::ColorMatrix::Bt601, {std::byte{1}, std::byte{100}}}, sound};
}
inline kxvcr::StreamFormat Vp9(std::optional<kxvcr::SoundFormat> sound = {}) {
    return {{kxvcr::Codec::Vp9,
             640,
             360,
             kRate,
             kxvcr::ColorMatrix::Bt709,
             {std::byte{0}, std::byte{31}, std::byte{0x82}, std::byte{1}, std::byte{1}, std::byte{1}, std::byte{0},
              std::byte{0}}},
            sound};
}

} // namespace kxtest
