// ICE candidates to and from small JSON documents:
//   candidate object   {"label": <index>, "id": <mid or "">, "candidate": <line or "">}
//   single document    the candidate object plus "type": "candidate"
//   list document      {"type": <caller's text>, "candidates": [candidate objects]}
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "VelmorinVideoChat/Platform/RTC/RTCIceCandidate.h"

/// The candidate object. An absent media id or line is written as "".
nlohmann::json qxvc_JSONDictionary(const RTCIceCandidate& candidate);

/// The single document as pretty-printed UTF-8 (indented, one member per line).
/// nullopt when it cannot be serialised (text that is not UTF-8); the error is
/// logged through RTCLogEx at error severity.
std::optional<std::string> qxvc_JSONData(const RTCIceCandidate& candidate);

/// The list document as pretty-printed UTF-8, candidates in the order given
/// (nullptr entries are left out). nullopt, with an error log line, when it
/// cannot be serialised.
std::optional<std::string> qxvc_JSONDataForIceCandidates(
    const std::vector<RTCIceCandidatePtr>& candidates, const std::string& type);

/// A candidate from a candidate object: line from "candidate", media id from
/// "id" (either absent when missing or null), index from "label" (a number or
/// numeric text; 0 when missing). No validation. nullptr when `dictionary` is
/// not a JSON object.
RTCIceCandidatePtr qxvc_candidateFromJSONDictionary(const nlohmann::json& dictionary);

/// One candidate per object in "candidates", in array order; elements that are
/// not objects are skipped. Empty when "candidates" is missing, empty or not an
/// array.
std::vector<RTCIceCandidatePtr> qxvc_candidatesFromJSONDictionary(const nlohmann::json& dictionary);
