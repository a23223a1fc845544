/**
 * @file
 * The live server's page: what a browser is given to show the stream. The build makes the texts from the files in
 * page/.
 */
#pragma once

namespace kxvcr {

extern const char kLivePageHtml[];   ///< page/index.html
extern const char kLivePageScript[]; ///< page/live.js
extern const char kLivePageStyle[];  ///< page/live.css
extern const char kLivePageIcon[];   ///< page/icon.svg

} // namespace kxvcr
