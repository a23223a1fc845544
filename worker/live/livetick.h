/**
 * @file
 * How the live server's feeds know that time passes.
 */
#pragma once

#include <chrono>

namespace kxvcr {

/** So often the feeds are told that time has passed. */
inline constexpr std::chrono::milliseconds kLiveTick(1000);

/** A stream that was sent nothing for so long gets a sign of life. Less than a tick, because one may come early. */
inline constexpr std::chrono::milliseconds kLiveSilence(900);

} // namespace kxvcr
