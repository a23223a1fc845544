/**
 * @file
 * Rectangles of one colour, which is what the test programs' windows consist of.
 */
#pragma once

#include "common/win/owner.h"

#include <windows.h>

namespace kxtest {

using Brush = kx::Owner<kx::FreedBy<HBRUSH, &DeleteObject>>;

inline void Fill(HDC target, const RECT& area, COLORREF colour) {
    const Brush brush(CreateSolidBrush(colour));
    FillRect(target, &area, brush.Get());
}

} // namespace kxtest
