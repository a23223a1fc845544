/**
 * @file
 * Owners of what the graphics device interface lends.
 */
#pragma once

#include "common/win/owner.h"

#include <windows.h>

#include <utility>

namespace kxvcr {

inline void ReleaseScreenDc(HDC dc) noexcept {
    ReleaseDC(nullptr, dc);
}

using ScreenDc = kx::Owner<kx::FreedBy<HDC, &ReleaseScreenDc>>;
using MemoryDc = kx::Owner<kx::FreedBy<HDC, &DeleteDC>>;
using Bitmap = kx::Owner<kx::FreedBy<HBITMAP, &DeleteObject>>;

/** Keeps a bitmap selected into a device context, as long as both live. */
class BitmapSelection {
public:
    BitmapSelection() noexcept = default;
    BitmapSelection(HDC dc, HBITMAP bitmap) noexcept : m_dc(dc), m_previous(SelectObject(dc, bitmap)) {}
    ~BitmapSelection() {
        if (m_previous != nullptr) {
            SelectObject(m_dc, m_previous);
        }
    }
    BitmapSelection(BitmapSelection&& other) noexcept
        : m_dc(other.m_dc),
          m_previous(std::exchange(other.m_previous, nullptr)) {}
    BitmapSelection& operator=(BitmapSelection&& other) noexcept {
        std::swap(m_dc, other.m_dc);
        std::swap(m_previous, other.m_previous);
        return *this;
    }
    explicit operator bool() const noexcept { return m_previous != nullptr; }

private:
    HDC m_dc = nullptr;
    HGDIOBJ m_previous = nullptr;
};

} // namespace kxvcr
