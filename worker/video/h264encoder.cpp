// Drives openh264: its parameters, key pictures by the clock, and its byte stream's way into packets.
#include "worker/video/h264encoder.h"

#include "worker/log.h"
#include "worker/video/h264stream.h"

#include <wels/codec_api.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <utility>

namespace kxvcr {

namespace {

// The library takes no smaller picture; the largest is that of level 5.2.
constexpr SizeLimits kSizeLimits = {16, 8688, 36864};

// Two threads work on pictures from this size on; below it one is quick enough, and halves predict worse than a whole.
constexpr std::uint64_t kPixelsForTwoThreads = 2560ULL * 1440;
constexpr int kThreads = 2;

void SetColors(SSpatialLayerConfig& layer, ColorMatrix matrix) noexcept {
    const bool is601 = matrix == ColorMatrix::Bt601;
    layer.bVideoSignalTypePresent = true;
    layer.uiVideoFormat = VF_UNDEF;
    layer.bFullRange = false;
    layer.bColorDescriptionPresent = true;
    layer.uiColorPrimaries = static_cast<unsigned char>(is601 ? CP_SMPTE170M : CP_BT709);
    layer.uiTransferCharacteristics = TRC_BT709;
    layer.uiColorMatrix = static_cast<unsigned char>(is601 ? CM_SMPTE170M : CM_BT709);
}

void LogLibraryText(void*, int, const char* text) noexcept {
    KXVCR_LOG_WARN(L"openh264: " << LOG4CPLUS_C_STR_TO_TSTRING(text));
}

// The quantiser is set for each picture, so that the library's own rate control is off.
SEncParamExt Parameters(ISVCEncoder& encoder, const PictureFormat& format, Effort effort, int quantiser) noexcept {
    SEncParamExt parameters = {};
    encoder.GetDefaultParams(&parameters);
    parameters.iUsageType = effort == Effort::Screen ? SCREEN_CONTENT_REAL_TIME : CAMERA_VIDEO_REAL_TIME;
    parameters.iPicWidth = static_cast<int>(format.width);
    parameters.iPicHeight = static_cast<int>(format.height);
    parameters.fMaxFrameRate = static_cast<float>(format.framesPerSecond);
    parameters.iRCMode = RC_OFF_MODE;
    parameters.bEnableFrameSkip = false;
    parameters.iComplexityMode = LOW_COMPLEXITY;
    parameters.iEntropyCodingModeFlag = 1;
    parameters.eSpsPpsIdStrategy = CONSTANT_ID;
    parameters.uiIntraPeriod = 0; // key pictures are asked for
    parameters.iNumRefFrame = 1;
    parameters.bEnableSceneChangeDetect = true;
    parameters.bEnableDenoise = false;
    parameters.bEnableBackgroundDetection = effort == Effort::Camera;
    parameters.bEnableAdaptiveQuant = false;
    parameters.bEnableLongTermReference = false;
    const bool hasTwoThreads = std::uint64_t{format.width} * format.height >= kPixelsForTwoThreads;
    parameters.iMultipleThreadIdc = static_cast<unsigned short>(hasTwoThreads ? kThreads : 1);
    SSpatialLayerConfig& layer = parameters.sSpatialLayers[0];
    layer.iVideoWidth = parameters.iPicWidth;
    layer.iVideoHeight = parameters.iPicHeight;
    layer.fFrameRate = parameters.fMaxFrameRate;
    layer.iDLayerQp = quantiser;
    layer.uiProfileIdc = PRO_HIGH;
    layer.sSliceArgument.uiSliceMode = hasTwoThreads ? SM_FIXEDSLCNUM_SLICE : SM_SINGLE_SLICE;
    layer.sSliceArgument.uiSliceNum = hasTwoThreads ? kThreads : 1;
    SetColors(layer, format.matrix);
    return parameters;
}

SSourcePicture SourceOf(YuvPicture& yuv, MediaTime time) noexcept {
    SSourcePicture source = {};
    source.iColorFormat = videoFormatI420;
    source.iStride[0] = static_cast<int>(yuv.LumaStride());
    source.iStride[1] = source.iStride[2] = static_cast<int>(yuv.ChromaStride());
    source.pData[0] = yuv.Luma();
    source.pData[1] = yuv.Blue();
    source.pData[2] = yuv.Red();
    source.iPicWidth = static_cast<int>(yuv.Width());
    source.iPicHeight = static_cast<int>(yuv.Height());
    source.uiTimeStamp = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
    return source;
}

// Calls @p take with each unit of a picture, without its start code.
template <class Take>
void ForEachUnit(const SFrameBSInfo& picture, Take take) {
    for (int i = 0; i < picture.iLayerNum; ++i) {
        const SLayerBSInfo& layer = picture.sLayerInfo[i];
        const auto* bytes = reinterpret_cast<const std::byte*>(layer.pBsBuf);
        for (int j = 0; j < layer.iNalCount; ++j) {
            const auto size = static_cast<std::size_t>(layer.pNalLengthInByte[j]);
            if (const ByteView unit = WithoutStartCode({bytes, size}); !unit.empty()) {
                take(unit);
            }
            bytes += size;
        }
    }
}

// Without bytes when the library left the picture out.
std::shared_ptr<Packet> PacketOf(const SFrameBSInfo& coded) {
    constexpr std::size_t kLengthBytes = 4; // in place of a unit's start code, which may be shorter
    auto packet = std::make_shared<Packet>();
    packet->bytes.reserve(static_cast<std::size_t>(coded.iFrameSizeInBytes) + kThreads * kLengthBytes);
    ForEachUnit(coded, [&packet](ByteView unit) {
        const H264Unit kind = KindOf(unit);
        if (kind == H264Unit::Picture || kind == H264Unit::KeyPicture) {
            packet->isKey = kind == H264Unit::KeyPicture;
            AppendWithLength(unit, packet->bytes);
        }
    });
    return packet;
}

} // namespace

std::unique_ptr<H264Encoder> H264Encoder::Create(std::shared_ptr<const H264Library> library,
                                                 const EncoderSettings& settings) {
    H264Library::Encoder encoder = H264Library::CreateEncoder(std::move(library));
    if (encoder == nullptr) {
        KXVCR_LOG_ERROR(L"The H.264 encoder cannot be made");
        return nullptr;
    }
    std::unique_ptr<H264Encoder> made(new H264Encoder(std::move(encoder), settings));
    if (!made->Begin() || !made->ReadFormat()) {
        KXVCR_LOG_ERROR(L"The H.264 encoder refuses pictures of " << settings.width << L'x' << settings.height);
        return nullptr;
    }
    return made;
}

H264Encoder::H264Encoder(H264Library::Encoder encoder, const EncoderSettings& settings)
    : m_settings(settings),
      m_input(settings.width, settings.height, kSizeLimits),
      m_encoder(std::move(encoder)),
      m_format{Codec::H264,
               m_input.Picture().Width(),
               m_input.Picture().Height(),
               settings.framesPerSecond,
               m_input.Matrix(),
               {}},
      m_rateControl(QuantiserOf(settings.quality), BitRateOf(settings, m_format.width, m_format.height)) {
    int level = WELS_LOG_ERROR;
    WelsTraceCallback callback = LogLibraryText;
    m_encoder->SetOption(ENCODER_OPTION_TRACE_LEVEL, &level);
    m_encoder->SetOption(ENCODER_OPTION_TRACE_CALLBACK, &callback);
}

bool H264Encoder::Begin() noexcept {
    m_encoder->Uninitialize();
    m_effort = m_wantedEffort;
    m_quantiser = QuantiserOf(m_settings.quality);
    const SEncParamExt parameters = Parameters(*m_encoder, m_format, m_effort, m_quantiser);
    m_isReady = m_encoder->InitializeExt(&parameters) == cmResultSuccess;
    return m_isReady;
}

bool H264Encoder::SetQuantiser(int quantiser) noexcept {
    if (quantiser == m_quantiser) {
        return true;
    }
    m_quantiser = quantiser;
    SEncParamExt parameters = Parameters(*m_encoder, m_format, m_effort, quantiser);
    return m_encoder->SetOption(ENCODER_OPTION_SVC_ENCODE_PARAM_EXT, &parameters) == cmResultSuccess;
}

bool H264Encoder::ReadFormat() {
    SFrameBSInfo sets = {};
    if (m_encoder->EncodeParameterSets(&sets) != cmResultSuccess) {
        return false;
    }
    ByteView sequence;
    ByteView picture;
    ForEachUnit(sets, [&](ByteView unit) {
        if (KindOf(unit) == H264Unit::SequenceParameters) {
            sequence = unit;
        } else if (KindOf(unit) == H264Unit::PictureParameters) {
            picture = unit;
        }
    });
    constexpr std::size_t kUpToLevel = 4;
    if (sequence.size() < kUpToLevel || picture.empty()) {
        return false;
    }
    m_format.decoderConfig = DecoderConfigurationRecord(sequence, picture);
    return true;
}

// Another effort needs a new start, whose first key picture has the number that the first of every start has: two key
// pictures in a row must not have the same, so that one after a key picture waits for the next.
bool H264Encoder::Prepare() noexcept {
    if (m_isReady && (m_effort == m_wantedEffort || m_lastWasKey)) {
        return true;
    }
    return Begin();
}

SharedPacket H264Encoder::Encode(const PictureView& picture, MediaTime time, bool key) {
    SharedPacket packet;
    try {
        packet = TryEncode(picture, time, key);
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"No memory for an H.264 picture");
    }
    if (packet == nullptr) {
        m_isReady = false;
        m_lastWasKey = false;
        m_input.Forget();
    }
    return packet;
}

