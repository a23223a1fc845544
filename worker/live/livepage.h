/**
 * @file
 * The live server's page: what a browser is given to show the stream.
 */
#pragma once

namespace kxvcr {

extern const char kLivePageHtml[];
extern const char kLivePageScript[];
extern const char kLivePageStyle[];
extern const char kLivePageIcon[]; ///< an SVG picture

} // namespace kxvcr
