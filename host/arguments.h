/**
 * @file
 * The command line of kxrecord, as what it asks for.
 */
#pragma once

#include "host/info.h"
#include "host/listing.h"
#include "host/live.h"
#include "host/manifest.h"
#include "host/record.h"

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

namespace kxrecord {

/** Text to print instead of doing anything: help, the version, a completion script, or what is wrong. */
struct Notice {
    Exit exit = Exit::Success;
    std::string output;    ///< UTF-8, for standard output
    std::string complaint; ///< UTF-8, for standard error
};

using Task = std::variant<Notice, RecordOptions, LiveOptions, InfoOptions, ListOptions, ManifestOptions>;

/**
 * Reads the command line.
 * @param arguments UTF-8, without the program's name
 * @param versions what --version prints
 */
Task ParseArguments(std::vector<std::string> arguments, const std::string& versions);

/** @p text with lines of more than @p width bytes broken between words; what continues a line stands in its column. */
std::string Wrapped(const std::string& text, std::size_t width);

} // namespace kxrecord
