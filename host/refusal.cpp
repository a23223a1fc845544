// Why the worker refused a command. Results that concern a value of the user's have a sentence with that value, the
// others the meaning of the protocol's table.
#include "host/refusal.h"

#include "common/win/utf8.h"
#include "host/windowlist.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace kxrecord {

namespace {

using kxvcr::Result;

// A place is told only where it is not the obvious one.
std::wstring PlaceText(const ScreenArea& area) {
    if (area.left == 0 && area.top == 0) {
        return std::to_wstring(area.width) + L"x" + std::to_wstring(area.height);
    }
    return AreaText(area);
}

std::wstring RectangleSentence(const KxScreenRecord::ScreenRecordParam& picture, const Screen& screen) {
    const std::wstring region = L"the region " + std::to_wstring(picture.left) + L"," + std::to_wstring(picture.top) +
                                L"," + std::to_wstring(picture.width) + L"," + std::to_wstring(picture.height) +
                                L" is not wholly on ";
    if (picture.monitor == 0 || picture.monitor > screen.monitors.size()) {
        return region + L"the screen, which is " + PlaceText(screen.whole);
    }
    return region + L"monitor " + std::to_wstring(picture.monitor) + L", which is " +
           PlaceText(screen.monitors[picture.monitor - 1]);
}

std::wstring MonitorSentence(const KxScreenRecord::ScreenRecordParam& picture, const Screen& screen) {
    const std::size_t count = screen.monitors.size();
    return L"there is no monitor " + std::to_wstring(picture.monitor) + L": this machine has " +
           std::to_wstring(count) + (count == 1 ? L" monitor" : L" monitors");
}

bool HasNoScreen(const Screen& screen) {
    return screen.whole.width <= 0 || screen.whole.height <= 0;
}

std::wstring MeaningOf(std::int32_t result) {
    const auto* const row = std::find_if(std::begin(kxvcr::kResults), std::end(kxvcr::kResults), [result](auto& known) {
        return static_cast<std::int32_t>(known.result) == result;
    });
    return row == std::end(kxvcr::kResults) ? L"for a reason that kxrecord does not know"
                                            : kx::WideFromUtf8(row->meaning);
}

const wchar_t* Subject(Command command) {
    switch (command) {
    case Command::StartFile:
        return L"the worker could not write the file";
    case Command::StartLive:
        return L"the worker refused to serve the live view";
    case Command::PrepareReplay:
        return L"the worker refused to keep the last seconds of the screen";
    case Command::Prepare:
        break;
    }
    return L"the worker refused what to record";
}

Exit ExitOf(Command command) {
    switch (command) {
    case Command::StartFile:
        return Exit::FileRefused;
    case Command::StartLive:
        return Exit::LiveRefused;
    case Command::PrepareReplay:
        return Exit::ReplayRefused;
    case Command::Prepare:
        break;
    }
    return Exit::PrepareRefused;
}

std::wstring Sentence(Command command, Result result, const Request& request, const Screen& screen) {
    switch (result) {
    case Result::BadRectangle:
        return RectangleSentence(request.picture, screen);
    case Result::BadMonitor:
        return MonitorSentence(request.picture, screen);
    case Result::BadWindow:
        return L"the window " + HandleText(request.picture.window) +
               L" cannot be recorded any more: it was closed, hidden or minimised meanwhile";
    case Result::CannotCreateFile:
        return request.file + L" cannot be created: see that its folder exists, that you may write there and that no "
                              L"other program has the file open";
    case Result::CannotListen:
        return L"port " + std::to_wstring(request.port) + L" is in use, or the system refused it; try another --port";
    case Result::EncoderMissing:
        return L"openh264.dll is missing beside KXVCR.exe, or is not the version that it knows; install it again";
    default:
        return Subject(command) + (L": " + MeaningOf(static_cast<std::int32_t>(result)));
    }
}

// The proxy does not log the result of a refused live server: the port is what is refused most.
std::wstring UnknownReason(Command command, const Request& request) {
    std::wstring sentence = Subject(command);
    if (command == Command::StartLive && request.port != 0) {
        sentence += L": port " + std::to_wstring(request.port) + L" may be in use; try another --port";
    }
    return sentence;
}

} // namespace

Failure ExplainRefusal(Command command, const Exchange& exchange, const Request& request, const Screen& screen,
                       const std::wstring& workerLog) {
    if (exchange.isUnanswered) {
        return {Exit::TimedOut, 0,
                L"the worker did not answer in time, or ended; try again with a longer --timeout" + LogHint(workerLog)};
    }
    const std::int64_t code = exchange.result.value_or(0);
    const bool isAboutTheScreen = command == Command::Prepare || command == Command::PrepareReplay;
    if (isAboutTheScreen && HasNoScreen(screen)) {
        return {ExitOf(command), code, L"there is no screen to record: log on at the machine, or connect a monitor"};
    }
    if (!exchange.result) {
        return {ExitOf(command), code, UnknownReason(command, request) + LogHint(workerLog)};
    }
    return {ExitOf(command), code,
            Sentence(command, static_cast<Result>(*exchange.result), request, screen) + L" (result " +
                std::to_wstring(*exchange.result) + L")" + LogHint(workerLog)};
}

} // namespace kxrecord
