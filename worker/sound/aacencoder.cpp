// Encodes sound as AAC-LC. The library takes 16 bits a sample and gives one frame for each 1024 of them.
#include "worker/sound/aacencoder.h"

#include "worker/log.h"

#include <vo-aacenc/cmnMemory.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <span>

namespace kxvcr {

namespace {

constexpr std::uint32_t kSamplesPerPacket = 1024;
// What the library looks ahead for its choice of windows (BLOCK_SWITCHING_OFFSET): the overlap of the transform and
// 576.
constexpr std::uint32_t kDelaySamples = 1600;
constexpr std::size_t kLargestFrame = 6144 / 8 * 2 + 8; // what the standard allows two channels, and a word to spare

// AudioSpecificConfig: object type 2 (AAC-LC), index 3 (48 kHz), 2 channels.
static_assert(kSoundRate == 48'000 && kSoundChannels == 2);
constexpr std::byte kConfiguration[] = {std::byte{0x11}, std::byte{0x90}};

// The library's own function for this says that all is well when memory was refused.
VO_U32 Allocate(VO_S32, VO_MEM_INFO* block) {
    block->VBuffer = std::malloc(static_cast<std::size_t>(block->Size));
    return block->VBuffer != nullptr ? VO_ERR_NONE : VO_ERR_OUTOF_MEMORY;
}

// The library allocates through this, and keeps the pointer.
VO_MEM_OPERATOR g_memory = {Allocate, cmnMemFree, cmnMemSet, cmnMemCopy, cmnMemCheck, cmnMemCompare, cmnMemMove};

std::int16_t To16Bits(float sample) noexcept {
    constexpr float kFullScale = 32'767.0F;
    return static_cast<std::int16_t>(std::lrint(std::clamp(sample, -1.0F, 1.0F) * kFullScale));
}

} // namespace

AacEncoder::AacEncoder() : m_input(std::size_t{kSamplesPerPacket} * kSoundChannels), m_output(kLargestFrame) {
    m_format.codec = Codec::AacLc;
    m_format.samplesPerSecond = kSoundRate;
    m_format.channels = kSoundChannels;
    m_format.samplesPerPacket = kSamplesPerPacket;
    m_format.delaySamples = kDelaySamples;
    m_format.decoderConfig.assign(std::begin(kConfiguration), std::end(kConfiguration));
}

AacEncoder::~AacEncoder() {
    if (m_encoder != nullptr) {
        m_library.Uninit(m_encoder);
    }
}

std::unique_ptr<AacEncoder> AacEncoder::Create(std::uint32_t bitsPerSecond) {
    std::unique_ptr<AacEncoder> encoder(new AacEncoder);
    if (!encoder->Begin(bitsPerSecond)) {
        KXVCR_LOG_ERROR(L"The AAC encoder refuses " << bitsPerSecond << L" bits a second");
        return nullptr;
    }
    return encoder;
}

bool AacEncoder::Begin(std::uint32_t bitsPerSecond) noexcept {
    VO_CODEC_INIT_USERDATA memory = {};
    memory.memflag = VO_IMF_USERMEMOPERATOR;
    memory.memData = &g_memory;
    AACENC_PARAM parameters = {};
    parameters.sampleRate = static_cast<int>(kSoundRate);
    parameters.bitRate = static_cast<int>(bitsPerSecond);
    parameters.nChannels = static_cast<short>(kSoundChannels);
    parameters.adtsUsed = 0;
    return voGetAACEncAPI(&m_library) == VO_ERR_NONE &&
           m_library.Init(&m_encoder, VO_AUDIO_CodingAAC, &memory) == VO_ERR_NONE &&
           m_library.SetParam(m_encoder, VO_PID_AAC_ENCPARAM, &parameters) == VO_ERR_NONE;
}

SharedPacket AacEncoder::Encode(std::span<const float> samples, std::int64_t firstFrame) {
    std::ranges::transform(samples.first(m_input.size()), m_input.begin(), To16Bits);
    VO_CODECBUFFER input = {};
    input.Buffer = reinterpret_cast<VO_PBYTE>(m_input.data());
    input.Length = static_cast<VO_U32>(m_input.size() * sizeof(m_input[0]));
    VO_CODECBUFFER output = {};
    output.Buffer = reinterpret_cast<VO_PBYTE>(m_output.data());
    output.Length = static_cast<VO_U32>(m_output.size());
    VO_AUDIO_OUTPUTINFO facts = {};
    if (m_library.SetInputData(m_encoder, &input) != VO_ERR_NONE ||
        m_library.GetOutputData(m_encoder, &output, &facts) != VO_ERR_NONE) {
        KXVCR_LOG_ERROR(L"The AAC encoder failed");
        return nullptr;
    }
    auto packet = std::make_shared<Packet>();
    packet->stream = Stream::Sound;
    packet->isKey = true;
    packet->time = FrameTime(firstFrame - kDelaySamples);
    packet->captured = FrameTime(firstFrame);
    packet->bytes.assign(m_output.begin(), m_output.begin() + output.Length);
    return packet;
}

} // namespace kxvcr
