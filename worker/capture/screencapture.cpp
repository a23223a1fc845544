// Chooses between duplication and GDI: at the beginning, and once more when the system refuses for good what it
// allowed.
#include "worker/capture/screencapture.h"

#include "common/win/errortext.h"
#include "worker/log.h"

#include <cstdint>
#include <string>
#include <utility>

namespace kxvcr {

namespace {

// ", " and what the system says that the result means; empty when it says nothing.
std::wstring MeaningOf(HRESULT result) {
    const std::wstring text = kx::SystemErrorText(static_cast<DWORD>(result));
    return text.empty() ? text : L", " + text;
}

} // namespace

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
    KXVCR_LOG_WARN(L"The screen is captured with GDI, because the system does not duplicate it: "
                   << failure.step << L" says 0x" << std::hex << static_cast<DWORD>(failure.result)
                   << MeaningOf(failure.result));
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
