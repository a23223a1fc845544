/**
 * @file
 * An output file in memory, on a disk that can be full.
 */
#pragma once

#include "worker/file/outputfile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
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

    bool Flush() override {
        ++flushes;
        return true;
    }

    void Discard() noexcept override {
        capacity = 0;
        bytes.clear();
        isDiscarded = true;
    }

    std::uint64_t capacity;
    std::vector<std::byte> bytes;
    std::size_t flushes = 0;
    bool isDiscarded = false;
    std::size_t writes = 0;
};

/** Hands everything on to a file that outlives it. */
class ForwardingFile final : public kxvcr::OutputFile {
public:
    explicit ForwardingFile(kxvcr::OutputFile& target) : m_target(target) {}

    bool WriteAt(std::uint64_t offset, std::span<const std::byte> source) override {
        return m_target.WriteAt(offset, source);
    }
    bool Truncate(std::uint64_t size) override { return m_target.Truncate(size); }
    bool Flush() override { return m_target.Flush(); }
    void Discard() noexcept override { m_target.Discard(); }

private:
    kxvcr::OutputFile& m_target;
};

} // namespace kxtest
