// Chooses the encoder of a codec, and says in one result why there is none.
#include "worker/video/makeencoder.h"

#include "worker/log.h"
#include "worker/video/h264encoder.h"
#include "worker/video/h264library.h"
#include "worker/video/vp9encoder.h"

#include <new>
#include <utility>

namespace kxvcr {

namespace {

MadeEncoder Made(std::unique_ptr<VideoEncoder> encoder) noexcept {
    const Result result = encoder != nullptr ? Result::Accepted : Result::EncoderFailed;
    return {std::move(encoder), result};
}

MadeEncoder MakeH264Encoder(const EncoderSettings& settings) {
    std::shared_ptr<const H264Library> library = H264Library::Load(H264Library::DefaultPath());
    if (library == nullptr) {
        return {nullptr, Result::EncoderMissing};
    }
    return Made(H264Encoder::Create(std::move(library), settings));
}

} // namespace

MadeEncoder MakeEncoder(Codec codec, const EncoderSettings& settings) noexcept {
    try {
        if (codec == Codec::H264) {
            return MakeH264Encoder(settings);
        }
        if (codec == Codec::Vp9) {
            return Made(Vp9Encoder::Create(settings));
        }
        KXVCR_LOG_ERROR(L"There is no video encoder for codec " << static_cast<int>(codec));
        return {nullptr, Result::EncoderFailed};
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"No memory for a video encoder");
        return {nullptr, Result::OutOfResources};
    }
}

} // namespace kxvcr
