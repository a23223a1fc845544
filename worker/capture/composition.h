/**
 * @file
 * The picture that frames of outputs add up to: upright, as large as the area of the screen that is captured, without
 * the pointer.
 */
#pragma once

#include "worker/capture/changedarea.h"
#include "worker/capture/outputduplication.h"
#include "worker/capture/picturebuffer.h"
#include "worker/capture/screenlayout.h"

#include <vector>

namespace kxvcr {

/** Where an output's surface is in the picture. */
struct OutputPlace {
    ScreenRect area; ///< of the upright output, from the picture's upper left corner on; may reach out of the picture
    Turn turn = Turn::None;
};

/** A part of an output's surface, and where it goes in the picture. */
struct PlacedPart {
    PictureRect onSurface;
    PictureRect inPicture;
};

/** What a frame asks of the picture: pixels of its own to be moved, and others to be read. */
struct FramePlan {
    struct Movement {
        PictureRect from;
        PictureRect to;
    };
    std::vector<Movement> movements; ///< in this order, before anything is read
    std::vector<PlacedPart> reads;
};

/**
 * Says what a frame changes in a picture. Where pixels would have to come from beyond the picture, and from there on,
 * movements become reads, which always give the frame's own pixels.
 * @param plan what it held is gone
 * @throws std::bad_alloc
 */
void PlanFrame(const OutputFrame& frame, const OutputPlace& place, const PixelSize& picture, FramePlan& plan);

} // namespace kxvcr
