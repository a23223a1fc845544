// The formats of recordings.
#include "worker/file/fileformat.h"

#include "worker/file/mp4writer.h"
#include "worker/file/webmwriter.h"

#include <algorithm>

namespace kxvcr {

namespace {

constexpr wchar_t LowerCase(wchar_t character) noexcept {
    return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
}

} // namespace

std::optional<FileFormat> FormatOfPath(std::wstring_view path) noexcept {
    for (const FileFormatRow& row : kFileFormats) {
        if (path.size() >= row.extension.size() &&
            std::ranges::equal(path.substr(path.size() - row.extension.size()), row.extension, {}, LowerCase)) {
            return row.format;
        }
    }
    return std::nullopt;
}

std::unique_ptr<MediaWriter> CreateWriter(FileFormat format, OutputFile& file, const StreamFormat& streams,
                                          MediaTime start) {
    const FileFormatRow& row = RowOf(format);
    if (streams.picture.codec != row.picture || (streams.sound && streams.sound->codec != row.sound)) {
        return nullptr;
    }
    switch (format) {
    case FileFormat::Mp4:
        return Mp4Writer::Create(file, streams, start);
    case FileFormat::WebM:
        return CreateWebmWriter(file, DocType::WebM, streams, start);
    case FileFormat::Matroska:
        return CreateWebmWriter(file, DocType::Matroska, streams, start);
    }
    return nullptr;
}

} // namespace kxvcr
