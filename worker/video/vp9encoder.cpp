// Drives libvpx: its settings, a quantiser for each picture, and the record that a file has for the decoder.
#include "worker/video/vp9encoder.h"

#include "worker/log.h"

#include <vpx/vp8cx.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace kxvcr {

namespace {

constexpr SizeLimits kSizeLimits = {2, 16384, 16384ULL * 16384 / 256};
constexpr int kSpeed = 8; // what real time takes
constexpr unsigned int kLargestQuantiser = 63;

// Two threads work on pictures from this size on, each on a half of its columns.
constexpr std::uint64_t kPixelsForTwoThreads = 1920ULL * 1080;
constexpr unsigned int kThreads = 2;

// What H.264 calls 12 to 51 is here 4 to 63.
unsigned int FromH264(int quantiser) noexcept {
    constexpr int kFirst = 12;
    constexpr int kLast = 51;
    constexpr int kAtFirst = 4;
    const int above = std::clamp(quantiser, kFirst, kLast) - kFirst;
    return static_cast<unsigned int>(kAtFirst +
                                     above * (static_cast<int>(kLargestQuantiser) - kAtFirst) / (kLast - kFirst));
}

struct Level {
    std::uint8_t level;
    double samplesPerSecond;
    std::uint64_t samples;
    std::uint32_t side;
};

constexpr Level kLevels[] = {
    {10, 829'440, 36'864, 512},
    {11, 2'764'800, 73'728, 768},
    {20, 4'608'000, 122'880, 960},
    {21, 9'216'000, 245'760, 1344},
    {30, 20'736'000, 552'960, 2048},
    {31, 36'864'000, 983'040, 2752},
    {40, 83'558'400, 2'228'224, 4160},
    {41, 160'432'128, 2'228'224, 4160},
    {50, 311'951'360, 8'912'896, 8384},
    {51, 588'251'136, 8'912'896, 8384},
    {52, 1'176'502'272, 8'912'896, 8384},
    {60, 1'176'502'272, 35'651'584, 16832},
    {61, 2'353'004'544, 35'651'584, 16832},
    {62, 4'706'009'088, 35'651'584, 16832},
};

std::uint8_t LevelOf(const PictureFormat& format) noexcept {
    const std::uint64_t samples = std::uint64_t{format.width} * format.height;
    for (const Level& level : kLevels) {
        if (samples <= level.samples && std::max(format.width, format.height) <= level.side &&
            static_cast<double>(samples) * format.framesPerSecond <= level.samplesPerSecond) {
            return level.level;
        }
    }
    return std::rbegin(kLevels)->level;
}

std::vector<std::byte> DecoderConfigurationRecord(const PictureFormat& format) {
    constexpr std::uint8_t kEightBits = 8 << 4;
    constexpr std::uint8_t k420 = 1 << 1;
    const ColorCodes codes = CodesOf(format.matrix);
    return {
        std::byte{0}, // profile
        static_cast<std::byte>(LevelOf(format)),
        std::byte{kEightBits | k420}, // limited range
        static_cast<std::byte>(codes.primaries),
        static_cast<std::byte>(codes.transfer),
        static_cast<std::byte>(codes.matrix),
        std::byte{0}, // no further data
        std::byte{0},
    };
}

template <class Value>
bool Set(vpx_codec_ctx_t& context, int control, Value value) noexcept {
    return vpx_codec_control_(&context, control, value) == VPX_CODEC_OK;
}

bool Tune(vpx_codec_ctx_t& context, ColorMatrix matrix, bool hasTwoThreads) noexcept {
    return Set(context, VP8E_SET_CPUUSED, kSpeed) && Set(context, VP9E_SET_TUNE_CONTENT, int{VP9E_CONTENT_SCREEN}) &&
           Set(context, VP9E_SET_ROW_MT, 1U) && Set(context, VP9E_SET_TILE_COLUMNS, hasTwoThreads ? 1 : 0) &&
           Set(context, VP9E_SET_AQ_MODE, 0U) && Set(context, VP9E_SET_FRAME_PARALLEL_DECODING, 0U) &&
           Set(context, VP9E_SET_COLOR_SPACE, int{matrix == ColorMatrix::Bt601 ? VPX_CS_BT_601 : VPX_CS_BT_709}) &&
           Set(context, VP9E_SET_COLOR_RANGE, int{VPX_CR_STUDIO_RANGE});
}

std::wstring Wide(const char* text) {
    return LOG4CPLUS_C_STR_TO_TSTRING(text != nullptr ? text : "no reason given");
}

} // namespace

void Vp9Encoder::ContextDeleter::operator()(vpx_codec_ctx_t* context) const noexcept {
    vpx_codec_destroy(context);
    delete context;
}

std::unique_ptr<Vp9Encoder> Vp9Encoder::Create(const EncoderSettings& settings) {
    std::unique_ptr<Vp9Encoder> made(new Vp9Encoder(settings));
    if (!made->Begin()) {
        return nullptr;
    }
    return made;
}

Vp9Encoder::Vp9Encoder(const EncoderSettings& settings)
    : m_input(settings.width, settings.height, kSizeLimits),
      m_format{Codec::Vp9,
               std::min(m_input.Picture().Width(), settings.width),
               std::min(m_input.Picture().Height(), settings.height),
               settings.framesPerSecond,
               m_input.Matrix(),
               {}},
      m_rateControl(QuantiserOf(settings.quality), BitRateOf(settings, m_format.width, m_format.height)) {
    m_format.decoderConfig = DecoderConfigurationRecord(m_format);
}

bool Vp9Encoder::Begin() {
    m_context.reset();
    vpx_codec_iface_t* const codec = vpx_codec_vp9_cx();
    vpx_codec_enc_config_default(codec, &m_configuration, 0);
    const bool hasTwoThreads = std::uint64_t{m_format.width} * m_format.height >= kPixelsForTwoThreads;
    m_configuration.g_w = m_format.width;
    m_configuration.g_h = m_format.height;
    m_configuration.g_timebase = {MediaTime::period::num, MediaTime::period::den};
    m_configuration.g_threads = hasTwoThreads ? kThreads : 1;
    m_configuration.g_pass = VPX_RC_ONE_PASS;
    m_configuration.g_lag_in_frames = 0;
    m_configuration.g_error_resilient = 0;
    m_configuration.rc_end_usage = VPX_CBR;
    m_configuration.rc_dropframe_thresh = 0;
    m_configuration.kf_mode = VPX_KF_DISABLED; // key pictures are asked for
    auto context = std::make_unique<vpx_codec_ctx_t>();
    if (vpx_codec_enc_init(context.get(), codec, &m_configuration, 0) != VPX_CODEC_OK) {
        KXVCR_LOG_ERROR(L"The VP9 encoder refuses pictures of " << m_format.width << L'x' << m_format.height << L": "
                                                                << Wide(vpx_codec_error_detail(context.get())));
        return false;
    }
    m_context = Context(context.release());
    if (!Tune(*m_context, m_format.matrix, hasTwoThreads)) {
        KXVCR_LOG_ERROR(L"The VP9 encoder refuses a setting: " << Wide(vpx_codec_error(m_context.get())));
        m_context.reset();
        return false;
    }
    return true;
}

bool Vp9Encoder::SetQuantiser(unsigned int quantiser) noexcept {
    if (m_configuration.rc_min_quantizer == quantiser && m_configuration.rc_max_quantizer == quantiser) {
        return true;
    }
    m_configuration.rc_min_quantizer = quantiser;
    m_configuration.rc_max_quantizer = quantiser;
    return vpx_codec_enc_config_set(m_context.get(), &m_configuration) == VPX_CODEC_OK;
}

SharedPacket Vp9Encoder::Encode(const PictureView& picture, MediaTime time, bool key) {
    SharedPacket packet;
    try {
        packet = TryEncode(picture, time, key);
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"No memory for a VP9 picture");
    }
    if (packet == nullptr) {
        m_context.reset();
        m_input.Forget();
    }
    return packet;
}

bool Vp9Encoder::Code(MediaTime time, bool key) noexcept {
    YuvPicture& yuv = m_input.Picture();
    vpx_image_t image = {};
    vpx_img_wrap(&image, VPX_IMG_FMT_I420, m_format.width, m_format.height, 1, yuv.Luma());
    image.planes[VPX_PLANE_Y] = yuv.Luma();
    image.planes[VPX_PLANE_U] = yuv.Blue();
    image.planes[VPX_PLANE_V] = yuv.Red();
    image.stride[VPX_PLANE_Y] = static_cast<int>(yuv.LumaStride());
    image.stride[VPX_PLANE_U] = image.stride[VPX_PLANE_V] = static_cast<int>(yuv.ChromaStride());
    const auto duration = static_cast<unsigned long>(SlotTime(1, m_format.framesPerSecond).count());
    return vpx_codec_encode(m_context.get(), &image, time.count(), duration, key ? VPX_EFLAG_FORCE_KF : 0,
                            VPX_DL_REALTIME) == VPX_CODEC_OK;
}

SharedPacket Vp9Encoder::TryEncode(const PictureView& picture, MediaTime time, bool key) {
    const bool starts = m_context == nullptr;
    if (starts && !Begin()) {
        return nullptr;
    }
    if (!m_input.Update(picture)) {
        KXVCR_LOG_ERROR(L"A picture of " << picture.width << L'x' << picture.height
                                         << L" does not fit the VP9 encoder");
        return nullptr;
    }
    if (!SetQuantiser(FromH264(m_rateControl.QuantiserAt(time))) ||
        !Code(time, starts || key || m_keyClock.IsDue(time))) {
        KXVCR_LOG_ERROR(L"The VP9 encoder fails: " << Wide(vpx_codec_error_detail(m_context.get())));
        return nullptr;
    }
    vpx_codec_iter_t next = nullptr;
    const vpx_codec_cx_pkt_t* const coded = vpx_codec_get_cx_data(m_context.get(), &next);
    if (coded == nullptr || coded->kind != VPX_CODEC_CX_FRAME_PKT) {
        KXVCR_LOG_ERROR(L"The VP9 encoder left a picture out");
        return nullptr;
    }
    const auto packet = std::make_shared<Packet>();
    packet->isKey = (coded->data.frame.flags & VPX_FRAME_IS_KEY) != 0;
    packet->time = time;
    packet->captured = picture.captured;
    const auto* bytes = static_cast<const std::byte*>(coded->data.frame.buf);
    packet->bytes.assign(bytes, bytes + coded->data.frame.sz);
    m_rateControl.Spend(packet->bytes.size());
    if (packet->isKey) {
        m_keyClock.Made(time);
    }
    return packet;
}

} // namespace kxvcr
