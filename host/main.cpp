// kxrecord.exe: records or serves the screen, and asks about the machine, through ScreenRecordProxy.dll. This file
// hands the command line's task to whoever does it.
#include "common/win/utf8.h"
#include "host/arguments.h"
#include "host/console.h"
#include "host/version.h"

#include <windows.h>

#include <exception>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kxrecord {

namespace {

/** Does a task. @return how the process ends */
struct Doer {
    Exit operator()(const Notice& notice) const {
        Write(Stream::Output, kx::WideFromUtf8(notice.output));
        Write(Stream::Error, kx::WideFromUtf8(notice.complaint));
        return notice.exit;
    }
    Exit operator()(const RecordOptions& options) const { return Record(options); }
    Exit operator()(const LiveOptions& options) const { return Live(options); }
    Exit operator()(const ManifestOptions& options) const { return WriteManifest(options); }
    Exit operator()(const ListOptions& options) const {
        PrintList(options);
        return Exit::Success;
    }
    Exit operator()(const InfoOptions& options) const {
        PrintInfo(options);
        return Exit::Success;
    }
};

Exit Run(int count, wchar_t** texts) {
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i) {
        arguments.push_back(kx::Utf8FromWide(texts[i]));
    }
    return std::visit(Doer{}, ParseArguments(std::move(arguments), VersionsText()));
}

} // namespace

} // namespace kxrecord

extern "C" int wmain(int count, wchar_t** texts) {
    using namespace kxrecord;
    // What is loaded from here on are libraries of Windows; one of that name beside the program is not meant.
    if (!SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32)) {
        return static_cast<int>(Exit::Internal);
    }
    try {
        return static_cast<int>(Run(count, texts));
    } catch (const std::exception& error) {
        Write(Stream::Error, L"kxrecord: " + kx::WideFromUtf8(error.what()) + L"\n");
        return static_cast<int>(Exit::Internal);
    }
}
