#include "errors.h"

#include <windows.h>

#include <memory>

namespace {

struct Sentence {
    Stage stage;
    unsigned long code;
    const wchar_t* text;
};

constexpr unsigned long kWorkerFileCutShort = 4; ///< docs/worker-protocol.md
constexpr wchar_t kFileCutShort[] =
    L"the disk is full, or the file could not be written any further: it was closed early and holds what was recorded "
    L"until then. Make room and record again.";

constexpr Sentence kSentences[] = {
    {Stage::Host, kExitNoProxy,
     L"the recorder could not be set up for lack of memory; close other programs and try again."},
    {Stage::Host, kExitPrepareRefused,
     L"the worker refused the region, rate, quality or monitor; its log, KXVCR.log beside "
     L"kxrecord.exe, says which and why."},
    {Stage::Host, kExitStartRefused,
     L"the worker could not write the file: see that its folder exists, that you may write there and that no other "
     L"program has the file open; its log, KXVCR.log beside kxrecord.exe, says more."},
    {Stage::Host, kExitReplayRefused,
     L"the worker refused to keep the last seconds of the screen: it does not support a replay, or refused the region, "
     L"rate, quality or monitor; its log, KXVCR.log beside kxrecord.exe, says which and why."},
    {Stage::Host, kExitLiveRefused,
     L"the worker refused to serve the live view: it does not support one, or the port is in use; try another --port, "
     L"its log, KXVCR.log beside kxrecord.exe, says why."},
    {Stage::Host, ERROR_FILENAME_EXCED_RANGE,
     L"the file's full path is longer than 260 characters; give a shorter name or folder."},
    {Stage::Start, ERROR_BUSY, L"a recording is running already in this process; wait until it has ended."},
    {Stage::Start, ERROR_INVALID_EXE_SIGNATURE,
     L"KXVCR.exe failed verification: it is not the file that the manifest names. Install it again or, if you trust "
     L"it, run: kxrecord manifest KXVCR.exe"},
    {Stage::StartWithoutWorker, ERROR_INVALID_EXE_SIGNATURE,
     L"KXVCR.exe is missing beside kxrecord.exe; install it there, then run: kxrecord manifest KXVCR.exe"},
    {Stage::Start, WAIT_TIMEOUT,
     L"the worker did not get ready in time and was ended; try again with a longer --timeout."},
    {Stage::Finish, WAIT_TIMEOUT,
     L"the worker did not finish in time and was ended; what was recorded until then is in the file. Give a "
     L"longer --timeout."},
    {Stage::Recording, kWorkerFileCutShort, kFileCutShort},
    {Stage::Finish, kWorkerFileCutShort, kFileCutShort},
    {Stage::Recording, kExitSuccess,
     L"the worker ended by itself while it recorded; its log, KXVCR.log beside kxrecord.exe, says why."},
    {Stage::Serving, kExitSuccess,
     L"the worker ended by itself while it served the live view; its log, KXVCR.log beside kxrecord.exe, says why."},
};

struct LocalBlockFree {
    void operator()(wchar_t* block) const noexcept { LocalFree(block); }
};

std::wstring SystemText(unsigned long code) {
    wchar_t* text = nullptr;
    const DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    // With ALLOCATE_BUFFER the argument is the address of the pointer, whatever its type says.
    FormatMessageW(flags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    const std::unique_ptr<wchar_t, LocalBlockFree> owner(text);
    std::wstring result = text == nullptr ? L"" : text;
    while (!result.empty() && (result.back() == L'\n' || result.back() == L'\r' || result.back() == L'.')) {
        result.pop_back();
    }
    return result;
}

// What is said of a code without a sentence of its own.
const wchar_t* Introduction(Stage stage) {
    switch (stage) {
    case Stage::Start:
    case Stage::StartWithoutWorker:
        return L"the worker could not be started, or ended before it was ready";
    case Stage::Recording:
        return L"the worker ended by itself while it recorded";
    case Stage::Serving:
        return L"the worker ended by itself while it served the live view";
    case Stage::Finish:
        return L"the worker reported a failure when it finished";
    case Stage::Host:
        break;
    }
    return L"the recording failed";
}

// A worker that could not be started leaves the system's code, one that ended at once a code of its own: which of the
// two a number is cannot be told from it.
std::wstring SystemHint(Stage stage, unsigned long code) {
    const std::wstring text = stage == Stage::Start ? SystemText(code) : std::wstring();
    return text.empty() ? text : L" (as a code of the system: " + text + L")";
}

} // namespace

std::wstring Explain(Stage stage, unsigned long code) {
    for (const Sentence& sentence : kSentences) {
        if (sentence.stage == stage && sentence.code == code) {
            return sentence.text;
        }
    }
    return Introduction(stage) + (L": code " + std::to_wstring(code)) + SystemHint(stage, code) +
           L"; its log, KXVCR.log beside kxrecord.exe, says more.";
}
