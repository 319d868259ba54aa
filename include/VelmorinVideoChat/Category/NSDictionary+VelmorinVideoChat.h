// Serialising JSON dictionaries for the wire.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

/// The compact JSON text of `dictionary` (no line breaks, no indentation), UTF-8.
/// Gives "{}" when it cannot be serialised: a value that is not a JSON object
/// (null, an array, a scalar), a string anywhere inside that is not valid
/// UTF-8, a NaN or infinite number, or binary data. "/" is written as it
/// stands (readers accept either form).
std::string qxvc_toString(const nlohmann::json& dictionary);
