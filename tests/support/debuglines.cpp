// Takes the place of OutputDebugStringW in the import table of the library under test.
#include "support/debuglines.h"

namespace kxtest {

DebugLines::DebugLines()
    : m_hook([this](LPCWSTR line) {
          const std::lock_guard guard(m_mutex);
          m_lines.emplace_back(line);
          SetLastError(ERROR_SUCCESS); // the system leaves what it likes
      }) {}

std::vector<std::wstring> DebugLines::Lines() const {
    const std::lock_guard guard(m_mutex);
    return m_lines;
}

void DebugLines::Clear() {
    const std::lock_guard guard(m_mutex);
    m_lines.clear();
}

} // namespace kxtest
