/**
 * @file
 * Text to the standard streams: wide characters to a terminal, UTF-8 to a file or a pipe.
 */
#pragma once

#include <cstddef>
#include <string_view>

namespace kxrecord {

enum class Stream { Output, Error };

/** What a text is, where colours are wanted. */
enum class Colour {
    Plain,
    Heading,
    Good,
    Faint, ///< of lesser interest
};

/** Whether the stream is a terminal whose lines can be redrawn. */
bool IsTerminal(Stream stream);

/** Cells in a line of the terminal that standard output is, or 0 when it is none. */
std::size_t TerminalWidth();

/** Writes the text as it is. A stream that is closed or broken swallows it. */
void Write(Stream stream, std::wstring_view text);

/**
 * Writes to standard output, in colour on a terminal unless the environment variable NO_COLOR is set to something.
 */
void WriteColoured(Colour colour, std::wstring_view text);

} // namespace kxrecord
