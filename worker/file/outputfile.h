/**
 * @file
 * The file that a recording is written to: writes at 64-bit offsets whose failure is seen at once.
 */
#pragma once

#include "common/win/handle.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace kxvcr {

/** Bytes at offsets; what the Matroska writer needs of a file. */
class OutputFile {
public:
    virtual ~OutputFile() = default;

    /**
     * Writes all of @p bytes at @p offset.
     * @return false when the system refused; a part of the bytes may have been written then
     */
    virtual bool WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) = 0;

    /** Cuts the file after @p size bytes. */
    virtual bool Truncate(std::uint64_t size) = 0;

    /** Waits until everything written is on the disk itself, and no longer in the system's memory alone. */
    virtual bool Flush() = 0;

    /** Closes and removes the file; every later call fails. */
    virtual void Discard() noexcept = 0;
};

/** An OutputFile on disk. Others may read it while it is written. */
class DiskFile final : public OutputFile {
public:
    /**
     * Creates the file; an existing one is replaced, but stays as it is when the file cannot be created.
     * @param path as CreateFileW takes it; a relative one starts from the current directory. The folder must exist.
     *        Paths past MAX_PATH work. Devices and pipes are refused.
     * @return null on failure, with the reason in GetLastError()
     * @throws std::bad_alloc
     */
    static std::unique_ptr<DiskFile> Create(const std::wstring& path);

    bool WriteAt(std::uint64_t offset, std::span<const std::byte> bytes) override;
    bool Truncate(std::uint64_t size) override;
    bool Flush() override;
    void Discard() noexcept override;

private:
    explicit DiskFile(std::wstring path) noexcept;

    kx::FileHandle m_file;
    std::wstring m_path; // as the system takes it
};

} // namespace kxvcr
