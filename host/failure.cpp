// What kxrecord says when the start, the work or the end of the worker fails.
#include "host/failure.h"

#include "common/win/errortext.h"
#include "sdk/vcr/workerprotocol.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

namespace kxrecord {

namespace {

struct Row {
    Stage stage;
    unsigned long code;
    Exit exit;
    const wchar_t* sentence;
};

constexpr auto kFileCutShort = static_cast<unsigned long>(kxvcr::ExitCode::FileCutShort);
constexpr wchar_t kFileCutShortSentence[] =
    L"the disk is full, or the file could not be written any further: it was closed early and holds what was recorded "
    L"until then. Make room and record again";

constexpr auto kWindowClosed = static_cast<unsigned long>(kxvcr::ExitCode::WindowClosed);
constexpr wchar_t kWindowClosedSentence[] =
    L"the recorded window was closed: the file is finished and holds everything until then";

constexpr Row kRows[] = {
    {Stage::Start, ERROR_SUCCESS, Exit::NotStarted, L"the worker ended before it was ready"},
    {Stage::Start, ERROR_BUSY, Exit::Busy, L"a recording is running already in this process; wait until it has ended"},
    {Stage::Start, ERROR_INVALID_EXE_SIGNATURE, Exit::Verification,
     L"KXVCR.exe failed verification: it is not the file that the manifest names. Install it again or, if you trust "
     L"it, run \"kxrecord manifest KXVCR.exe\""},
    {Stage::StartWithoutWorker, ERROR_INVALID_EXE_SIGNATURE, Exit::Verification,
     L"KXVCR.exe is missing beside kxrecord.exe; install it there, then run \"kxrecord manifest KXVCR.exe\""},
    {Stage::Start, WAIT_TIMEOUT, Exit::TimedOut,
     L"the worker did not get ready in time and was ended; try again with a longer --timeout"},
    {Stage::Finish, WAIT_TIMEOUT, Exit::TimedOut,
     L"the worker did not finish in time and was ended; what was recorded until then is in the file. Give a longer "
     L"--timeout"},
    {Stage::Recording, kFileCutShort, Exit::FileCutShort, kFileCutShortSentence},
    {Stage::Finish, kFileCutShort, Exit::FileCutShort, kFileCutShortSentence},
    {Stage::Recording, kWindowClosed, Exit::WindowClosed, kWindowClosedSentence},
    {Stage::Finish, kWindowClosed, Exit::WindowClosed, kWindowClosedSentence},
    {Stage::Serving, kWindowClosed, Exit::WindowClosed, L"the window was closed, and the live view has ended with it"},
};

/** What is said of a code without a row of its own. */
struct Default {
    Exit exit;
    const wchar_t* introduction;
};

Default DefaultOf(Stage stage) {
    switch (stage) {
    case Stage::Recording:
        return {Exit::WorkerGone, L"the worker ended by itself while it recorded"};
    case Stage::Serving:
        return {Exit::WorkerGone, L"the worker ended by itself while it served the live view"};
    case Stage::Finish:
        return {Exit::WorkerFailed, L"the worker reported a failure when it finished"};
    case Stage::Start:
    case Stage::StartWithoutWorker:
        break;
    }
    return {Exit::NotStarted, L"the worker could not be started, or ended before it was ready"};
}

// Messages of the system may have the program's name in them, as %1.
std::wstring SystemText(unsigned long code) {
    std::wstring result = kx::SystemErrorText(code);
    constexpr std::wstring_view kPlaceholder = L"%1";
    for (std::size_t at = result.find(kPlaceholder); at != std::wstring::npos; at = result.find(kPlaceholder, at)) {
        result.replace(at, kPlaceholder.size(), kxvcr::kWorkerFileNameWide);
    }
    return result;
}

const kxvcr::ExitCodeMeaning* WorkerMeaning(unsigned long code) {
    const auto* const found = std::find_if(std::begin(kxvcr::kExitCodes), std::end(kxvcr::kExitCodes),
                                           [code](auto& row) { return static_cast<unsigned long>(row.code) == code; });
    return found == std::end(kxvcr::kExitCodes) ? nullptr : found;
}

// Without the bit a number at the start may be the system's or the worker's, and the system's is likelier.
std::wstring Meaning(Stage stage, unsigned long code) {
    if (stage == Stage::Start && (code & kxvcr::kEarlyExitBit) == 0) {
        return SystemText(code);
    }
    const kxvcr::ExitCodeMeaning* const row = WorkerMeaning(code);
    return row == nullptr ? std::wstring()
                          : std::wstring(row->meaning, row->meaning + std::char_traits<char>::length(row->meaning));
}

std::wstring CodeText(unsigned long code) {
    return L" (code " + std::to_wstring(code) + L")";
}

} // namespace

std::wstring LogHint(const std::wstring& log) {
    return log.empty() ? std::wstring() : L"; the log says more: " + log;
}

Failure Explain(Stage stage, unsigned long code, const std::wstring& workerLog) {
    for (const Row& row : kRows) {
        if (row.stage == stage && row.code == code) {
            return {row.exit, code, row.sentence + CodeText(code)};
        }
    }
    const auto [exit, introduction] = DefaultOf(stage);
    const std::wstring meaning = Meaning(stage, code);
    return {exit, code, introduction + (meaning.empty() ? L"" : L": " + meaning) + CodeText(code) + LogHint(workerLog)};
}

Failure HostFailure(Exit exit, std::wstring sentence) {
    return {exit, 0, std::move(sentence)};
}

} // namespace kxrecord
