/**
 * @file
 * Product data: the product series by the prefix of the OEM version, which is what stands before its first "-".
 *
 * The rows here are samples. A product brings its own table in a header of this form, named at configure time:
 * -DKX_PRODUCT_SERIES_HEADER=<path>. Prefixes are compared with case; the first row that is equal counts.
 */
#pragma once

#include <string_view>

namespace productseries {

/** One row: a prefix and the name of its series. */
struct Row {
    std::string_view prefix;
    std::string_view series;
};

inline constexpr Row kRows[] = {
    {"AA", "SeriesA"}, {"BB", "SeriesB"},  {"CC", "SeriesC"},
    {"DD", "SeriesD"}, {"DDX", "SeriesD"}, // a later line of the same series
};

} // namespace productseries
