/**
 * @file
 * The outputs that show an area of the screen, each with its duplication.
 */
#pragma once

#include "worker/capture/graphicssystem.h"
#include "worker/capture/outputduplication.h"
#include "worker/capture/screenlayout.h"

#include <memory>
#include <vector>

namespace kxvcr {

/** A step that failed: which one, and what the system said. */
struct DuplicationFailure {
    const wchar_t* step = L"";
    HRESULT result = S_OK;
};

/**
 * Duplicates every output that shows a part of an area, whatever adapter it belongs to.
 * @param outputs filled when all of them could be duplicated, else empty. None of the area's outputs may be duplicated
 *        by this process yet
 * @return what failed; a result of DXGI_ERROR_NOT_FOUND when no output shows the area. S_OK when nothing did
 * @throws std::bad_alloc
 */
DuplicationFailure DuplicateOutputs(GraphicsSystem& system, const ScreenRect& area,
                                    std::vector<std::unique_ptr<OutputDuplication>>& outputs);

} // namespace kxvcr
