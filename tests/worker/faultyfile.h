/**
 * @file
 * An output file in memory whose writes fail as a test says.
 */
#pragma once

#include "memoryfile.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kxtest {

/** Fails the writes from number @p first on, @p count of them; each leaves the first half of its bytes in the file. */
class FaultyFile final : public kxvcr::OutputFile {
public:
    FaultyFile(std::size_t first, std::size_t count) : m_first(first), m_count(count) {}

    bool WriteAt(std::uint64_t offset, std::span<const std::byte> source) override {
        const std::size_t number = m_writes++;
        if (number < m_first || number - m_first >= m_count) {
            return m_memory.WriteAt(offset, source);
        }
        m_memory.WriteAt(offset, source.first(source.size() / 2));
        return false;
    }
    bool Truncate(std::uint64_t size) override { return m_memory.Truncate(size); }
    bool Flush() override { return m_memory.Flush(); }
    void Discard() noexcept override { m_memory.Discard(); }

    const std::vector<std::byte>& Bytes() const { return m_memory.bytes; }
    std::size_t Writes() const { return m_writes; }

private:
    MemoryFile m_memory;
    std::size_t m_first;
    std::size_t m_count;
    std::size_t m_writes = 0;
};

/**
 * Lets one write after the other fail, once and then for good, from number @p first to before @p writes.
 * @param record records into the file that it is given
 * @param check called with the number of the write and what the file then holds
 */
template <class Record, class Check>
void FailEachWrite(std::size_t first, std::size_t writes, const Record& record, const Check& check) {
    for (std::size_t failing = first; failing < writes; ++failing) {
        for (const std::size_t count : {std::size_t{1}, SIZE_MAX}) {
            FaultyFile disk(failing, count);
            record(disk);
            check(failing, disk.Bytes());
        }
    }
}

} // namespace kxtest
