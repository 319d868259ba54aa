#include "VelmorinVideoChat/Category/RTCIceCandidate+VelmorinVideoChat.h"

#include <exception>

#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"
#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCFormat.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace {

constexpr int kPrettyIndent = 2;
constexpr int kSingleCandidateLogLine = 80;
constexpr int kCandidateListLogLine = 49;

/// Pretty-printed text of `document`, or nullopt after logging why it failed.
std::optional<std::string> prettyData(const nlohmann::json& document, int line,
                                      const char* operation) {
    try {
        return document.dump(kPrettyIndent, ' ', false, nlohmann::json::error_handler_t::strict);
    } catch (const std::exception& error) {
        RTCLogEx(RTCLoggingSeverityError,
                 qxvc::format("(%@:%d %s): Error serializing JSON: %@", RTCFileName(__FILE__), line,
                              operation, error.what()));
        return std::nullopt;
    }
}

}  // namespace

nlohmann::json qxvc_JSONDictionary(const RTCIceCandidate& candidate) {
    return nlohmann::json{
        {kRTCICECandidateMLineIndexKey, candidate.sdpMLineIndex()},
        {kRTCICECandidateMidKey, candidate.sdpMid().value_or("")},
        {kRTCICECandidateSdpKey, candidate.sdp().value_or("")},
    };
}

std::optional<std::string> qxvc_JSONData(const RTCIceCandidate& candidate) {
    nlohmann::json document = qxvc_JSONDictionary(candidate);
    document[kRTCICECandidateTypeKey] = kRTCICECandidateTypeValue;
    return prettyData(document, kSingleCandidateLogLine,
                      "-[RTCIceCandidate(VelmorinVideoChat) qxvc_JSONData]");
}

std::optional<std::string> qxvc_JSONDataForIceCandidates(
    const std::vector<RTCIceCandidatePtr>& candidates, const std::string& type) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& candidate : candidates) {
        if (candidate) {
            list.push_back(qxvc_JSONDictionary(*candidate));
        }
    }
    const nlohmann::json document{{kRTCICECandidateTypeKey, type},
                                  {kRTCICECandidatesTypeKey, std::move(list)}};
    return prettyData(
        document, kCandidateListLogLine,
        "+[RTCIceCandidate(VelmorinVideoChat) qxvc_JSONDataForIceCandidates:withType:]");
}

RTCIceCandidatePtr qxvc_candidateFromJSONDictionary(const nlohmann::json& dictionary) {
    if (!dictionary.is_object()) {
        return nullptr;
    }
    return std::make_shared<const RTCIceCandidate>(
        qxvc::json::getString(dictionary, kRTCICECandidateSdpKey),
        qxvc::json::getInt32(dictionary, kRTCICECandidateMLineIndexKey, 0),
        qxvc::json::getString(dictionary, kRTCICECandidateMidKey));
}

std::vector<RTCIceCandidatePtr> qxvc_candidatesFromJSONDictionary(
    const nlohmann::json& dictionary) {
    std::vector<RTCIceCandidatePtr> candidates;
    const nlohmann::json* list = qxvc::json::member(dictionary, kRTCICECandidatesTypeKey);
    if (list == nullptr || !list->is_array()) {
        return candidates;
    }
    for (const auto& element : *list) {
        if (auto candidate = qxvc_candidateFromJSONDictionary(element)) {
            candidates.push_back(std::move(candidate));
        }
    }
    return candidates;
}
