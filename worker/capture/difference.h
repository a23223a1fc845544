/**
 * @file
 * Where two pictures differ.
 */
#pragma once

#include "worker/capture/picturebuffer.h"
#include "worker/video/videoencoder.h"

#include <optional>

namespace kxvcr {

/**
 * Compares two pictures of the same size.
 * @return the rows from the first to the last that differs, in their whole width; none when no pixel differs
 */
std::optional<PictureRect> DifferentRows(const PictureBuffer& before, const PictureBuffer& after) noexcept;

} // namespace kxvcr
