// The sound devices as the system lists them, which is what the worker finds too.
#include "host/sounddevices.h"

#include "sdk/vcr/workerprotocol.h"

#include <windows.h>

#include <stdexcept>

namespace kxrecord {

std::vector<kx::SoundEndpoint> CurrentSounds() {
    const kx::ComApartment apartment;
    const kx::ComPtr<IMMDeviceEnumerator> devices = kx::SoundDevices();
    if (!devices) {
        throw std::runtime_error("the system has no list of sound devices");
    }
    return kx::SoundEndpoints(*devices.Get());
}

void ChooseSoundDevices(const SoundDevices& devices) {
    if (!devices.machine.empty()) {
        SetEnvironmentVariableW(kxvcr::kMachineSoundVariable, devices.machine.c_str());
    }
    if (!devices.microphone.empty()) {
        SetEnvironmentVariableW(kxvcr::kMicrophoneVariable, devices.microphone.c_str());
    }
}

} // namespace kxrecord
