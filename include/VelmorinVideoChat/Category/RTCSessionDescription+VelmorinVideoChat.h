// Session descriptions to and from {"type": "offer"|"pranswer"|"answer"|"rollback",
// "sdp": <plain text>}.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Platform/RTC/RTCSessionDescription.h"

/// The document as compact UTF-8; nullopt when the text is not UTF-8 (not logged).
std::optional<std::string> qxvc_JSONData(const RTCSessionDescription& description);

/// A description whose type is RTCSessionDescription::typeForString of "type"
/// (an offer when missing or unknown) and whose text is "sdp" ("" when missing).
/// nullptr when `dictionary` is not a JSON object.
RTCSessionDescriptionPtr qxvc_descriptionFromJSONDictionary(const nlohmann::json& dictionary);
