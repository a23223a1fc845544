/**
 * @file
 * The file that the worker writes, seen from outside: its size, and the room that its disk has left.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

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

/**
 * Whether the room that is left is too little: less than the worker needs to finish a file, or gone within half a
 * minute at the rate of the recording until now.
 */
bool IsDiskLow(std::uint64_t diskFreeBytes, std::uint64_t fileBytes, std::chrono::milliseconds elapsed);
