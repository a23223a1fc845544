/**
 * @file
 * The formats of recordings: which name stands for which, what each may hold, and who writes it.
 */
#pragma once

#include "worker/file/mediawriter.h"
#include "worker/file/outputfile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace kxvcr {

enum class FileFormat : std::uint8_t { Mp4, WebM, Matroska };

/** One row of the table of formats. */
struct FileFormatRow {
    FileFormat format;
    std::wstring_view extension; ///< of a path, with its dot, in lower case
    Codec picture;
    Codec sound;
};

inline constexpr FileFormatRow kFileFormats[] = {
    {FileFormat::Mp4, L".mp4", Codec::H264, Codec::AacLc},
    {FileFormat::WebM, L".webm", Codec::Vp9, Codec::Opus},
    {FileFormat::Matroska, L".mkv", Codec::H264, Codec::AacLc},
};

/** The row of @p format. */
constexpr const FileFormatRow& RowOf(FileFormat format) noexcept {
    return kFileFormats[static_cast<std::size_t>(format)];
}

/** The format that the end of @p path stands for, in upper or lower case; none for any other name. */
std::optional<FileFormat> FormatOfPath(std::wstring_view path) noexcept;

/**
 * Makes a writer and writes the file's head.
 * @param file borrowed; it must outlive the writer
 * @param start the moment that is the file's time 0
 * @return null when a write failed, or when a stream's codec does not belong to the format
 * @throws std::bad_alloc
 */
std::unique_ptr<MediaWriter> CreateWriter(FileFormat format, OutputFile& file, const StreamFormat& streams,
                                          MediaTime start);

} // namespace kxvcr
