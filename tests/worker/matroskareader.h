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
    std::uint64_t track = 0;
    std::int64_t milliseconds = 0;
    bool isKey = false;
    std::vector<std::byte> bytes;
};

struct MatroskaFile {
    std::string docType;
    std::string codec; ///< of the first track
    std::string soundCodec;
    std::vector<std::vector<std::byte>> codecPrivates;
    std::uint64_t matrixCoefficients = 0;
    std::uint64_t range = 0;
    std::uint64_t codecDelayNs = 0;
    std::uint64_t seekPreRollNs = 0;
    std::uint64_t channels = 0;
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t defaultDurationNs = 0;
    double durationMs = 0;
    bool segmentSizeKnown = false;
    bool segmentEndsWithFile = false;
    std::vector<MatroskaFrame> frames;           ///< whole frames only
    std::vector<std::uint64_t> clusterPositions; ///< relative to the segment's first element
    std::vector<std::uint64_t> cuePositions;     ///< the same, as the index gives them
    std::vector<std::uint64_t> cueTimes;         ///< in milliseconds
    std::size_t openClusters = 0;                ///< clusters whose size is not known
    std::size_t wrongClusterSizes = 0;           ///< clusters that do not end where their size says
    bool hasTornEnd = false;                     ///< the file ends inside an element
};

/** Walks the elements of @p file as a player does. */
MatroskaFile ReadMatroska(const std::vector<std::byte>& file);

} // namespace kxtest
