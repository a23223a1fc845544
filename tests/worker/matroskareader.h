/**
 * @file
 * Reads back what the worker's Matroska writer wrote, whole or cut anywhere, without the library that wrote it.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kxtest {

struct MatroskaFrame {
    std::int64_t milliseconds = 0;
    std::vector<std::byte> bytes;
};

struct MatroskaFile {
    std::string docType;
    std::string codec;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t defaultDurationNs = 0;
    double durationMs = 0;
    bool segmentSizeKnown = false;
    bool segmentEndsWithFile = false;
    std::vector<MatroskaFrame> frames;           ///< whole frames only
    std::vector<std::uint64_t> clusterPositions; ///< relative to the segment's first element
    std::vector<std::uint64_t> cuePositions;     ///< the same, as the index gives them
    std::size_t openClusters = 0;                ///< clusters whose size is not known
    std::size_t wrongClusterSizes = 0;           ///< clusters that do not end where their size says
    bool hasTornEnd = false;                     ///< the file ends inside an element
};

/** Walks the elements of @p file as a player does. */
MatroskaFile ReadMatroska(const std::vector<std::byte>& file);

} // namespace kxtest
