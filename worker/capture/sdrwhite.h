/**
 * @file
 * How bright a display with a high dynamic range shows what ordinary programs draw.
 */
#pragma once

#include <string>

namespace kxvcr {

/**
 * The brightness of ordinary programs' white, in nits, as the user has set it for a display.
 * @param deviceName the display's, as in \\.\DISPLAY1
 * @return what studios take for it where the system does not say
 * @throws std::bad_alloc
 */
double SdrWhiteNits(const std::wstring& deviceName);

} // namespace kxvcr