SharedPacket H264Encoder::TryEncode(const PictureView& picture, MediaTime time, bool key) {
    const bool starts = !m_isReady;
    if (!Prepare()) {
        KXVCR_LOG_ERROR(L"The H.264 encoder does not start again");
        return nullptr;
    }
    if (!m_input.Update(picture)) {
        KXVCR_LOG_ERROR(L"A picture of " << picture.width << L'x' << picture.height
                                         << L" does not fit the H.264 encoder");
        return nullptr;
    }
    if (!SetQuantiser(m_rateControl.QuantiserAt(time))) {
        KXVCR_LOG_ERROR(L"The H.264 encoder refuses the quantiser " << m_quantiser);
        return nullptr;
    }
    if (starts || key || m_keyClock.IsDue(time)) {
        m_encoder->ForceIntraFrame(true);
    }
    const SSourcePicture source = SourceOf(m_input.Picture(), time);
    SFrameBSInfo coded = {};
    if (const int error = m_encoder->EncodeFrame(&source, &coded); error != cmResultSuccess) {
        KXVCR_LOG_ERROR(L"The H.264 encoder fails with " << error);
        return nullptr;
    }
    const std::shared_ptr<Packet> packet = PacketOf(coded);
    if (packet->bytes.empty()) {
        KXVCR_LOG_ERROR(L"The H.264 encoder left a picture out");
        return nullptr;
    }
    packet->time = time;
    packet->captured = picture.captured;
    m_rateControl.Spend(packet->bytes.size());
    m_lastWasKey = packet->isKey;
    if (packet->isKey) {
        m_keyClock.Made(time);
    }
    return packet;
}

} // namespace kxvcr
