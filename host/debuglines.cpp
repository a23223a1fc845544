// The system hands a debug line to debuggers as an exception that every vectored handler of the process sees first.
// The narrow form of it exists on every Windows.
#include "host/debuglines.h"

#include "sdk/util/text.h"

#include <windows.h>

#include <cstddef>
#include <stdexcept>
#include <utility>

namespace kxrecord {

namespace {

DWORD g_thread = 0; ///< whose lines are kept; 0 is nobody's
std::string g_text;

LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    const bool isLine = record.ExceptionCode == DBG_PRINTEXCEPTION_C && record.NumberParameters >= 2;
    if (!isLine || GetCurrentThreadId() != g_thread) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    try {
        g_text.append(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
    } catch (...) { // a line that does not fit into memory is dropped
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

DebugLines::DebugLines() : m_handler(AddVectoredExceptionHandler(1, OnException)) {
    if (m_handler == nullptr) {
        throw std::runtime_error("the system refuses a handler for the debugger output");
    }
    g_text.clear();
    g_thread = GetCurrentThreadId();
}

DebugLines::~DebugLines() {
    g_thread = 0;
    RemoveVectoredExceptionHandler(m_handler);
}

std::vector<std::wstring> DebugLines::Take() {
    std::vector<std::wstring> lines;
    const std::string text = std::exchange(g_text, std::string());
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        lines.push_back(DE::ANSIToUnicode(text.substr(start, end - start)));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

} // namespace kxrecord
