/**
 * @file
 * Encodes pictures as H.264 with openh264.
 */
#pragma once

#include "worker/video/encoderinput.h"
#include "worker/video/h264library.h"
#include "worker/video/keyclock.h"
#include "worker/video/ratecontrol.h"
#include "worker/video/videoencoder.h"

#include <memory>

namespace kxvcr {

/** High profile, one picture back, no picture ever left out; the parameter sets never change. */
class H264Encoder final : public VideoEncoder {
public:
    /**
     * @return null, after an ERROR in the log, when the library refuses the settings
     * @throws std::bad_alloc
     */
    static std::unique_ptr<H264Encoder> Create(std::shared_ptr<const H264Library> library,
                                               const EncoderSettings& settings);

    const PictureFormat& Format() const noexcept override { return m_format; }
    SharedPacket Encode(const PictureView& picture, MediaTime time, bool key) override;
    void SetEffort(Effort effort) noexcept override { m_wantedEffort = effort; }
    void SetKeyInterval(MediaTime interval) noexcept override { m_keyClock.SetInterval(interval); }

private:
    H264Encoder(H264Library::Encoder encoder, const EncoderSettings& settings);

    bool Begin() noexcept;
    bool ReadFormat();
    bool SetQuantiser(int quantiser) noexcept;
    bool Prepare() noexcept;
    SharedPacket TryEncode(const PictureView& picture, MediaTime time, bool key);

    EncoderSettings m_settings;
    EncoderInput m_input;
    H264Library::Encoder m_encoder;
    PictureFormat m_format;
    KeyClock m_keyClock;
    RateControl m_rateControl;
    int m_quantiser = 0;
    Effort m_effort = Effort::Screen;
    Effort m_wantedEffort = Effort::Screen;
    bool m_isReady = false;    ///< false until the encoder is initialised, and again after a failure
    bool m_lastWasKey = false; ///< of the picture before
};

} // namespace kxvcr
