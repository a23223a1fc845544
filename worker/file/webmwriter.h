/**
 * @file
 * Writes a recording as WebM (VP9 with Opus) or Matroska (H.264 with AAC): the same file format but for its name.
 */
#pragma once

#include "worker/file/mediawriter.h"
#include "worker/file/outputfile.h"

#include <memory>

namespace kxvcr {

enum class DocType { WebM, Matroska };

/**
 * Makes a writer and writes the file's head.
 *
 * - Clusters stand by themselves: whatever reached the file plays, without its end. A cluster begins with a key
 *   picture, or after some seconds without one. A packet reaches the file at once, in one write.
 * - Times are in milliseconds. A picture lasts until the next one, the last one until the length that the file's head
 *   says; Flush() and Finish() bring that up to date.
 * - Pictures before the file's time 0 all have the time 0, like the first that is shown: the format cannot say more. A
 *   player decodes them and shows the last one that is due, so that a browser begins with the right picture; a program
 *   that takes the pictures one by one finds them all.
 *
 * @param file borrowed; it must outlive the writer
 * @param start the moment that is the file's time 0
 * @return null when a write failed
 * @throws std::bad_alloc
 */
std::unique_ptr<MediaWriter> CreateWebmWriter(OutputFile& file, DocType type, const StreamFormat& format,
                                              MediaTime start);

} // namespace kxvcr
