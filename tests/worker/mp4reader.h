/**
 * @file
 * Reads back what the worker's MP4 writers wrote, whole or cut anywhere, without the code that wrote it.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kxtest {

/** The bytes of a file, which need not all be there. */
struct Mp4Source {
    std::uint64_t size = 0;
    std::function<std::byte(std::uint64_t offset)> at;
};

/** A box, with the boxes inside of it when it is one that only holds boxes. */
struct Mp4Box {
    std::string type;
    std::uint64_t start = 0;   ///< of its head
    std::uint64_t content = 0; ///< behind its head
    std::uint64_t end = 0;
    std::vector<Mp4Box> children;

    /** The @p index-th child of a type; fails the test when there is none. */
    const Mp4Box& Child(const std::string& childType, std::size_t index = 0) const;
    bool Has(const std::string& childType) const;
    /** Types of the children, with a blank between them. */
    std::string ChildTypes() const;
};

struct Mp4Sample {
    std::int64_t time = 0; ///< in the track's timescale, without the edit list
    std::int64_t duration = 0;
    bool isKey = false;
    std::uint64_t offset = 0;
    std::size_t size = 0;
};

struct Mp4Edit {
    std::uint64_t duration = 0;
    std::int64_t mediaTime = 0;

    friend bool operator==(const Mp4Edit&, const Mp4Edit&) = default;
};

struct Mp4Track {
    std::string mediaType;
    std::uint32_t timescale = 0;
    std::uint64_t duration = 0;      ///< as the track's head says, in the movie's timescale
    std::uint64_t mediaDuration = 0; ///< as the media's head says, in the track's timescale
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::vector<Mp4Edit> edits;
    std::vector<Mp4Sample> samples;
    std::size_t chunks = 0;
};

struct Mp4File {
    std::string topLevel; ///< types of the outermost whole boxes, with a blank between them
    bool hasTornEnd = false;
    bool isFragmented = false;
    std::uint32_t timescale = 0;
    std::uint64_t duration = 0;
    std::vector<Mp4Track> tracks;
    std::vector<std::uint32_t> sequenceNumbers; ///< of the fragments
};

/** Reads the boxes of a file; one that ends behind the file is left out. */
std::vector<Mp4Box> ReadBoxes(const Mp4Source& source);

/** Reads @p file as a player does. A file without a movie has no tracks. */
Mp4File ReadMp4(const Mp4Source& source);
Mp4File ReadMp4(const std::vector<std::byte>& file);

/** The bytes of a sample. */
std::vector<std::byte> BytesOf(const std::vector<std::byte>& file, const Mp4Sample& sample);

} // namespace kxtest
