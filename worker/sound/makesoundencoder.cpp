// Chooses the encoder of the sound and its bit rate.
#include "worker/sound/makesoundencoder.h"

#include "worker/log.h"
#include "worker/sound/aacencoder.h"
#include "worker/sound/opusencoder.h"

#include <cstdint>
#include <new>

namespace kxvcr {

namespace {

// Bits a second at which music in stereo is hardly told from its source; Opus needs fewer.
constexpr std::uint32_t kAacBitRate = 160'000;
constexpr std::uint32_t kOpusBitRate = 128'000;

} // namespace

std::unique_ptr<SoundEncoder> MakeSoundEncoder(Codec picture) noexcept {
    try {
        if (picture == Codec::Vp9) {
            return OpusSoundEncoder::Create(kOpusBitRate);
        }
        return AacEncoder::Create(kAacBitRate);
    } catch (const std::bad_alloc&) {
        KXVCR_LOG_ERROR(L"No memory for a sound encoder");
        return nullptr;
    }
}

} // namespace kxvcr
