/**
 * @file
 * Text to the standard streams: wide characters to a terminal, UTF-8 to a file or a pipe.
 */
#pragma once

#include <string_view>

enum class Stream { Output, Error };

/** Whether the stream is a terminal whose lines can be redrawn. */
bool IsTerminal(Stream stream);

/** Writes the text as it is. A stream that is closed or broken swallows it. */
void Write(Stream stream, std::wstring_view text);
