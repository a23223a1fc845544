// The log's file: lines in UTF-8, appended, with old files kept beside it.
//
// log4cplus has such an appender. This one exists because that one opens its file while it is constructed, and an
// appender that is given up half made asks for memory in its destructor: without memory that ends the process.
#pragma once

#include "common/win/handle.h"

#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>

#include <cstdint>
#include <string>
#include <utility>

namespace logtool {

/** Appends to a file; one that has grown past the limit becomes "<path>.1" and pushes the older ones on. */
class LogFile : public log4cplus::Appender {
public:
    /**
     * Opens nothing yet.
     * @param otherPath is written when @p path cannot be: its folder is made. Empty: none
     * @param oldFiles how many old files are kept
     */
    LogFile(std::wstring path, std::wstring otherPath, std::uint64_t maxBytes, int oldFiles)
        : m_path(std::move(path)),
          m_otherPath(std::move(otherPath)),
          m_maxBytes(maxBytes),
          m_oldFiles(oldFiles) {}
    ~LogFile() override { destructorImpl(); }

    void close() override;

protected:
    /** Writes the event's line; it is whole or not written. @throws std::bad_alloc */
    void append(const log4cplus::spi::InternalLoggingEvent& event) override;

private:
    bool Open() noexcept;
    bool OpenPath() noexcept;
    bool HasGrownPast() const noexcept;
    void RollOver();

    std::wstring m_path;
    std::wstring m_otherPath; ///< empty once it is the path
    const std::uint64_t m_maxBytes;
    const int m_oldFiles;
    kx::FileHandle m_file;
};

} // namespace logtool
