// Each event is one write at the file's end, so that several processes may share a file.
#include "logfile.h"

#include "common/win/utf8.h"

#include <log4cplus/layout.h>

#include <windows.h>

#include <ios>

#include <cstddef>

namespace logtool {

void LogFile::close() {
    m_file.Reset();
    closed = true;
}

void LogFile::append(const log4cplus::spi::InternalLoggingEvent& event) {
    log4cplus::tostringstream text;
    text.exceptions(std::ios::badbit); // a stream keeps a failed allocation to itself unless it is told not to
    layout->formatAndAppend(text, event);
    const std::string line = kx::Utf8FromWide(text.str());
    DWORD written = 0;
    if (!Open() || !WriteFile(m_file.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr)) {
        m_file.Reset(); // the next event tries again
        return;
    }
    if (HasGrownPast()) {
        RollOver();
    }
}

// A folder that only administrators may write is where programs lie.
bool LogFile::Open() noexcept {
    if (m_file || OpenPath()) {
        return true;
    }
    if (m_otherPath.empty()) {
        return false;
    }
    m_path.swap(m_otherPath);
    m_otherPath.clear();
    const std::size_t folderEnd = m_path.find_last_of(L'\\');
    m_path[folderEnd] = L'\0';
    CreateDirectoryW(m_path.c_str(), nullptr);
    m_path[folderEnd] = L'\\';
    return OpenPath();
}

bool LogFile::OpenPath() noexcept {
    m_file.Reset(CreateFileW(m_path.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
    return static_cast<bool>(m_file);
}

bool LogFile::HasGrownPast() const noexcept {
    LARGE_INTEGER size{};
    return GetFileSizeEx(m_file.Get(), &size) && static_cast<std::uint64_t>(size.QuadPart) > m_maxBytes;
}

void LogFile::RollOver() {
    m_file.Reset();
    std::wstring newer;
    std::wstring older = m_path + L"." + std::to_wstring(m_oldFiles);
    for (int number = m_oldFiles - 1; number >= 0; --number) {
        newer = number > 0 ? m_path + L"." + std::to_wstring(number) : m_path;
        MoveFileExW(newer.c_str(), older.c_str(), MOVEFILE_REPLACE_EXISTING); // a missing one leaves a gap
        older = newer;
    }
}

} // namespace logtool
