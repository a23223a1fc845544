// Fuzz target: the payload of a command, as a hostile host could send it to the worker. The first byte chooses the
// command. Holds for every input: what is accepted keeps the documented limits; what is refused leaves its output
// untouched.
#include "screenrecordproxy.h"
#include "worker/parameters.h"

#include <cstdlib>
#include <string>

namespace kxvcr {

namespace {

void Require(bool isTrue) {
    if (!isTrue) {
        std::abort();
    }
}

// Two monitors, one of them left of the primary one.
ScreenLayout TwoMonitors() {
    return {{-1280, 0, 1280 + 1920, 1080}, {{nullptr, {0, 0, 1920, 1080}}, {nullptr, {-1280, 0, 1280, 1024}}}};
}

void ReadAsPrepare(std::span<const std::byte> payload) {
    static const ScreenLayout s_layout = TwoMonitors();
    RecordSettings settings;
    settings.bitRate = kMaxBitRate + 1; // no payload sets it so
    if (ReadPrepare(payload, s_layout, settings) != Result::Accepted) {
        Require(settings.bitRate == kMaxBitRate + 1);
        return;
    }
    const bool hasRectangle = settings.area.rect != ScreenRect{};
    Require(hasRectangle == (settings.area.window == 0)); // a window's is not looked up here
    Require(!hasRectangle || Contains(s_layout.whole, settings.area.rect));
    Require(settings.framesPerSecond >= 1 && settings.framesPerSecond <= kMaxFramesPerSecond);
    Require(settings.quality >= 1 && settings.quality <= kMaxQuality);
    Require(settings.bitRate <= kMaxBitRate);
    Require(settings.replaySeconds <= kMaxReplaySeconds);
}

void ReadAsLocalRecord(std::span<const std::byte> payload) {
    const std::wstring untouched = L"untouched";
    std::wstring path = untouched;
    if (ReadLocalRecord(payload, path) != Result::Accepted) {
        Require(path == untouched);
        return;
    }
    Require(!path.empty() && path.find(L'\0') == std::wstring::npos);
    Require(path.size() * sizeof(wchar_t) < payload.size());
}

void ReadAsLiveServer(std::span<const std::byte> payload) {
    LiveSettings settings;
    settings.maxClients = kMaxLiveClients + 1; // no payload sets it so
    if (ReadLiveServer(payload, settings) != Result::Accepted) {
        Require(settings.maxClients == kMaxLiveClients + 1);
        return;
    }
    Require(settings.maxClients >= 1 && settings.maxClients <= kMaxLiveClients);
    Require(!settings.key || *settings.key != LiveKey{});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    constexpr auto kCommands = std::to_array({ReadAsPrepare, ReadAsLocalRecord, ReadAsLiveServer});
    kCommands[data[0] % kCommands.size()](std::as_bytes(std::span(data, size)).subspan(1));
    return 0;
}

} // namespace kxvcr
