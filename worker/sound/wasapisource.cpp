// Sound through WASAPI, shared with everybody else on the machine. Polled: an event is not told for what the machine
// plays on every version of Windows.
#include "worker/sound/wasapisource.h"

#include "common/win/com.h"
#include "common/win/modulepath.h"
#include "common/win/soundendpoints.h"
#include "worker/ticks.h"

#include "sdk/vcr/workerprotocol.h"

#include <audioclient.h>
#include <mmreg.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <utility>

namespace kxvcr {

namespace {

constexpr REFERENCE_TIME kDeviceBuffer = 10'000'000; // 100 ns: what the system keeps while nobody reads
constexpr std::int64_t kLookForDefaultSeconds = 1;

using MixFormat = kx::Owner<kx::FreedBy<WAVEFORMATEX*, &CoTaskMemFree>>;

// The tag that a format's GUID stands for (KSDATAFORMAT_SUBTYPE_...); 0 when it stands for none.
WORD TagOf(const GUID& type) noexcept {
    constexpr GUID kOfTag0 = {0, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
    GUID rest = type;
    rest.Data1 = 0;
    return IsEqualGUID(rest, kOfTag0) && type.Data1 <= 0xFFFF ? static_cast<WORD>(type.Data1) : WORD{0};
}

// The sample type of a format; none when it is no plain sound.
std::optional<SampleType> TypeOf(const WAVEFORMATEX& format) noexcept {
    const bool isExtended = format.wFormatTag == WAVE_FORMAT_EXTENSIBLE;
    const WORD tag =
        isExtended ? TagOf(reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format).SubFormat) : format.wFormatTag;
    const bool isFloat = tag == WAVE_FORMAT_IEEE_FLOAT;
    const bool isInteger = tag == WAVE_FORMAT_PCM;
    if (isFloat && format.wBitsPerSample == 32) {
        return SampleType::Float32;
    }
    constexpr std::pair<WORD, SampleType> kIntegers[] = {
        {16, SampleType::Int16}, {24, SampleType::Int24}, {32, SampleType::Int32}};
    for (const auto& [bits, type] : kIntegers) {
        if (isInteger && format.wBitsPerSample == bits) {
            return type;
        }
    }
    return std::nullopt;
}

// A time of the audio service, in 100 ns of the performance counter, in its ticks.
std::int64_t TicksOf(std::uint64_t time) noexcept {
    constexpr std::uint64_t kPerSecond = 10'000'000;
    const auto perSecond = static_cast<std::uint64_t>(TicksPerSecond());
    return static_cast<std::int64_t>(time / kPerSecond * perSecond + time % kPerSecond * perSecond / kPerSecond);
}

class WasapiSource final : public SoundSource {
public:
    WasapiSource(bool isMicrophone, std::wstring wanted) : m_isMicrophone(isMicrophone), m_wanted(std::move(wanted)) {}

    std::wstring Name() const override {
        const std::wstring what = m_isMicrophone ? L"the microphone" : L"the machine's sound";
        return m_name.empty() ? what : what + L" (" + m_name + L")";
    }
    std::wstring Problem() const override { return m_problem; }
    DeviceFormat Format() const override { return m_format; }

    bool Open() override;
    Read Next(SoundPiece& piece) override;

private:
    bool Fail(std::wstring problem);
    bool Fail(const wchar_t* step, HRESULT result);
    bool ChooseEndpoint();
    bool ReadFormat(const WAVEFORMATEX& format);
    bool Begin(IMMDevice& device);
    bool DefaultHasChanged();
    void Return() noexcept;

