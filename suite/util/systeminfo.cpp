// The DPI of the system, also for a process that Windows scales behind its back.
#include "sdk/util/systeminfo.h"

#include <windows.h>

namespace {

/** Lets the thread see true pixels while this lives; a thread that is unaware of scaling is always told 96 DPI. */
class SystemAwareThread {
public:
    SystemAwareThread() noexcept : m_before(SetThreadDpiAwarenessContext(DPI_AWARENESS_CONTEXT_SYSTEM_AWARE)) {}
    ~SystemAwareThread() {
        if (m_before != nullptr) {
            SetThreadDpiAwarenessContext(m_before);
        }
    }
    SystemAwareThread(const SystemAwareThread&) = delete;
    SystemAwareThread& operator=(const SystemAwareThread&) = delete;

private:
    DPI_AWARENESS_CONTEXT m_before;
};

} // namespace

SystemInfo::SystemInfo() = default;

SystemInfo::~SystemInfo() = default;

int SystemInfo::GetSystemDPI() const {
    const SystemAwareThread aware;
    const UINT dpi = GetDpiForSystem();
    return dpi != 0 ? static_cast<int>(dpi) : USER_DEFAULT_SCREEN_DPI;
}
