/**
 * @file
 * Makes the encoder of a codec.
 */
#pragma once

#include "sdk/vcr/workerprotocol.h"
#include "worker/packet.h"
#include "worker/video/videoencoder.h"

#include <memory>

namespace kxvcr {

/** An encoder, or why there is none. */
struct MadeEncoder {
    std::unique_ptr<VideoEncoder> encoder; ///< null unless the result is Accepted
    Result result = Result::EncoderFailed; ///< Accepted, EncoderMissing, EncoderFailed or OutOfResources
};

/**
 * Makes the encoder of a codec; a failure is logged.
 * @param codec H264 or Vp9
 */
MadeEncoder MakeEncoder(Codec codec, const EncoderSettings& settings) noexcept;

} // namespace kxvcr
