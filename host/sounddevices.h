/**
 * @file
 * The sound devices of this machine, and those that are recorded.
 */
#pragma once

#include "common/win/soundendpoints.h"

#include <string>
#include <vector>

namespace kxrecord {

/** The devices that are plugged in. @throws std::runtime_error when the system has no list of them */
std::vector<kx::SoundEndpoint> CurrentSounds();

/** Devices to record instead of the system's default: an id or a name each; empty is the default. */
struct SoundDevices {
    std::wstring machine;
    std::wstring microphone;
};

/** Tells the worker, which is started afterwards, what to record: through the environment that it inherits. */
void ChooseSoundDevices(const SoundDevices& devices);

} // namespace kxrecord