    bool m_isMicrophone;
    std::wstring m_wanted;
    std::wstring m_problem;
    kx::ComPtr<IMMDeviceEnumerator> m_devices;
    std::wstring m_id;   // of the device
    std::wstring m_name; // of the device
    bool m_isCapture = false;
    DeviceFormat m_format;
    std::size_t m_frameSize = 0;
    kx::ComPtr<IAudioClient> m_client;
    kx::ComPtr<IAudioCaptureClient> m_reader;
    UINT32 m_borrowed = 0; // frames of the piece that was given last
    std::int64_t m_lookedForDefault = 0;
};

bool WasapiSource::Fail(std::wstring problem) {
    m_problem = std::move(problem);
    m_reader.Reset();
    m_client.Reset();
    return false;
}

bool WasapiSource::Fail(const wchar_t* step, HRESULT result) {
    std::wostringstream problem;
    problem << step << L" failed with 0x" << std::hex << static_cast<std::uint32_t>(result);
    return Fail(problem.str());
}

bool WasapiSource::ChooseEndpoint() {
    if (m_wanted.empty()) {
        m_isCapture = m_isMicrophone;
        m_id = kx::DefaultSoundEndpoint(*m_devices.Get(), m_isCapture);
        return !m_id.empty() ||
               Fail(m_isMicrophone ? L"the machine has no microphone" : L"the machine has no device that plays sound");
    }
    const std::optional<kx::SoundEndpoint> chosen =
        kx::FindSoundEndpoint(kx::SoundEndpoints(*m_devices.Get()), m_wanted);
    if (!chosen) {
        return Fail(L"there is not exactly one sound device with the id or name \"" + m_wanted + L"\"");
    }
    m_isCapture = chosen->isCapture;
    m_id = chosen->id;
    return true;
}

bool WasapiSource::ReadFormat(const WAVEFORMATEX& format) {
    const std::optional<SampleType> type = TypeOf(format);
    if (!type || format.nChannels == 0 || format.nSamplesPerSec == 0) {
        return Fail(L"its format is not known");
    }
    m_format = {format.nSamplesPerSec, format.nChannels, 0, *type};
    if (format.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        m_format.speakers = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format).dwChannelMask;
    }
    m_frameSize = format.nBlockAlign;
    return true;
}

bool WasapiSource::Open() {
    m_borrowed = 0;
    m_reader.Reset();
    m_client.Reset();
    if (!m_devices) {
        m_devices = kx::SoundDevices();
    }
    if (!m_devices) {
        return Fail(L"the system has no list of sound devices");
    }
    if (!ChooseEndpoint()) {
        return false;
    }
    kx::ComPtr<IMMDevice> device;
    if (const HRESULT result = m_devices->GetDevice(m_id.c_str(), device.Receive()); FAILED(result)) {
        return Fail(L"GetDevice", result);
    }
    m_name = kx::detail::NameOf(*device.Get());
    return Begin(*device.Get());
}

bool WasapiSource::Begin(IMMDevice& device) {
    HRESULT result = device.Activate(__uuidof(IAudioClient), CLSCTX_INPROC_SERVER, nullptr,
                                     reinterpret_cast<void**>(m_client.Receive()));
    if (FAILED(result)) {
        return Fail(L"IMMDevice::Activate", result);
    }
    MixFormat format;
    if (result = m_client->GetMixFormat(format.Receive()); FAILED(result)) {
        return Fail(L"IAudioClient::GetMixFormat", result);
    }
    if (!ReadFormat(*format.Get())) {
        return false;
    }
    const DWORD flags = m_isCapture ? 0 : AUDCLNT_STREAMFLAGS_LOOPBACK;
    result = m_client->Initialize(AUDCLNT_SHAREMODE_SHARED, flags, kDeviceBuffer, 0, format.Get(), nullptr);
    if (FAILED(result)) {
        return Fail(L"IAudioClient::Initialize", result);
    }
    if (result = m_client->GetService(IID_PPV_ARGS(m_reader.Receive())); FAILED(result)) {
        return Fail(L"IAudioClient::GetService", result);
    }
    if (result = m_client->Start(); FAILED(result)) {
        return Fail(L"IAudioClient::Start", result);
    }
    m_lookedForDefault = NowTicks();
    return true;
}

// The default is what the user listens to or speaks into; it is asked for now and then, which needs no second thread.
bool WasapiSource::DefaultHasChanged() {
    const std::int64_t now = NowTicks();
    if (!m_wanted.empty() || now - m_lookedForDefault < kLookForDefaultSeconds * TicksPerSecond()) {
        return false;
    }
    m_lookedForDefault = now;
    const std::wstring id = kx::DefaultSoundEndpoint(*m_devices.Get(), m_isMicrophone);
    return !id.empty() && id != m_id;
}

void WasapiSource::Return() noexcept {
    if (m_borrowed != 0) {
        m_reader->ReleaseBuffer(std::exchange(m_borrowed, 0));
    }
}

SoundSource::Read WasapiSource::Next(SoundPiece& piece) {
    Return();
    UINT32 waiting = 0;
    if (FAILED(m_reader->GetNextPacketSize(&waiting)) || DefaultHasChanged()) {
        return Read::Lost;
    }
    if (waiting == 0) {
        return Read::Nothing;
    }
    BYTE* bytes = nullptr;
    DWORD flags = 0;
    UINT64 heard = 0;
    const HRESULT result = m_reader->GetBuffer(&bytes, &m_borrowed, &flags, nullptr, &heard);
    if (FAILED(result)) {
        m_borrowed = 0;
        return Read::Lost;
    }
    if (m_borrowed == 0) {
        return Read::Nothing;
    }
    piece.frames = m_borrowed;
    piece.samples = {};
    if ((flags & AUDCLNT_BUFFERFLAGS_SILENT) == 0) {
        piece.samples = {reinterpret_cast<const std::byte*>(bytes), m_borrowed * m_frameSize};
    }
    piece.followsABreak = (flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY) != 0;
    const bool isTold = (flags & AUDCLNT_BUFFERFLAGS_TIMESTAMP_ERROR) == 0 && heard != 0;
    piece.ticks = isTold ? TicksOf(heard) : NowTicks() - m_borrowed * TicksPerSecond() / m_format.samplesPerSecond;
    return Read::Given;
}

std::wstring Configured(const wchar_t* variable, const wchar_t* value) {
    constexpr DWORD kLongest = 512; // characters; an id has some 60, a name at most 260
    std::array<wchar_t, kLongest> text = {};
    const DWORD length = GetEnvironmentVariableW(variable, text.data(), kLongest);
    if (length > 0 && length < kLongest) {
        return {text.data(), length};
    }
    const std::optional<std::wstring> folder = kx::ModuleFolder(nullptr);
    if (!folder) {
        return {};
    }
    const std::wstring file = *folder + L"\\config\\KXVCR.ini";
    return {text.data(), GetPrivateProfileStringW(L"Sound", value, L"", text.data(), kLongest, file.c_str())};
}

} // namespace

SoundChoice ReadSoundChoice() {
    return {Configured(kMachineSoundVariable, L"Machine"), Configured(kMicrophoneVariable, L"Microphone")};
}

std::vector<std::unique_ptr<SoundSource>> MakeSoundSources(const SoundSettings& settings, const SoundChoice& choice) {
    std::vector<std::unique_ptr<SoundSource>> sources;
    if (settings.machine) {
        sources.push_back(std::make_unique<WasapiSource>(false, choice.machine));
    }
    if (settings.microphone) {
        sources.push_back(std::make_unique<WasapiSource>(true, choice.microphone));
    }
    return sources;
}

} // namespace kxvcr
