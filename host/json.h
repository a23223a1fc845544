/**
 * @file
 * What all JSON objects of kxrecord have in common.
 */
#pragma once

#include "host/failure.h"

#include <nlohmann/json.hpp>

namespace kxrecord {

/** Counts up when a key or an event changes its meaning or goes; new ones leave it as it is. */
inline constexpr int kJsonSchema = 2;

/** An object with the number of the schema. */
nlohmann::ordered_json SchemaObject();

/** The event "error". Its code is never 0: where the failure has none of its own, it is the exit code. */
nlohmann::ordered_json ErrorObject(const Failure& failure);

} // namespace kxrecord
