/**
 * @file
 * Writes a recording: a Matroska file with one track of motion JPEG (codec id V_MJPEG).
 *
 * Matroska was chosen because its clusters stand by themselves: whatever reached the disk plays, without the end of
 * the file. A cluster lasts one second, and a frame reaches the file in one write.
 */
#pragma once

#include "worker/file/outputfile.h"
#include "worker/framesink.h"

#include <cstdint>
#include <memory>
#include <span>

namespace kxvcr {

struct VideoFormat {
    std::uint32_t width = 0;           ///< in pixels
    std::uint32_t height = 0;          ///< in pixels
    std::uint32_t framesPerSecond = 0; ///< slots per second
};

/**
 * One Matroska file. When a write fails, the file is cut after the last whole frame and finished, so that it plays;
 * later frames are refused.
 */
class MatroskaWriter final : public FrameSink {
public:
    /**
     * Writes the file's head.
     * @param file borrowed; it must outlive the writer
     * @return null when a write failed
     * @throws std::bad_alloc
     */
    static std::unique_ptr<MatroskaWriter> Create(OutputFile& file, const VideoFormat& format);
    ~MatroskaWriter() override;

    bool AddFrame(std::uint64_t slot, std::span<const std::byte> jpeg) override;

    /** Writes duration, sizes and the index for seeking. An index that does not fit on the disk is left out. */
    void Finish(std::uint64_t endSlot) override;

    /** Bytes in the file. */
    std::uint64_t Size() const noexcept;

private:
    class Impl;
    explicit MatroskaWriter(std::unique_ptr<Impl> impl) noexcept;

    std::unique_ptr<Impl> m_impl;
};

} // namespace kxvcr
