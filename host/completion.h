/**
 * @file
 * Scripts that complete kxrecord's commands and options in a shell.
 */
#pragma once

#include <CLI/App.hpp>

#include <string>

namespace kxrecord {

/** @param shell "bash" or "powershell" @return the script, made from the commands and options of @p app */
std::string CompletionScript(const CLI::App& app, const std::string& shell);

} // namespace kxrecord
