/**
 * @file
 * An output file in memory, on a disk that can be full.
 */
#pragma once

#include "outputfile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kxtest {

/** Takes bytes up to its capacity; the write that passes it is done in part and fails, as on a disk. */
class MemoryFile final : public kxvcr::OutputFile {
public:
    explicit MemoryFile(std::uint64_t room = UINT64_MAX) : capacity(room) {}

    bool WriteAt(std::uint64_t offset, std::span<const std::byte> source) override {
        const std::uint64_t left = capacity - std::min(capacity, offset);
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(left, source.size()));
        if (length != 0) {
            bytes.resize(std::max(bytes.size(), static_cast<std::size_t>(offset) + length));
            std::copy_n(source.begin(), length, bytes.begin() + static_cast<std::ptrdiff_t>(offset));
        }
        ++writes;
        return length == source.size();
    }

    bool Truncate(std::uint64_t size) override {
        bytes.resize(static_cast<std::size_t>(size));
        return true;
    }

    std::uint64_t capacity;
    std::vector<std::byte> bytes;
    std::size_t writes = 0;
};

} // namespace kxtest
