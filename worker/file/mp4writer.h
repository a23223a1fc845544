/**
 * @file
 * Writes a recording as MP4: H.264 with AAC.
 *
 * While it grows, the file is a fragmented MP4, whose fragments stand by themselves: ftyp, free, moov, then moof and
 * mdat for each flush; the writing may stop at any byte. Finish() appends a moov with tables of all samples, inside of
 * a free box, so that no reader takes notice of it. One write of 8 bytes then turns the free box at the file's head
 * into the head of an mdat that ends where the new moov begins: the fragments are mere data from then on, and the file
 * is an ordinary MP4.
 */
#pragma once

#include "worker/file/mediawriter.h"
#include "worker/file/mp4layout.h"
#include "worker/file/mp4samples.h"
#include "worker/file/outputfile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace kxvcr {

/**
 * One MP4 file.
 *
 * - A picture's duration is known when the next one comes. In a fragment, the newest picture lasts until the moment
 *   that was flushed; the four bytes that say so are written again when it turns out to last longer.
 * - Pictures before the file's time 0 last one tick of the timescale each and are cut off by an edit list: a player
 *   that knows no edit list shows them for less than a millisecond.
 * - Sound begins one packet before time 0, for the decoder to warm up, and an edit list cuts that off.
 * - A picture lasts 13 hours at most.
 */
class Mp4Writer final : public MediaWriter {
public:
    /** As CreateWriter(), for streams whose codecs belong to the format. */
    static std::unique_ptr<Mp4Writer> Create(OutputFile& file, const StreamFormat& format, MediaTime start);

    /**
     * The first picture that is shown reaches the file at once, others with a Flush(), or when five seconds or a
     * mebibyte of them wait.
     */
    bool Add(const SharedPacket& packet) override;

    bool Flush(MediaTime until) override;

    /**
     * Makes an ordinary MP4 of the file. Waits for the disk once, so that a loss of power finds either form whole.
     * Tables that do not fit on the disk are left out: the file then stays as it was while it grew.
     */
    void Finish(MediaTime end) override;

    std::uint64_t Size() const noexcept override { return m_end; }

private:
    /** A packet that waits for its fragment; @p tick is its time in its track's timescale. */
    struct Sample {
        SharedPacket packet;
        std::int64_t tick;
    };
    /** The newest picture in the file, which lasts until the next one. */
    struct NewestPicture {
        std::uint64_t durationOffset; ///< where its duration stands in the file
        std::int64_t tick;
        std::int64_t end; ///< as the file says
    };

    Mp4Writer(OutputFile& file, const StreamFormat& format, MediaTime start);

    bool WriteHead();
    bool Take(const SharedPacket& packet);
    bool TakePicture(const SharedPacket& packet);
    bool TakeSound(const SharedPacket& packet);
    bool FlushUntil(MediaTime until);
    bool BeginWith(std::size_t firstShown);
    bool WriteFragment(std::int64_t untilTick);
    bool WriteThenReveal(mp4::Bytes& fragment);
    bool ExtendNewest(std::int64_t end);
    mp4::FragmentPart PicturePart(std::int64_t untilTick) const;
    mp4::FragmentPart SoundPart() const;
    static void Remember(mp4::SampleIndex& index, const std::vector<Sample>& samples, std::uint64_t offset);
    bool CutShort();
    void EndFile();
    bool WriteTables();
    mp4::Movie MovieWithTables();
    bool FillSound(mp4::Track& track, std::int64_t movieDuration);
    std::int64_t PictureTick(MediaTime time) const noexcept;

    OutputFile& m_file;
    StreamFormat m_format;
    MediaTime m_start;
    std::int64_t m_slotTicks;        // how long a picture lasts at least
    std::int64_t m_soundLead = 0;    // samples of sound that may lie before the start
    std::int64_t m_prerollTicks = 0; // one for each picture that is not shown

    std::vector<Sample> m_pictures;
    std::vector<Sample> m_sound;
    std::size_t m_waitingBytes = 0;
    mp4::Bytes m_block; // the newest fragment's, whose memory serves for the next
    std::int64_t m_lastSoundTick = 0;
    std::optional<NewestPicture> m_newest;
    std::uint32_t m_sequenceNumber = 0;
    mp4::SampleIndex m_pictureIndex;
    mp4::SampleIndex m_soundIndex;
    bool m_indexIsWhole = true; // no memory was refused while it was kept up

    std::uint64_t m_switchOffset = 0; // of the bytes that make an ordinary MP4
    std::uint64_t m_end = 0;          // bytes up to the end of the last whole fragment
    bool m_hasBegun = false;          // a picture is shown
    bool m_accepting = true;
};

} // namespace kxvcr
