// Reads the payloads of commands. The records are copied out of the payload before they are looked at, because a
// payload has no alignment.
#include "worker/parameters.h"

#include "screenrecordproxy.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

namespace kxvcr {

namespace {

using KxScreenRecord::LiveServerParam;
using KxScreenRecord::ScreenRecordParam;

bool AllZero(std::span<const std::uint32_t> fields) {
    return std::all_of(fields.begin(), fields.end(), [](std::uint32_t field) { return field == 0; });
}

std::optional<LiveKey> KeyOf(const LiveServerParam& param) {
    const LiveKey key = std::to_array(param.key);
    return key == LiveKey{} ? std::nullopt : std::optional(key);
}

Result CheckFields(const ScreenRecordParam& param) {
    if (param.framesPerSecond > kMaxFramesPerSecond) {
        return Result::BadFrameRate;
    }
    if (param.quality > kMaxQuality) {
        return Result::BadQuality;
    }
    if (param.bitRate > kMaxBitRate) {
        return Result::BadBitRate;
    }
    if ((param.streams & ~kStreamFlags) != 0) {
        return Result::BadStreams;
    }
    if (param.drawCursor > 1) {
        return Result::BadCursorFlag;
    }
    return Result::Accepted;
}

Result ChooseArea(const ScreenRecordParam& param, const ScreenLayout& layout, CaptureArea& chosen) {
    const ScreenRect asked{param.left, param.top, param.width, param.height};
    if (param.window != 0) {
        if (asked != ScreenRect{} || param.monitor != 0) {
            return Result::BadWindow;
        }
        chosen = {{}, nullptr, false, param.window};
        return Result::Accepted;
    }
    if (param.monitor > layout.monitors.size()) {
        return Result::BadMonitor;
    }
    CaptureArea surrounding{layout.whole, nullptr, true};
    if (param.monitor != 0) {
        surrounding = {layout.monitors[param.monitor - 1].area, layout.monitors[param.monitor - 1].handle, false};
    }

    if (asked == ScreenRect{}) {
        chosen = surrounding;
        return Result::Accepted;
    }
    if (!Contains(surrounding.rect, asked)) {
        return Result::BadRectangle;
    }
    chosen = {asked, nullptr, false};
    return Result::Accepted;
}

} // namespace

Result ReadPrepare(std::span<const std::byte> payload, const ScreenLayout& layout, RecordSettings& settings) {
    ScreenRecordParam param;
    std::uint32_t timeMachineSeconds = 0;
    if (payload.size() != sizeof(param) && payload.size() != sizeof(param) + sizeof(timeMachineSeconds)) {
        return Result::WrongPayloadSize;
    }
    std::memcpy(&param, payload.data(), sizeof(param));
    std::memcpy(&timeMachineSeconds, payload.data() + sizeof(param), payload.size() - sizeof(param));

    if (const Result result = CheckFields(param); result != Result::Accepted) {
        return result;
    }
    RecordSettings read;
    if (const Result result = ChooseArea(param, layout, read.area); result != Result::Accepted) {
        return result;
    }
    if (timeMachineSeconds > kMaxReplaySeconds) {
        return Result::NotSupported;
    }
    if (param.framesPerSecond != 0) {
        read.framesPerSecond = param.framesPerSecond;
    }
    if (param.quality != 0) {
        read.quality = param.quality;
    }
    read.bitRate = param.bitRate;
    read.vp9Replay = (param.streams & kStreamVp9) != 0;
    read.sound = {(param.streams & kStreamMachineSound) != 0, (param.streams & kStreamMicrophone) != 0};
    read.drawCursor = param.drawCursor != 0;
    read.replaySeconds = timeMachineSeconds;
    settings = read;
    return Result::Accepted;
}

Result ReadLocalRecord(std::span<const std::byte> payload, std::wstring& path) {
    if (payload.empty() || payload.size() % sizeof(wchar_t) != 0) {
        return Result::WrongPayloadSize;
    }
    std::wstring text(payload.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), payload.data(), payload.size());
    const std::size_t end = text.find(L'\0');
    if (end == std::wstring::npos || end == 0) {
        return Result::BadPath;
    }
    // A length that is longer than its text leaves zeros behind the path; anything else there is a mistake.
    if (text.find_first_not_of(L'\0', end) != std::wstring::npos) {
        return Result::BadPath;
    }
    text.resize(end);
    path = std::move(text);
    return Result::Accepted;
}

Result ReadLiveServer(std::span<const std::byte> payload, LiveSettings& settings) {
    LiveServerParam param;
    if (payload.size() != sizeof(param)) {
        return Result::WrongPayloadSize;
    }
    std::memcpy(&param, payload.data(), sizeof(param));
    if (!AllZero(param.reserved)) {
        return Result::ReservedNotZero;
    }
    if (param.port > kMaxPort) {
        return Result::BadPort;
    }
    if (param.maxClients > kMaxLiveClients) {
        return Result::BadClientLimit;
    }
    if (param.listenOnAllInterfaces > 1) {
        return Result::BadInterfaceFlag;
    }
    settings.port = static_cast<std::uint16_t>(param.port);
    settings.maxClients = param.maxClients == 0 ? kDefaultLiveClients : param.maxClients;
    settings.allInterfaces = param.listenOnAllInterfaces != 0;
    settings.key = KeyOf(param);
    return Result::Accepted;
}

} // namespace kxvcr
