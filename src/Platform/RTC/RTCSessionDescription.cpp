#include "VelmorinVideoChat/Platform/RTC/RTCSessionDescription.h"

#include <utility>

RTCSessionDescription::RTCSessionDescription(RTCSdpType type, std::string sdp)
    : type_(type), sdp_(std::move(sdp)) {}

std::string RTCSessionDescription::stringForType(RTCSdpType type) {
    switch (type) {
        case RTCSdpTypeOffer:
            return "offer";
        case RTCSdpTypePrAnswer:
            return "pranswer";
        case RTCSdpTypeAnswer:
            return "answer";
        case RTCSdpTypeRollback:
            return "rollback";
    }
    return "";
}

RTCSdpType RTCSessionDescription::typeForString(const std::string& string) {
    if (string == "pranswer") {
        return RTCSdpTypePrAnswer;
    }
    if (string == "answer") {
        return RTCSdpTypeAnswer;
    }
    if (string == "rollback") {
        return RTCSdpTypeRollback;
    }
    return RTCSdpTypeOffer;
}

std::string RTCSessionDescription::description() const {
    return "RTCSessionDescription:\n" + stringForType(type_) + "\n" + sdp_;
}

std::ostream& operator<<(std::ostream& os, const RTCSessionDescription& description) {
    return os << description.description();
}
