// Encodes sound as Opus. The library cuts by itself what is above full scale.
#include "worker/sound/opusencoder.h"

#include "common/win/utf8.h"
#include "worker/log.h"

#include <opus/opus.h>

#include <array>
#include <span>
#include <utility>

namespace kxvcr {

namespace {

constexpr std::uint32_t kSamplesPerPacket = kSoundRate / 50;
constexpr std::size_t kLargestPacket = 4000; // the library's manual recommends it

constexpr std::byte LowByte(std::uint32_t value, unsigned int shift) noexcept {
    return static_cast<std::byte>(value >> shift & 0xFF);
}

// The stream's head as in an Ogg file (RFC 7845): version 1, channels, delay, rate of the source, no gain, one stream.
std::vector<std::byte> OpusHead(std::uint32_t delaySamples) {
    std::vector<std::byte> head;
    for (const char letter : {'O', 'p', 'u', 's', 'H', 'e', 'a', 'd'}) {
        head.push_back(static_cast<std::byte>(letter));
    }
    const std::array rest = {std::byte{1},
                             static_cast<std::byte>(kSoundChannels),
                             LowByte(delaySamples, 0),
                             LowByte(delaySamples, 8),
                             LowByte(kSoundRate, 0),
                             LowByte(kSoundRate, 8),
                             LowByte(kSoundRate, 16),
                             LowByte(kSoundRate, 24),
                             std::byte{0},
                             std::byte{0},
                             std::byte{0}};
    head.insert(head.end(), rest.begin(), rest.end());
    return head;
}

void LogFailure(int error) {
    KXVCR_LOG_ERROR(L"The Opus encoder failed: " << kx::WideFromUtf8(opus_strerror(error)));
}

} // namespace

void OpusSoundEncoder::Deleter::operator()(OpusEncoder* encoder) const noexcept {
    opus_encoder_destroy(encoder);
}

OpusSoundEncoder::OpusSoundEncoder(std::unique_ptr<OpusEncoder, Deleter> encoder, std::uint32_t delaySamples)
    : m_encoder(std::move(encoder)),
      m_output(kLargestPacket) {
    m_format.codec = Codec::Opus;
    m_format.samplesPerSecond = kSoundRate;
    m_format.channels = kSoundChannels;
    m_format.samplesPerPacket = kSamplesPerPacket;
    m_format.delaySamples = delaySamples;
    m_format.decoderConfig = OpusHead(delaySamples);
}

std::unique_ptr<OpusSoundEncoder> OpusSoundEncoder::Create(std::uint32_t bitsPerSecond) {
    int error = OPUS_OK;
    std::unique_ptr<OpusEncoder, Deleter> encoder(
        opus_encoder_create(kSoundRate, kSoundChannels, OPUS_APPLICATION_AUDIO, &error));
    opus_int32 delay = 0;
    if (error == OPUS_OK) {
        error = opus_encoder_ctl(encoder.get(), OPUS_SET_BITRATE(static_cast<opus_int32>(bitsPerSecond)));
    }
    if (error == OPUS_OK) {
        error = opus_encoder_ctl(encoder.get(), OPUS_GET_LOOKAHEAD(&delay));
    }
    if (error != OPUS_OK) {
        LogFailure(error);
        return nullptr;
    }
    return std::unique_ptr<OpusSoundEncoder>(
        new OpusSoundEncoder(std::move(encoder), static_cast<std::uint32_t>(delay)));
}

SharedPacket OpusSoundEncoder::Encode(std::span<const float> samples, std::int64_t firstFrame) {
    const opus_int32 size =
        opus_encode_float(m_encoder.get(), samples.first(std::size_t{kSamplesPerPacket} * kSoundChannels).data(),
                          static_cast<int>(kSamplesPerPacket), reinterpret_cast<unsigned char*>(m_output.data()),
                          static_cast<opus_int32>(m_output.size()));
    if (size < 0) {
        LogFailure(size);
        return nullptr;
    }
    auto packet = std::make_shared<Packet>();
    packet->stream = Stream::Sound;
    packet->isKey = true;
    packet->time = FrameTime(firstFrame - m_format.delaySamples);
    packet->captured = FrameTime(firstFrame);
    packet->bytes.assign(m_output.begin(), m_output.begin() + size);
    return packet;
}

} // namespace kxvcr
