#include "VelmorinVideoChat/Platform/RTC/RTCMediaConstraints.h"

#include <algorithm>
#include <cctype>

std::shared_ptr<RTCMediaConstraints> RTCMediaConstraints::initWithMandatoryConstraints(
    std::optional<RTCConstraintsMap> mandatory, std::optional<RTCConstraintsMap> optional) {
    return std::make_shared<RTCMediaConstraints>(std::move(mandatory), std::move(optional));
}

RTCMediaConstraints::RTCMediaConstraints(std::optional<RTCConstraintsMap> mandatory,
                                         std::optional<RTCConstraintsMap> optional)
    : mandatory_(std::move(mandatory)), optional_(std::move(optional)) {}

std::optional<std::string> RTCMediaConstraints::valueForKey(const std::string& key) const {
    for (const auto* map : {&mandatory_, &optional_}) {
        if (*map) {
            auto it = (*map)->find(key);
            if (it != (*map)->end()) {
                return it->second;
            }
        }
    }
    return std::nullopt;
}

std::optional<bool> RTCMediaConstraints::boolForKey(const std::string& key) const {
    auto value = valueForKey(key);
    if (!value) {
        return std::nullopt;
    }
    std::string lower = *value;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower == "true";
}

std::string RTCMediaConstraints::description() const {
    auto dump = [](const std::optional<RTCConstraintsMap>& map) {
        if (!map) {
            return std::string("(null)");
        }
        std::string out = "{";
        for (const auto& [k, v] : *map) {
            out += (out.size() > 1 ? ", " : "") + k + ": " + v;
        }
        return out + "}";
    };
    return "RTCMediaConstraints:\nmandatory: " + dump(mandatory_) +
           "\noptional: " + dump(optional_);
}
