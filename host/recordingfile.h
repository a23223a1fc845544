/**
 * @file
 * The file that the worker writes, seen from outside: its size, and the room that its disk has left.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kxrecord {

class RecordingFile {
public:
    /** @param path full path; the file need not exist yet */
    explicit RecordingFile(std::wstring path);

    /** The file's size as written until now, or none when it cannot be read. */
    std::optional<std::uint64_t> Bytes() const;

    /** Bytes that this user may still write to the file's disk, or none when the system does not tell. */
    std::optional<std::uint64_t> DiskFreeBytes() const;

private:
    std::wstring m_path;
    std::wstring m_folder;
};

/** What lies where a recording is to be written. */
enum class Existing {
    Nothing,
    Recording, ///< a file that begins as MP4, WebM and Matroska files do, or an empty one
    Folder,
    Other, ///< any other file
};

/** @param path full path. A file that cannot be read is left to the worker to refuse, and counts as Nothing. */
Existing WhatExists(const std::wstring& path);

/**
 * Whether the room that is left is too little: less than the worker needs to finish a file, or gone within half a
 * minute at the rate of the recording until now.
 */
bool IsDiskLow(std::uint64_t diskFreeBytes, std::uint64_t fileBytes, std::chrono::milliseconds elapsed);

} // namespace kxrecord
