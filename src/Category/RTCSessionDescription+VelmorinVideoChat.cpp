#include "VelmorinVideoChat/Category/RTCSessionDescription+VelmorinVideoChat.h"

#include <exception>

#include "VelmorinVideoChat/QXVCTypesInternal.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

std::optional<std::string> qxvc_JSONData(const RTCSessionDescription& description) {
    const nlohmann::json document{
        {kQXVCSessionDescriptionTypeKey, RTCSessionDescription::stringForType(description.type())},
        {kQXVCSessionDescriptionSdpKey, description.sdp()},
    };
    try {
        return document.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

RTCSessionDescriptionPtr qxvc_descriptionFromJSONDictionary(const nlohmann::json& dictionary) {
    if (!dictionary.is_object()) {
        return nullptr;
    }
    return std::make_shared<const RTCSessionDescription>(
        RTCSessionDescription::typeForString(
            qxvc::json::getString(dictionary, kQXVCSessionDescriptionTypeKey, "")),
        qxvc::json::getString(dictionary, kQXVCSessionDescriptionSdpKey, ""));
}
