/**
 * @file
 * Makes the encoder of the sound that goes with a codec of pictures.
 */
#pragma once

#include "worker/packet.h"
#include "worker/sound/soundencoder.h"

#include <memory>

namespace kxvcr {

/**
 * Opus beside VP9, AAC-LC beside everything else.
 * @return null, after an ERROR in the log, when there is none
 */
std::unique_ptr<SoundEncoder> MakeSoundEncoder(Codec picture) noexcept;

} // namespace kxvcr
