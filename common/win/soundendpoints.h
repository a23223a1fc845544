/**
 * @file
 * The sound devices of the machine, and the one that a text means.
 */
#pragma once

#include "common/win/com.h"

#include <mmdeviceapi.h>
#include <windows.h>

#include <cwctype>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

/** One device that sound can be taken from. */
struct SoundEndpoint {
    std::wstring id;        ///< the system's, which stays the same
    std::wstring name;      ///< as the system shows it
    bool isCapture = false; ///< a microphone or the like; else one that plays
    bool isDefault = false; ///< what is taken when none is chosen
};

namespace detail {

/** A text that COM allocated. */
using TaskText = Owner<FreedBy<LPWSTR, &CoTaskMemFree>>;

/** A value of a property store; freed with it. */
class PropertyValue {
public:
    PropertyValue() noexcept { PropVariantInit(&m_value); }
    ~PropertyValue() { PropVariantClear(&m_value); }
    PropertyValue(const PropertyValue&) = delete;
    PropertyValue& operator=(const PropertyValue&) = delete;

    PROPVARIANT* Receive() noexcept { return &m_value; }
    std::wstring Text() const { return m_value.vt == VT_LPWSTR ? m_value.pwszVal : L""; }

private:
    PROPVARIANT m_value;
};

inline std::wstring IdOf(IMMDevice& device) {
    TaskText id;
    return SUCCEEDED(device.GetId(id.Receive())) ? std::wstring(id.Get()) : std::wstring();
}

inline std::wstring NameOf(IMMDevice& device) {
    constexpr PROPERTYKEY kFriendlyName = {
        {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};
    ComPtr<IPropertyStore> properties;
    PropertyValue name;
    if (FAILED(device.OpenPropertyStore(STGM_READ, properties.Receive())) ||
        FAILED(properties->GetValue(kFriendlyName, name.Receive()))) {
        return {};
    }
    return name.Text();
}

inline std::wstring LowerCase(std::wstring_view text) {
    std::wstring lower(text);
    for (wchar_t& letter : lower) {
        letter = static_cast<wchar_t>(std::towlower(letter));
    }
    return lower;
}

} // namespace detail

/** The system's list of sound devices; null when it has none. The thread must be in an apartment of COM. */
inline ComPtr<IMMDeviceEnumerator> SoundDevices() noexcept {
    ComPtr<IMMDeviceEnumerator> devices;
    CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(devices.Receive()));
    return devices;
}

/** The id of the device that the system plays on, or listens to, by default; empty when there is none. */
inline std::wstring DefaultSoundEndpoint(IMMDeviceEnumerator& devices, bool isCapture) {
    ComPtr<IMMDevice> device;
    const EDataFlow flow = isCapture ? eCapture : eRender;
    return SUCCEEDED(devices.GetDefaultAudioEndpoint(flow, eConsole, device.Receive())) ? detail::IdOf(*device.Get())
                                                                                        : std::wstring();
}

/** The devices that are plugged in: those that play, then those that listen. */
inline std::vector<SoundEndpoint> SoundEndpoints(IMMDeviceEnumerator& devices) {
    std::vector<SoundEndpoint> found;
    for (const bool isCapture : {false, true}) {
        const std::wstring usual = DefaultSoundEndpoint(devices, isCapture);
        ComPtr<IMMDeviceCollection> collection;
        UINT count = 0;
        if (FAILED(devices.EnumAudioEndpoints(isCapture ? eCapture : eRender, DEVICE_STATE_ACTIVE,
                                              collection.Receive())) ||
            FAILED(collection->GetCount(&count))) {
            continue;
        }
        for (UINT i = 0; i < count; ++i) {
            ComPtr<IMMDevice> device;
            if (SUCCEEDED(collection->Item(i, device.Receive()))) {
                const std::wstring id = detail::IdOf(*device.Get());
                found.push_back({id, detail::NameOf(*device.Get()), isCapture, id == usual});
            }
        }
    }
    return found;
}

/**
 * The endpoint that a text means: the one with this id or with this name, else the only one whose name has
 * it as a part; without regard to case. @return none when there is none, or when a part fits several
 */
inline std::optional<SoundEndpoint> FindSoundEndpoint(const std::vector<SoundEndpoint>& endpoints,
                                                      std::wstring_view wanted) {
    const std::wstring text = detail::LowerCase(wanted);
    std::optional<SoundEndpoint> partly;
    bool isOnly = true;
    for (const SoundEndpoint& endpoint : endpoints) {
        const std::wstring name = detail::LowerCase(endpoint.name);
        if (detail::LowerCase(endpoint.id) == text || name == text) {
            return endpoint;
        }
        if (name.find(text) != std::wstring::npos) {
            isOnly = isOnly && !partly;
            partly = endpoint;
        }
    }
    return isOnly ? partly : std::nullopt;
}

} // namespace kx
