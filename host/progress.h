/**
 * @file
 * The progress of a recording on standard output: one line redrawn in place on a terminal, a line at the start
 * and a line at the end in a file or a pipe.
 */
#pragma once

#include <chrono>
#include <string>

class Progress {
public:
    /** Starts the clock and says that @p file is being recorded. */
    explicit Progress(std::wstring file);

    std::chrono::milliseconds Elapsed() const;

    /** Redraws the elapsed time; does nothing when the output is not a terminal. */
    void Update();

    /** Says how long the recording took. Call once, when the file is complete. */
    void Finish(std::chrono::milliseconds recorded);

private:
    std::wstring m_file;
    std::chrono::steady_clock::time_point m_start;
    bool m_redraws;
};
