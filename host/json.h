/**
 * @file
 * What all JSON objects of kxrecord have in common.
 */
#pragma once

#include "host/failure.h"
#include "host/windowlist.h"

#include <nlohmann/json.hpp>

#include <string>

namespace kxrecord {

/** Counts up when a key or an event changes its meaning or goes; new ones leave it as it is. */
inline constexpr int kJsonSchema = 2;

/** An object with the number of the schema. */
nlohmann::ordered_json SchemaObject();

/** A window, as lists and events have it. */
nlohmann::ordered_json WindowObject(const WindowInfo& window);

/** The text, or null when it is empty. */
nlohmann::ordered_json OrNull(const std::wstring& text);

/** The event "error". Its code is never 0: where the failure has none of its own, it is the exit code. */
nlohmann::ordered_json ErrorObject(const Failure& failure);

} // namespace kxrecord
