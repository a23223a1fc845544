// Chooses between duplication and GDI: at the beginning, and once more when the system refuses for good what it
// allowed.
#include "worker/capture/screencapture.h"

#include "common/win/errortext.h"

#include "sdk/util/logtool.h"

#include <log4cplus/loggingmacros.h>

#include <cstdint>
#include <new>
#include <string>
#include <utility>

namespace kxvcr {

ScreenCapture::ScreenCapture(const CaptureArea& area, bool drawCursor, std::unique_ptr<GraphicsSystem> system)
    : m_system(std::move(system)),
      m_gdi(area, drawCursor) {
    if (m_system == nullptr) {
        return;
    }
    m_duplication = std::make_unique<DuplicationCapture>(area, drawCursor, *m_system);
    if (const DuplicationFailure failure = m_duplication->Begin(); FAILED(failure.result)) {
        GiveUpDuplication(failure);
    }
}

// A copy of the failure, because the duplication may be its owner.
void ScreenCapture::GiveUpDuplication(DuplicationFailure failure) noexcept {
    m_duplication.reset();
    try {
        const std::wstring text = kx::SystemErrorText(static_cast<DWORD>(failure.result));
        LOG4CPLUS_WARN(GetLogger(), L"The screen is captured with GDI, because the system does not duplicate it: "
                                        << failure.step << L" says 0x" << std::hex << static_cast<DWORD>(failure.result)
                                        << (text.empty() ? L"" : L", ") << text);
    } catch (const std::bad_alloc&) { // the recording goes on without the line
    }
}

Change ScreenCapture::AwaitChange(std::uint32_t milliseconds) noexcept {
    return m_duplication == nullptr ? Change::CannotTell : m_duplication->AwaitChange(milliseconds);
}

Grab ScreenCapture::Take(Picture& target, const Picture* before) noexcept {
    if (m_duplication != nullptr) {
        const Grab grab = m_duplication->Take(target, before);
        if (!m_duplication->Refusal()) {
            return grab;
        }
        GiveUpDuplication(*m_duplication->Refusal());
    }
    return m_gdi.Take(target, before);
}

} // namespace kxvcr
