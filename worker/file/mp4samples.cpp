// Remembers where a track's samples are. Durations and chunk sizes are kept as runs of equal ones.
#include "worker/file/mp4samples.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace kxvcr::mp4 {

void SampleIndex::BeginChunk(std::uint64_t offset) {
    EndChunk();
    m_offsets.push_back(offset);
}

void SampleIndex::EndChunk() {
    if (m_samplesInChunk != 0 && (m_chunks.empty() || m_chunks.back().samplesPerChunk != m_samplesInChunk)) {
        m_chunks.push_back({static_cast<std::uint32_t>(m_offsets.size()), m_samplesInChunk});
    }
    m_samplesInChunk = 0;
}

void SampleIndex::AddDuration(std::int64_t duration) {
    constexpr std::int64_t kLongest = std::numeric_limits<std::uint32_t>::max();
    const auto ticks = static_cast<std::uint32_t>(std::clamp<std::int64_t>(duration, 0, kLongest));
    if (m_times.empty() || m_times.back().duration != ticks) {
        m_times.push_back({0, ticks});
    }
    ++m_times.back().count;
}

void SampleIndex::Add(std::int64_t time, std::size_t size, bool isKey) {
    if (m_sizes.empty()) {
        m_firstTime = time;
    } else {
        AddDuration(time - m_lastTime);
    }
    m_lastTime = time;
    m_sizes.push_back(static_cast<std::uint32_t>(size));
    if (isKey) {
        m_keys.push_back(static_cast<std::uint32_t>(m_sizes.size()));
    }
    ++m_samplesInChunk;
}

void SampleIndex::MoveInto(SampleTable& table, std::int64_t end) {
    EndChunk();
    AddDuration(end - m_lastTime);
    if (m_keys.size() != m_sizes.size()) {
        table.keys = SyncSamples{std::move(m_keys)};
    }
    table.times.runs = std::move(m_times);
    table.chunks.runs = std::move(m_chunks);
    table.sizes.sizes = std::move(m_sizes);
    table.chunkOffsets = std::move(m_offsets);
    *this = {};
}

} // namespace kxvcr::mp4
