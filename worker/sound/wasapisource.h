/**
 * @file
 * What the machine plays and what its microphones hear, through the system's audio service (WASAPI).
 */
#pragma once

#include "worker/settings.h"
#include "worker/sound/soundsource.h"

#include <memory>
#include <string>
#include <vector>

namespace kxvcr {

/** Which devices are recorded: an id or a name for each; empty is the system's default. */
struct SoundChoice {
    std::wstring machine;
    std::wstring microphone;
};

/**
 * The choice of this process: the environment variables KXVCR_MACHINE_SOUND and KXVCR_MICROPHONE, else the values
 * Machine and Microphone in the section Sound of config\KXVCR.ini beside the worker.
 */
SoundChoice ReadSoundChoice();

/**
 * Sources for what is asked for. A device that plays is recorded while it plays; one that listens is listened to, also
 * when it was chosen for the machine's sound. A default device is followed when the user chooses another.
 * @throws std::bad_alloc
 */
std::vector<std::unique_ptr<SoundSource>> MakeSoundSources(const SoundSettings& settings, const SoundChoice& choice);

} // namespace kxvcr
