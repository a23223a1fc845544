/**
 * @file
 * Encodes pictures as VP9 with libvpx.
 */
#pragma once

#include "worker/video/encoderinput.h"
#include "worker/video/keyclock.h"
#include "worker/video/ratecontrol.h"
#include "worker/video/videoencoder.h"

#include <vpx/vpx_encoder.h>

#include <memory>

namespace kxvcr {

/** Profile 0, tuned for screens and real time; no picture is ever left out or held back. */
class Vp9Encoder final : public VideoEncoder {
public:
    /**
     * @return null, after an ERROR in the log, when the library refuses the settings
     * @throws std::bad_alloc
     */
    static std::unique_ptr<Vp9Encoder> Create(const EncoderSettings& settings);

    const PictureFormat& Format() const noexcept override { return m_format; }
    SharedPacket Encode(const PictureView& picture, MediaTime time, bool key) override;
    void SetEffort(Effort) noexcept override {}
    void SetKeyInterval(MediaTime interval) noexcept override { m_keyClock.SetInterval(interval); }

private:
    struct ContextDeleter {
        void operator()(vpx_codec_ctx_t* context) const noexcept;
    };
    using Context = std::unique_ptr<vpx_codec_ctx_t, ContextDeleter>;

    explicit Vp9Encoder(const EncoderSettings& settings);

    bool Begin();
    bool SetQuantiser(unsigned int quantiser) noexcept;
    bool Code(MediaTime time, bool key) noexcept;
    SharedPacket TryEncode(const PictureView& picture, MediaTime time, bool key);

    EncoderInput m_input;
    PictureFormat m_format;
    KeyClock m_keyClock;
    RateControl m_rateControl;
    vpx_codec_enc_cfg_t m_configuration = {};
    Context m_context; ///< null until the encoder is initialised, and again after a failure
};

} // namespace kxvcr
