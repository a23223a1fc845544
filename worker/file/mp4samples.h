/**
 * @file
 * Remembers where a track's samples are in the file, for the sample tables at its end.
 */
#pragma once

#include "worker/file/mp4boxes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kxvcr::mp4 {

/** A track's samples, in the order of their times: 4 bytes a sample, and what changes from one to the next. */
class SampleIndex {
public:
    /** The samples added from here on lie one behind the other from @p offset on. @throws std::bad_alloc */
    void BeginChunk(std::uint64_t offset);

    /** @param time in the track's timescale, above the sample's before @throws std::bad_alloc */
    void Add(std::int64_t time, std::size_t size, bool isKey);

    bool IsEmpty() const noexcept { return m_sizes.empty(); }
    std::int64_t FirstTime() const noexcept { return m_firstTime; }
    std::int64_t LastTime() const noexcept { return m_lastTime; }

    /**
     * Fills in the tables of @p table, which says what the samples are. The index is empty afterwards.
     * @param end when the last sample ends
     * @throws std::bad_alloc
     */
    void MoveInto(SampleTable& table, std::int64_t end);

private:
    void AddDuration(std::int64_t duration);
    void EndChunk();

    std::vector<TimeToSample::Run> m_times;
    std::vector<std::uint32_t> m_keys;
    std::vector<SampleToChunk::Run> m_chunks;
    std::vector<std::uint32_t> m_sizes;
    std::vector<std::uint64_t> m_offsets;
    std::uint32_t m_samplesInChunk = 0;
    std::int64_t m_firstTime = 0;
    std::int64_t m_lastTime = 0;
};

} // namespace kxvcr::mp4
